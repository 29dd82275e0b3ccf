// SPDX-License-Identifier: MIT
#include "probe/session.h"

#include "framework/api.h"
#include "framework/idispatchers.h"
#include "framework/imessage.h"
#include "framework/wire.h"
#include "probe/measurement.h"
#include "probe/probenumbers.h"
#include "probe/report.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <mutex>

namespace Probe {

// Only the probe's own numbers: a component's event is subscribed only once
// one event was seen to reach two subscribers.
const Subscription subscriptions[5] = {
    {0, MessageId::SentEvent, false}, {0, MessageId::PostedEvent, false}, {0, MessageId::Command, true},
    {0, MessageId::FanOut, false},    {1, MessageId::FanOut, false},
};

namespace {
// How long stop waits for the thread before leaving it running.
constexpr int StopWaitMs = 3000;

void pinLibrary()
{
    // A thread blocked in the host still runs our code when it returns:
    // keep the library mapped for the life of the process.
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&pinLibrary), &info) != 0 && info.dli_fname != nullptr)
        dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}
} // namespace

std::shared_ptr<Session> Session::attach()
{
    static std::mutex mutex;
    static std::weak_ptr<Session> current;
    std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<Session> session = current.lock();
    if (!session) {
        session = std::make_shared<Session>();
        current = session;
    }
    return session;
}

Session::Session() : m_records(new DeliveryRecord[Capacity])
{
    m_name = "outputedidviewmodelprobe";
    for (std::atomic<int>& result : m_subscribeResults)
        result.store(NotSubscribed);
}

Session::~Session()
{
    // Only reached with the thread stopped and joined, or left running on
    // its own reference: then this runs on it and cannot join it.
    if (m_thread.joinable())
        m_thread.detach();
}

std::int64_t Session::nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

long Session::threadId()
{
    return static_cast<long>(syscall(SYS_gettid));
}

const kpf::IMessage* Session::received(const kpf::IMessage* message, int component, bool own, bool readPayload)
{
    const std::int64_t enter = nowNs();
    const std::size_t index = m_next.fetch_add(1);
    DeliveryRecord spare;
    DeliveryRecord& record = index < Capacity ? m_records[index] : spare;
    record.number = kpf::wireWord(message->number());
    record.kind = message->kind();
    record.component = component;
    record.thread = threadId();
    record.enterNs = enter;
    record.size = message->size();
    if (own && readPayload) {
        // Twice, to see whether the address holds.
        record.payloadRead = true;
        record.data1 = message->data();
        record.data2 = message->data();
        if (record.data1 != nullptr && record.size == static_cast<int>(sizeof(s_ProbePayload))) {
            s_ProbePayload payload;
            std::memcpy(&payload, record.data1, sizeof payload);
            record.seq = payload.seq;
            record.intact = payload.magic == PayloadMagic && payload.number == record.number && payload.word3 == 0;
        }
    }

    const std::uint32_t sending = m_sendingNumber.load();
    const std::uint32_t sendingSeq = m_sendingSeq.load();
    if (sending != 0 && record.thread == m_probeThread.load()) {
        record.sendingNumber = sending;
        record.sendingSeq = sendingSeq;
        record.ownDeliveredBefore = m_ownDelivered.load();
        record.ownAnsweredBefore = m_ownAnswered.load();
    }
    // The witness's fan-out copy reads no payload: it counts as the message
    // being sent by its number alone.
    const bool isSent = own && record.number == sending && (!readPayload || record.seq == sendingSeq);
    if (isSent)
        m_ownDelivered.store(true);

    const kpf::IMessage* reply = nullptr;
    if (own && record.number == MessageId::Command && m_messageCenter != nullptr) {
        const s_ProbeReply answer{PayloadMagic, record.seq};
        reply = m_messageCenter->createMessage(message->number(), m_name.c_str(), sizeof answer, &answer, 0);
    }
    if (isSent && record.number == MessageId::Command)
        m_ownAnswered.store(true);
    record.leaveNs = nowNs();
    record.ready.store(true, std::memory_order_release);
    return reply;
}

void Session::start()
{
    bool expected = false;
    if (!m_started.compare_exchange_strong(expected, true))
        return;
    m_startThread = threadId();
    m_reportDir = reportDirectory(&m_reportDirFromVariable);
    m_thread = std::thread([self = shared_from_this()] {
        self->run();
        self->m_finished.store(true);
    });
}

bool Session::waitUnlessStopped(int ms) const
{
    std::unique_lock<std::mutex> lock(m_wakeMutex);
    return !m_wake.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_stop.load(); });
}

