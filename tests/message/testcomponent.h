#pragma once

// A component built on the handler base for tests that the library's own
// component cannot reach: it registers a table given to it, records every
// call of its handlers, and opens the base's send operations.

#include "framework/idispatchers.h"
#include "framework/imessage.h"
#include "framework/wire.h"
#include "message/messagehandler.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace edidvm {
namespace test {

class TestComponent : public LCD::Message::MessageHandler
{
public:
    struct Registration
    {
        bool command;
        std::uint32_t number;
        int tag; // identifies the handler in hits and in command replies
    };

    struct Hit
    {
        int tag;
        std::uint32_t number;
        int kind;
    };

    explicit TestComponent(std::vector<Registration> table = {}) : m_table(std::move(table))
    {
        m_name = "testcomponent";
    }

    int onInit() override
    {
        ++initCalls;
        for (const Registration& row : m_table) {
            if (row.command)
                registerCommand(kpf::wireInt(row.number), handlerFor(row.tag));
            else
                registerEvent(kpf::wireInt(row.number), handlerFor(row.tag));
        }
        return 0;
    }

    // Bound the way components bind their members: a lambda capturing this.
    LCD::Message::MessageHandlerFunc handlerFor(int tag)
    {
        return [this, tag](const kpf::IMessage* message) { return onMessage(tag, message); };
    }

    std::vector<Hit> hits() const
    {
        std::lock_guard<std::mutex> lock(m_hitMutex);
        return m_hits;
    }

    using MessageHandler::postEvent;
    using MessageHandler::registerCommand;
    using MessageHandler::registerEvent;
    using MessageHandler::sendCommand;
    using MessageHandler::sendEvent;

    kpf::ICommandDispatcher* commandDispatcher() const { return m_commandDispatcher; }
    kpf::IEventDispatcher* eventDispatcher() const { return m_eventDispatcher; }
    kpf::IMessageCenter* messageCenter() const { return m_messageCenter; }

    std::atomic<int> initCalls{0};

private:
    // Commands are answered with the handler's tag, four bytes.
    const kpf::IMessage* onMessage(int tag, const kpf::IMessage* message)
    {
        {
            std::lock_guard<std::mutex> lock(m_hitMutex);
            m_hits.push_back({tag, kpf::wireWord(message->number()), message->kind()});
        }
        if (message->kind() != kpf::MessageKindCommand || m_messageCenter == nullptr)
            return nullptr;
        return m_messageCenter->createMessage(message->number(), m_name.c_str(), sizeof tag, &tag, 0);
    }

    std::vector<Registration> m_table;
    mutable std::mutex m_hitMutex;
    std::vector<Hit> m_hits;
};

} // namespace test
} // namespace edidvm
