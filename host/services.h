#pragma once

// Our stand-ins for the host framework's services: the API object, the two
// dispatchers and the message center, with the routing between them.

#include "framework/idispatchers.h"
#include "framework/ihostapi.h"
#include "host/hostobjects.h"
#include "host/recorder.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kpf {
class IMessageHandler;
}

namespace edidvm {
namespace host {

// Serves named services; any may be absent. Logs every lookup in order.
class HostApi final : public kpf::IHostApi
{
public:
    void reservedSlot0() override {}
    void reservedSlot1() override {}
    void reservedSlot2() override {}
    void* findService(const char* name) override;

    void setService(const std::string& name, void* service);
    void removeService(const std::string& name);
    std::vector<std::string> lookups() const;
    void clearLookups();

private:
    mutable std::mutex m_mutex;
    std::map<std::string, void*> m_services;
    std::vector<std::string> m_lookups;
};

enum class Channel { Command, Event };

struct SubscribeCall
{
    Channel channel = Channel::Event;
    std::uint32_t number = 0;
    std::string sender;
    kpf::IMessageHandler* component = nullptr; // null: no start in progress
};

// Who receives what. A subscription is tied to the component whose start
// message is being delivered on the calling thread.
class Subscriptions
{
public:
    // Marks the component whose start message this thread delivers.
    class StartScope
    {
    public:
        explicit StartScope(kpf::IMessageHandler* component);
        ~StartScope();
        StartScope(const StartScope&) = delete;
        StartScope& operator=(const StartScope&) = delete;

    private:
        kpf::IMessageHandler* m_previous;
    };

    // 0 when tied to a component, -1 when no start is in progress. A
    // repeated subscription is logged but does not deliver twice.
    int subscribe(Channel channel, int number, const std::string& sender);
    std::vector<kpf::IMessageHandler*> receivers(Channel channel, int number) const;
    std::vector<SubscribeCall> calls() const;
    void forget(kpf::IMessageHandler* component);

private:
    mutable std::mutex m_mutex;
    std::vector<SubscribeCall> m_calls;
    std::map<std::pair<Channel, int>, std::vector<kpf::IMessageHandler*>> m_receivers;
};

// What stands in for another component answering a command: it may read a
// query envelope's address from the payload and fill the envelope in place.
// A returned value becomes the reply payload; nullopt means no reply.
using Responder = std::function<std::optional<Bytes>(const kpf::IMessage& command)>;
// Sees an event as it is delivered.
using Listener = std::function<void(const kpf::IMessage& event)>;

// Reads the address that an 8-byte payload carries; null when the payload
// is not exactly one pointer. data() is read once.
template <typename T>
T* payloadAddress(const kpf::IMessage& message)
{
    const void* data = message.size() == static_cast<int>(sizeof(T*)) ? message.data() : nullptr;
    if (data == nullptr)
        return nullptr;
    T* address = nullptr;
    std::memcpy(&address, data, sizeof address);
    return address;
}

// Where a component's own send stands when the send hook runs.
enum class SendStage {
    Delivering, // before any receiver has it
    Answered,   // a command, after its receiver answered
};
// Runs on the sending thread during a component's own send.
using SendHook = std::function<void(const HostMessage& sent, SendStage stage)>;

class MessageCenter final : public kpf::IMessageCenter
{
public:
    explicit MessageCenter(ObjectStore& store) : m_store(store) {}
    kpf::IMessage* createMessage(int number, const char* sender, int size, const void* data, int flags) override;

private:
    ObjectStore& m_store;
};

class CommandDispatcher final : public kpf::ICommandDispatcher
{
public:
    CommandDispatcher(ObjectStore& store, Recorder& recorder, Subscriptions& subscriptions);

    kpf::IMessage* createMessage(int number, int size, const void* data, const char* sender) override;
    void release(void** object) override;
    // 0 when someone received the command, -1 otherwise.
    int send(kpf::IMessage** message, kpf::IResponse** response, int mode) override;
    void reservedSlot3() override {}
    int subscribe(int number, const std::string& sender) override;

    // A responder takes precedence over subscribed components.
    void setResponder(std::uint32_t number, Responder responder);
    // How the messages that components create hand out their payload.
    void setPayloadMode(PayloadMode mode) { m_mode.store(mode); }
    void setSendHook(SendHook hook) { m_sendHook = std::move(hook); }
    void removeResponder(std::uint32_t number);

    // Routes a command the way send does, without recording it. Returns the
    // reply, if any, and whether anyone received it.
    std::unique_ptr<HostResponse> route(const HostMessage& command, bool* received);

    // What each release call freed, in order: a null pointer, a message, a
    // response, or an address that was not ours (also a stderr line).
    enum class Release { Null, Message, Response, Foreign };
    std::vector<Release> releases() const;
    void clearReleases();
    // Off: releases are not logged (long runs, benchmarks).
    void setReleaseLog(bool enabled) { m_logReleases.store(enabled); }

private:
    ObjectStore& m_store;
    Recorder& m_recorder;
    Subscriptions& m_subscriptions;
    mutable std::mutex m_mutex;
    std::map<std::uint32_t, std::shared_ptr<const Responder>> m_responders;
    std::vector<Release> m_releases;
    std::atomic<bool> m_logReleases{true};
    std::atomic<PayloadMode> m_mode{PayloadMode::Copied};
    SendHook m_sendHook; // set before any send, never while one runs
};

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
    SendHook m_sendHook; // set before any send, never while one runs
};

} // namespace host
} // namespace edidvm
