#include "host/services.h"

#include "framework/imessagehandler.h"
#include "framework/wire.h"

#include <algorithm>
#include <cstdio>

namespace edidvm {
namespace host {

namespace {
thread_local kpf::IMessageHandler* t_startingComponent = nullptr;

std::string senderText(const char* sender)
{
    return sender != nullptr ? std::string(sender) : std::string();
}

// Frees a reply that nobody will read (an event handler's, or a second
// subscriber's to the same command).
void dropReply(ObjectStore& store, const kpf::IMessage* reply)
{
    if (reply != nullptr && store.release(reply) == ObjectStore::Released::Nothing)
        std::fprintf(stderr, "host: a handler returned a reply the host did not create\n");
}
} // namespace

void* HostApi::findService(const char* name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string key = name != nullptr ? name : "";
    m_lookups.push_back(key);
    const auto found = m_services.find(key);
    return found == m_services.end() ? nullptr : found->second;
}

void HostApi::setService(const std::string& name, void* service)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_services[name] = service;
}

void HostApi::removeService(const std::string& name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_services.erase(name);
}

std::vector<std::string> HostApi::lookups() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lookups;
}

void HostApi::clearLookups()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lookups.clear();
}

Subscriptions::StartScope::StartScope(kpf::IMessageHandler* component) : m_previous(t_startingComponent)
{
    t_startingComponent = component;
}

Subscriptions::StartScope::~StartScope()
{
    t_startingComponent = m_previous;
}

int Subscriptions::subscribe(Channel channel, int number, const std::string& sender)
{
    kpf::IMessageHandler* component = t_startingComponent;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back({channel, kpf::wireWord(number), sender, component});
    if (component == nullptr)
        return -1;
    auto& receivers = m_receivers[{channel, number}];
    if (std::find(receivers.begin(), receivers.end(), component) == receivers.end())
        receivers.push_back(component);
    return 0;
}

std::vector<kpf::IMessageHandler*> Subscriptions::receivers(Channel channel, int number) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_receivers.find({channel, number});
    return found == m_receivers.end() ? std::vector<kpf::IMessageHandler*>() : found->second;
}

std::vector<SubscribeCall> Subscriptions::calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

void Subscriptions::forget(kpf::IMessageHandler* component)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& entry : m_receivers) {
        auto& list = entry.second;
        list.erase(std::remove(list.begin(), list.end(), component), list.end());
    }
}

kpf::IMessage* MessageCenter::createMessage(int number, const char* sender, int size, const void* data, int /*flags*/)
{
    // Replies carry no kind of their own.
    return m_store.adopt(std::make_unique<HostMessage>(0, number, size, data, senderText(sender)));
}

CommandDispatcher::CommandDispatcher(ObjectStore& store, Recorder& recorder, Subscriptions& subscriptions)
    : m_store(store), m_recorder(recorder), m_subscriptions(subscriptions)
{}

kpf::IMessage* CommandDispatcher::createMessage(int number, int size, const void* data, const char* sender)
{
    return m_store.adopt(
        std::make_unique<HostMessage>(kpf::MessageKindCommand, number, size, data, senderText(sender), m_mode.load()));
}

void CommandDispatcher::release(void** object)
{
    Release what = Release::Null;
    if (object != nullptr && *object != nullptr) {
        switch (m_store.release(*object)) {
        case ObjectStore::Released::Message:
            what = Release::Message;
            break;
        case ObjectStore::Released::Response:
            what = Release::Response;
            break;
        case ObjectStore::Released::Nothing:
            what = Release::Foreign;
            std::fprintf(stderr, "host: release of an object the host does not own: %p\n", *object);
            break;
        }
        *object = nullptr;
    }
    if (!m_logReleases.load())
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_releases.push_back(what);
}

int CommandDispatcher::send(kpf::IMessage** message, kpf::IResponse** response, int mode)
{
    if (response != nullptr)
        *response = nullptr;
    if (message == nullptr || *message == nullptr)
        return -1;
    const HostMessage* command = m_store.find(*message);
    if (command == nullptr)
        return -1;

    m_recorder.record(SentKind::Command, *command, mode);
    if (m_sendHook)
        m_sendHook(*command, SendStage::Delivering);
    bool received = false;
    std::unique_ptr<HostResponse> reply = route(*command, &received);
    if (m_sendHook)
        m_sendHook(*command, SendStage::Answered);
    if (reply && response != nullptr)
        *response = m_store.adopt(std::move(reply));
    return received ? 0 : -1;
}

int CommandDispatcher::subscribe(int number, const std::string& sender)
{
    return m_subscriptions.subscribe(Channel::Command, number, sender);
}

