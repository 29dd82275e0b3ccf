#pragma once

#include "framework/imessagehandler.h"

#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>

namespace kpf {
class ICommandDispatcher;
class IEventDispatcher;
class IMessage;
class IMessageCenter;
} // namespace kpf

namespace LCD {
namespace Message {

// Receives the host's message (valid only during the call) and returns a
// reply built by the message center, or null.
using MessageHandlerFunc = std::function<const kpf::IMessage*(const kpf::IMessage*)>;

// Base of the view-model components: finds the host's message services,
// routes incoming messages by kind and number to registered handlers, and
// sends commands and events under the component's name.
class MessageHandler : public kpf::IMessageHandler
{
public:
    // Looks the three services up once; kpf::api must be set before.
    MessageHandler();
    ~MessageHandler() override;

    MessageHandler(const MessageHandler&) = delete;
    MessageHandler& operator=(const MessageHandler&) = delete;

    const kpf::IMessage* handleMessage(const kpf::IMessage* message) override;
    // Registers the component's handlers; runs on every start message.
    virtual int onInit() = 0;
    virtual const kpf::IMessage* processMsg(int number, const kpf::IMessage* message);

protected:
    // A number registered twice keeps its first handler but is subscribed
    // again. Returns the dispatcher's subscribe result, -1 without one.
    int registerCommand(int number, MessageHandlerFunc handler);
    int registerEvent(int number, MessageHandlerFunc handler);

    // Synchronous. reply receives replySize bytes only when the reply is
    // exactly that long; otherwise it keeps what the caller put there.
    int sendCommand(int number, int size, const void* data, int replySize, void* reply);
    // Queued by the host and delivered later.
    void postEvent(int number, int size, const void* data);
    // Delivered before this returns.
    void sendEvent(int number, int size, const void* data);

    kpf::ICommandDispatcher* m_commandDispatcher = nullptr;
    kpf::IEventDispatcher* m_eventDispatcher = nullptr;
    kpf::IMessageCenter* m_messageCenter = nullptr;
    std::string m_name;

private:
    kpf::IMessage* createEvent(int number, int size, const void* data);

    // Held only while a handler is inserted or looked up, never while one
    // runs: handlers send synchronously and may be re-entered.
    std::mutex m_handlerMutex;
    std::unordered_map<int, MessageHandlerFunc> m_commandHandlers;
    std::unordered_map<int, MessageHandlerFunc> m_eventHandlers;
};

} // namespace Message
} // namespace LCD
