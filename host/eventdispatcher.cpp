// SPDX-License-Identifier: MIT
#include "host/eventdispatcher.h"

#include "framework/imessagehandler.h"
#include "framework/wire.h"
#include "host/recorder.h"
#include "host/routing_p.h"
#include "host/subscriptions.h"

#include <cstdio>

namespace edidvm {
namespace host {

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
    if (m_postAtOnce.load()) {
        dispatch(*event);
        return;
    }
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
        dropReply(m_store, deliverTo(receiver, event, m_unstable.load()));

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