void Session::stop()
{
    {
        // Under the lock, so a waiter between its check and its sleep sees it.
        std::lock_guard<std::mutex> lock(m_wakeMutex);
        m_stop.store(true);
    }
    m_wake.notify_all();
    std::lock_guard<std::mutex> lock(m_stopMutex);
    if (!m_thread.joinable())
        return;
    const std::int64_t deadline = nowNs() + std::int64_t(StopWaitMs) * 1000000;
    while (!m_finished.load() && nowNs() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (m_finished.load()) {
        m_thread.join();
        return;
    }
    pinLibrary();
    m_thread.detach();
}

void Session::run()
{
    m_probeThread.store(threadId());
    Measurement(*this).run();
}

void Session::beginSending(std::uint32_t number, std::uint32_t seq)
{
    m_ownDelivered.store(false);
    m_ownAnswered.store(false);
    m_sendingSeq.store(seq);
    m_sendingNumber.store(number);
}

Session::Sent Session::sendOwn(Send kind, std::uint32_t number, std::uint32_t seq)
{
    s_ProbePayload payload;
    payload.seq = seq;
    payload.number = number;
    s_ProbeReply reply;
    Sent sent;
    sent.buffer = &payload;
    beginSending(number, seq);
    sent.callNs = nowNs();
    switch (kind) {
    case Send::Event:
        sendEvent(kpf::wireInt(number), sizeof payload, &payload);
        break;
    case Send::Post:
        postEvent(kpf::wireInt(number), sizeof payload, &payload);
        break;
    case Send::Command:
        sent.result = sendCommand(kpf::wireInt(number), sizeof payload, &payload, sizeof reply, &reply);
        break;
    }
    sent.returnNs = nowNs();
    endSending();
    sent.replyMagic = reply.magic;
    sent.replySeq = reply.seq;
    return sent;
}

int Session::query(std::uint32_t number, int size, const void* data)
{
    beginSending(number, 0);
    const int result = sendCommand(kpf::wireInt(number), size, data, 0, nullptr);
    endSending();
    return result;
}

int Session::rawQuery(std::uint32_t number, int* replySize, std::vector<unsigned char>* reply)
{
    *replySize = -1;
    reply->clear();
    if (m_commandDispatcher == nullptr)
        return -1;
    beginSending(number, 0);
    kpf::IMessage* message = m_commandDispatcher->createMessage(kpf::wireInt(number), 0, nullptr, m_name.c_str());
    kpf::IResponse* response = nullptr;
    const int result = m_commandDispatcher->send(&message, &response, kpf::CommandSendMode);
    endSending();
    if (response != nullptr) {
        *replySize = response->size();
        const void* data = response->data();
        // A few bytes are enough to show what came.
        if (data != nullptr && *replySize > 0) {
            const auto* bytes = static_cast<const unsigned char*>(data);
            reply->assign(bytes, bytes + std::min(*replySize, 16));
        }
    }
    void* releasing = response;
    m_commandDispatcher->release(&releasing);
    releasing = message;
    m_commandDispatcher->release(&releasing);
    return result;
}

std::vector<const DeliveryRecord*> Session::deliveries() const
{
    std::vector<const DeliveryRecord*> published;
    const std::size_t count = std::min(m_next.load(), Capacity);
    for (std::size_t i = 0; i < count; ++i)
        if (m_records[i].ready.load(std::memory_order_acquire))
            published.push_back(&m_records[i]);
    return published;
}

void Session::capture(const kpf::IMessage& message)
{
    if (!m_capturing.load())
        return;
    CapturedEvent event = readEvent(message);
    std::lock_guard<std::mutex> lock(m_capturedMutex);
    if (m_captured.size() < CaptureQueueMax)
        m_captured.push_back(std::move(event));
    else
        ++m_capturedDropped;
}

int Session::subscribeForCapture(std::uint32_t number)
{
    return m_eventDispatcher != nullptr ? m_eventDispatcher->subscribe(kpf::wireInt(number), m_name) : NotSubscribed;
}

std::vector<CapturedEvent> Session::takeCaptured(std::size_t* dropped)
{
    std::lock_guard<std::mutex> lock(m_capturedMutex);
    *dropped = m_capturedDropped;
    m_capturedDropped = 0;
    std::vector<CapturedEvent> taken;
    taken.swap(m_captured);
    return taken;
}

std::size_t Session::dropped() const
{
    const std::size_t count = m_next.load();
    return count > Capacity ? count - Capacity : 0;
}

} // namespace Probe
