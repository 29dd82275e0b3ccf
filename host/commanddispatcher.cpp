// SPDX-License-Identifier: MIT
#include "host/commanddispatcher.h"

#include "framework/imessagehandler.h"
#include "framework/wire.h"
#include "host/recorder.h"
#include "host/routing_p.h"
#include "host/subscriptions.h"

#include <cstdio>

namespace edidvm {
namespace host {

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
        const kpf::IMessage* reply = deliverTo(receiver, command, m_unstable.load());
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

} // namespace host
} // namespace edidvm
