// SPDX-License-Identifier: MIT
#pragma once

// Our stand-in for the host framework's event dispatcher: delivers an event
// to the components subscribed to its number, at once or from a queue, and
// to listeners that watch what goes by.

#include "framework/idispatchers.h"
#include "framework/imessage.h"
#include "host/hostobjects.h"
#include "host/sendhook.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace edidvm {
namespace host {

class Recorder;
class Subscriptions;

// Sees an event as it is delivered.
using Listener = std::function<void(const kpf::IMessage& event)>;

class EventDispatcher final : public kpf::IEventDispatcher
{
public:
    EventDispatcher(ObjectStore& store, Recorder& recorder, Subscriptions& subscriptions);

    kpf::IMessage* createMessage(int number, int size, const void* data, const char* sender) override;
    void reservedSlot1() override {}
    void post(kpf::IMessage** message) override;
    void reservedSlot3() override {}
    void send(kpf::IMessage** message, int mode) override;
    int subscribe(int number, const std::string& sender) override;

    void setPayloadMode(PayloadMode mode) { m_mode.store(mode); }
    void setSendHook(SendHook hook) { m_sendHook = std::move(hook); }
    // Subscribed components get each event as a message of their own whose
    // data() works once (UnstableData).
    void setUnstableDeliveries(bool unstable) { m_unstable.store(unstable); }
    // For tests only, and outside the contract: post delivers the event
    // before it returns, on the posting thread, as send does.
    void setPostDeliversAtOnce(bool atOnce) { m_postAtOnce.store(atOnce); }

    // Listens to one number, or to every event when number is empty.
    void addListener(Listener listener, std::optional<std::uint32_t> number = std::nullopt);
    void clearListeners();

    // Delivers to subscribers, then listeners, without recording.
    void dispatch(const HostMessage& event);
    // Delivers queued events, also those queued meanwhile, up to a bound
    // that stops an event loop. Returns how many were delivered.
    int pump(int limit = 100000);
    std::size_t queued() const;
    void dropQueue();

private:
    struct ListenerEntry
    {
        std::optional<std::uint32_t> number;
        Listener listener;
    };

    ObjectStore& m_store;
    Recorder& m_recorder;
    Subscriptions& m_subscriptions;
    mutable std::mutex m_mutex;
    std::deque<std::unique_ptr<HostMessage>> m_queue;
    std::shared_ptr<const std::vector<ListenerEntry>> m_listeners = std::make_shared<std::vector<ListenerEntry>>();
    std::atomic<PayloadMode> m_mode{PayloadMode::Copied};
    std::atomic<bool> m_unstable{false};
    std::atomic<bool> m_postAtOnce{false};
    SendHook m_sendHook; // set before any send, never while one runs
};

} // namespace host
} // namespace edidvm
