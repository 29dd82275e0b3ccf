// SPDX-License-Identifier: MIT
#pragma once

#include "framework/imessagehandler.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

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
    // What processMsg reads: an immutable copy of a table, open-addressed
    // with a power-of-two size so a lookup is a multiply, a shift and
    // usually one compare. A new one is published after each insertion; old
    // ones are kept until the handler dies, so a reader never sees one freed
    // under it.
    struct Slot
    {
        bool used = false;
        int number = 0;
        MessageHandlerFunc handler;
    };
    struct Snapshot
    {
        std::vector<Slot> buckets; // a power of two, at least 2
        std::size_t mask = 0;      // buckets.size() - 1
        unsigned shift = 31;       // 32 - log2(buckets.size())
    };

    kpf::IMessage* createEvent(int number, int size, const void* data);
    static const MessageHandlerFunc* find(const Snapshot& table, int number);
    static std::unique_ptr<Snapshot> snapshotOf(const std::unordered_map<int, MessageHandlerFunc>& table);
    // Inserts unless present and publishes a new snapshot; caller holds
    // m_handlerMutex.
    void insert(std::unordered_map<int, MessageHandlerFunc>& table, std::atomic<const Snapshot*>& published, int number,
                MessageHandlerFunc handler);

    // Held only while a handler is inserted, never while one runs: handlers
    // send synchronously and may be re-entered.
    std::mutex m_handlerMutex;
    std::unordered_map<int, MessageHandlerFunc> m_commandHandlers;
    std::unordered_map<int, MessageHandlerFunc> m_eventHandlers;

    std::vector<std::unique_ptr<const Snapshot>> m_snapshots; // guarded by m_handlerMutex
    std::atomic<const Snapshot*> m_commandSnapshot;
    std::atomic<const Snapshot*> m_eventSnapshot;
};

} // namespace Message
} // namespace LCD
