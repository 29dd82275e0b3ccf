// SPDX-License-Identifier: MIT
#pragma once

// What the probe's two components share: the log of every delivery their
// handlers saw, the state of the send the probe's own thread is making, and
// that thread. Also the sender of the probe's own messages and queries: a
// handler base of its own, so that the thread never touches a component the
// host may destroy under it.

#include "message/messagehandler.h"
#include "probe/capture.h"

#include <QString>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kpf {
class IMessage;
}

namespace Probe {

// One message delivered into a probe component, as its handler saw it.
// Written once by the delivering thread, then published through ready.
struct DeliveryRecord
{
    std::atomic<bool> ready{false};
    std::uint32_t number = 0;
    int kind = 0;
    int component = 0; // 0 the probe, 1 the witness
    long thread = 0;   // the kernel's thread id
    std::int64_t enterNs = 0, leaveNs = 0;
    int size = 0;
    bool payloadRead = false; // data() called, twice
    const void* data1 = nullptr;
    const void* data2 = nullptr;
    std::uint32_t seq = 0; // from the payload; 0 when unreadable
    bool intact = false;   // magic, number and zero word as sent
    // What the probe's thread was sending when this came in on that thread;
    // 0 when it came in on another thread or between sends.
    std::uint32_t sendingNumber = 0;
    std::uint32_t sendingSeq = 0;
    bool ownDeliveredBefore = false; // the message being sent had arrived
    bool ownAnsweredBefore = false;  // the command being sent had been answered
};

// The subscriptions the components make on start, in this order.
struct Subscription
{
    int component;
    std::uint32_t number;
    bool command;
};
extern const Subscription subscriptions[5];

class Session : public LCD::Message::MessageHandler, public std::enable_shared_from_this<Session>
{
public:
    static constexpr std::size_t Capacity = 8192;
    // The message kinds of the probe's own sends.
    enum class Send { Event, Post, Command };
    struct Sent
    {
        std::int64_t callNs = 0, returnNs = 0;
        int result = 0;
        const void* buffer = nullptr; // the sender's payload buffer
        std::uint32_t replyMagic = 0, replySeq = 0;
    };

    // The session of the components alive now, made by the first of them.
    static std::shared_ptr<Session> attach();
    Session();
    ~Session() override;

    int onInit() override { return 0; }

    // Handlers' side, on whatever thread delivers; never waits. own: one of
    // the probe's numbers; readPayload: its payload is read (data() twice).
    const kpf::IMessage* received(const kpf::IMessage* message, int component, bool own, bool readPayload);
    void subscribed(std::size_t index, int result) { m_subscribeResults[index].store(result); }
    void witnessStarted() { m_witnessStarted.store(true); }
    // The probe's start: reads the setting and starts the thread, once.
    void start();
    // Stops the thread, waiting a bounded time; a thread still blocked in
    // the host after that is left running, with the library kept loaded.
    // Not a handler: the host calls it through a component's deletor.
    void stop();

    // Thread's side.
    Sent sendOwn(Send kind, std::uint32_t number, std::uint32_t seq);
    // A query through the handler base: sendCommand without a reply.
    int query(std::uint32_t number, int size, const void* data);
    // A query whose reply is read whole: replySize -1 when none came.
    int rawQuery(std::uint32_t number, int* replySize, std::vector<unsigned char>* reply);
    std::vector<const DeliveryRecord*> deliveries() const;

    // The capture. Handlers' side: an event to capture, read while its
    // delivery lasts and queued; never waits but for the queue's lock.
    void capture(const kpf::IMessage& message);
    // Thread's side: subscribes a number under the probe component's name,
    // which the host ties to that component.
    int subscribeForCapture(std::uint32_t number);
    void startCapturing() { m_capturing.store(true); }
    void stopCapturing() { m_capturing.store(false); }
    // What was queued since the last call; dropped: how many did not fit.
    std::vector<CapturedEvent> takeCaptured(std::size_t* dropped);
    std::size_t dropped() const;
    bool stopping() const { return m_stop.load(); }
    // Sleeps up to ms, woken at once by a stop; false when stopping.
    bool waitUnlessStopped(int ms) const;
    bool witnessHasStarted() const { return m_witnessStarted.load(); }
    int subscribeResult(std::size_t index) const { return m_subscribeResults[index].load(); }
    bool hasEventDispatcher() const { return m_eventDispatcher != nullptr; }
    bool hasCommandDispatcher() const { return m_commandDispatcher != nullptr; }
    long probeThread() const { return m_probeThread.load(); }
    long startThread() const { return m_startThread; }
    const QString& reportDir() const { return m_reportDir; }
    bool reportDirFromVariable() const { return m_reportDirFromVariable; }

    static std::int64_t nowNs();
    static long threadId();

private:
    void run();
    void beginSending(std::uint32_t number, std::uint32_t seq);
    void endSending() { m_sendingNumber.store(0); }

    std::unique_ptr<DeliveryRecord[]> m_records;
    std::atomic<std::size_t> m_next{0};
    std::atomic<int> m_subscribeResults[5];
    std::atomic<bool> m_witnessStarted{false};

    std::atomic<std::uint32_t> m_sendingNumber{0};
    std::atomic<std::uint32_t> m_sendingSeq{0};
    std::atomic<bool> m_ownDelivered{false};
    std::atomic<bool> m_ownAnswered{false};

    static constexpr std::size_t CaptureQueueMax = 256;
    std::atomic<bool> m_capturing{false};
    std::mutex m_capturedMutex;
    std::vector<CapturedEvent> m_captured;
    std::size_t m_capturedDropped = 0;

    std::mutex m_stopMutex; // two deletors on two threads
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_wakeMutex;
    mutable std::condition_variable m_wake; // notified on a stop
    std::atomic<bool> m_finished{false};
    std::atomic<long> m_probeThread{0};
    long m_startThread = 0;
    QString m_reportDir;                  // set before the thread starts, read-only after
    bool m_reportDirFromVariable = false; // likewise
    std::thread m_thread;
};

// The message number the probe watches as the current interface moving.
constexpr std::uint32_t CurrentInterfaceNumber = 0xFC021009u;
// The result a subscription shows until it is made.
constexpr int NotSubscribed = -1000;

} // namespace Probe