void CommandDispatcher::setResponder(std::uint32_t number, Responder responder)
{
    auto shared = std::make_shared<const Responder>(std::move(responder));
    std::lock_guard<std::mutex> lock(m_mutex);
    m_responders[number] = std::move(shared);
}

void CommandDispatcher::removeResponder(std::uint32_t number)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_responders.erase(number);
}

std::unique_ptr<HostResponse> CommandDispatcher::route(const HostMessage& command, bool* received)
{
    *received = false;
    std::shared_ptr<const Responder> responder;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_responders.find(kpf::wireWord(command.number()));
        if (found != m_responders.end())
            responder = found->second;
    }
    // No lock while foreign code runs: it may send in turn.
    if (responder) {
        *received = true;
        std::optional<Bytes> bytes = (*responder)(command);
        return bytes ? std::make_unique<HostResponse>(std::move(*bytes)) : nullptr;
    }

    std::unique_ptr<HostResponse> response;
    for (kpf::IMessageHandler* receiver : m_subscriptions.receivers(Channel::Command, command.number())) {
        *received = true;
        const kpf::IMessage* reply = receiver->handleMessage(&command);
        if (reply == nullptr)
            continue;
        if (response) {
            dropReply(m_store, reply);
            continue;
        }
        std::unique_ptr<HostMessage> owned = m_store.take(reply);
        if (owned)
            response = std::make_unique<HostResponse>(std::move(owned));
        else
            std::fprintf(stderr, "host: a handler returned a reply the host did not create\n");
    }
    return response;
}

std::vector<CommandDispatcher::Release> CommandDispatcher::releases() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_releases;
}

void CommandDispatcher::clearReleases()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_releases.clear();
}

EventDispatcher::EventDispatcher(ObjectStore& store, Recorder& recorder, Subscriptions& subscriptions)
    : m_store(store), m_recorder(recorder), m_subscriptions(subscriptions)
{}

kpf::IMessage* EventDispatcher::createMessage(int number, int size, const void* data, const char* sender)
{
    return m_store.adopt(
        std::make_unique<HostMessage>(kpf::MessageKindEvent, number, size, data, senderText(sender), m_mode.load()));
}

void EventDispatcher::post(kpf::IMessage** message)
{
    if (message == nullptr || *message == nullptr)
        return;
    std::unique_ptr<HostMessage> event = m_store.take(*message);
    *message = nullptr;
    if (!event) {
        std::fprintf(stderr, "host: post of a message the host did not create\n");
        return;
    }
    event->copyPayload();
    m_recorder.record(SentKind::QueuedEvent, *event, -1);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.push_back(std::move(event));
}

void EventDispatcher::send(kpf::IMessage** message, int mode)
{
    if (message == nullptr || *message == nullptr)
        return;
    std::unique_ptr<HostMessage> event = m_store.take(*message);
    *message = nullptr;
    if (!event) {
        std::fprintf(stderr, "host: send of a message the host did not create\n");
        return;
    }
    m_recorder.record(SentKind::Event, *event, mode);
    if (m_sendHook)
        m_sendHook(*event, SendStage::Delivering);
    dispatch(*event);
}

int EventDispatcher::subscribe(int number, const std::string& sender)
{
    return m_subscriptions.subscribe(Channel::Event, number, sender);
}

void EventDispatcher::addListener(Listener listener, std::optional<std::uint32_t> number)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto next = std::make_shared<std::vector<ListenerEntry>>(*m_listeners);
    next->push_back({number, std::move(listener)});
    m_listeners = std::move(next);
}

void EventDispatcher::clearListeners()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_listeners = std::make_shared<std::vector<ListenerEntry>>();
}

void EventDispatcher::dispatch(const HostMessage& event)
{
    for (kpf::IMessageHandler* receiver : m_subscriptions.receivers(Channel::Event, event.number()))
        dropReply(m_store, receiver->handleMessage(&event));

    // A snapshot, so a listener may add listeners or deliver in turn.
    std::shared_ptr<const std::vector<ListenerEntry>> listeners;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        listeners = m_listeners;
    }
    for (const ListenerEntry& entry : *listeners) {
        if (!entry.number || *entry.number == kpf::wireWord(event.number()))
            entry.listener(event);
    }
}

int EventDispatcher::pump(int limit)
{
    int delivered = 0;
    while (delivered < limit) {
        std::unique_ptr<HostMessage> event;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_queue.empty())
                break;
            event = std::move(m_queue.front());
            m_queue.pop_front();
        }
        dispatch(*event);
        ++delivered;
    }
    return delivered;
}

std::size_t EventDispatcher::queued() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.size();
}

void EventDispatcher::dropQueue()
{
    std::deque<std::unique_ptr<HostMessage>> dropped;
    std::lock_guard<std::mutex> lock(m_mutex);
    dropped.swap(m_queue);
}

} // namespace host
} // namespace edidvm
