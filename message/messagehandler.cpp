// SPDX-License-Identifier: MIT
#include "message/messagehandler.h"

#include "framework/api.h"
#include "framework/idispatchers.h"
#include "framework/ihostapi.h"
#include "framework/imessage.h"
#include "framework/wire.h"
#include "message/log.h"

#include <QDebug>

#include <algorithm>
#include <cstring>

namespace LCD {
namespace Message {

namespace {

const char CommandDispatcherName[] = "commanddispatcher";
const char EventDispatcherName[] = "eventdispatcher";

// Numbers read better in hex, as every contract table writes them.
QString hexNumber(int number)
{
    return QLatin1String("0x") +
           QString::number(kpf::wireWord(number), 16).toUpper().rightJustified(8, QLatin1Char('0'));
}

// Takes the logger made at the call site, so the warning names that function.
void warnMissing(QDebug warning, const char* service, const char* what, int number)
{
    warning << "service" << service << "is missing," << what << qPrintable(hexNumber(number));
}

} // namespace

MessageHandler::MessageHandler()
    : m_commandSnapshot(m_snapshots.emplace_back(snapshotOf({})).get()), m_eventSnapshot(m_commandSnapshot.load())
{
    kpf::IHostApi* api = kpf::api::get().hostApi;
    if (api == nullptr)
        return;
    m_messageCenter = static_cast<kpf::IMessageCenter*>(api->findService("kpf_default_messagecenter"));
    m_commandDispatcher = static_cast<kpf::ICommandDispatcher*>(api->findService(CommandDispatcherName));
    m_eventDispatcher = static_cast<kpf::IEventDispatcher*>(api->findService(EventDispatcherName));
}

MessageHandler::~MessageHandler() = default;

const kpf::IMessage* MessageHandler::handleMessage(const kpf::IMessage* message)
{
    if (message == nullptr)
        return nullptr;
    const int number = message->number();
    // Every reserved number is at 0xFFFF0000 or above.
    if (kpf::wireWord(number) < kpf::wireWord(kpf::MessageStart))
        return processMsg(number, message);
    switch (number) {
    case kpf::MessageStart:
        onInit();
        return nullptr;
    case kpf::MessageReserved1:
    case kpf::MessageReserved2:
    case kpf::MessageReserved3:
    case kpf::MessageReserved4:
        return nullptr;
    default:
        return processMsg(number, message);
    }
}

const kpf::IMessage* MessageHandler::processMsg(int number, const kpf::IMessage* message)
{
    if (message == nullptr)
        return nullptr;
    const int kind = message->kind();
    const Snapshot* table = nullptr;
    if (kind == kpf::MessageKindCommand)
        table = m_commandSnapshot.load(std::memory_order_acquire);
    else if (kind == kpf::MessageKindEvent)
        table = m_eventSnapshot.load(std::memory_order_acquire);
    else
        return nullptr;

    // No lock and no copy: the snapshot never changes and outlives the call.
    const MessageHandlerFunc* handler = find(*table, number);
    if (handler == nullptr || !*handler)
        return nullptr;
    return (*handler)(message);
}

namespace {
// Fibonacci hashing: the top bits of number x 2^32/phi spread the numbers,
// which differ mostly in their low bytes, over the buckets.
inline std::size_t slotOf(int number, unsigned shift)
{
    return static_cast<std::size_t>((kpf::wireWord(number) * 0x9E3779B1u) >> shift);
}
} // namespace

const MessageHandlerFunc* MessageHandler::find(const Snapshot& table, int number)
{
    for (std::size_t i = slotOf(number, table.shift);; i = (i + 1) & table.mask) {
        const Slot& slot = table.buckets[i];
        if (!slot.used)
            return nullptr;
        if (slot.number == number)
            return &slot.handler;
    }
}

std::unique_ptr<MessageHandler::Snapshot>
MessageHandler::snapshotOf(const std::unordered_map<int, MessageHandlerFunc>& table)
{
    // At most half full, so a probe always ends at a free slot.
    unsigned bits = 1;
    while ((std::size_t(1) << bits) < 2 * table.size())
        ++bits;
    auto snapshot = std::make_unique<Snapshot>();
    snapshot->shift = 32 - bits;
    snapshot->buckets.resize(std::size_t(1) << bits);
    snapshot->mask = snapshot->buckets.size() - 1;
    const std::size_t mask = snapshot->mask;
    for (const auto& entry : table) {
        std::size_t i = slotOf(entry.first, snapshot->shift);
        while (snapshot->buckets[i].used)
            i = (i + 1) & mask;
        snapshot->buckets[i] = {true, entry.first, entry.second};
    }
    return snapshot;
}

void MessageHandler::insert(std::unordered_map<int, MessageHandlerFunc>& table, std::atomic<const Snapshot*>& published,
                            int number, MessageHandlerFunc handler)
{
    if (!table.emplace(number, std::move(handler)).second)
        return;
    std::unique_ptr<Snapshot> next = snapshotOf(table);
    published.store(next.get(), std::memory_order_release);
    m_snapshots.push_back(std::move(next));
}

int MessageHandler::registerCommand(int number, MessageHandlerFunc handler)
{
    {
        std::lock_guard<std::mutex> lock(m_handlerMutex);
        insert(m_commandHandlers, m_commandSnapshot, number, std::move(handler));
    }
    if (m_commandDispatcher == nullptr) {
        warnMissing(EDIDVM_WARNING(), CommandDispatcherName, "not subscribed:", number);
        return -1;
    }
    return m_commandDispatcher->subscribe(number, std::string(m_name));
}

int MessageHandler::registerEvent(int number, MessageHandlerFunc handler)
{
    {
        std::lock_guard<std::mutex> lock(m_handlerMutex);
        insert(m_eventHandlers, m_eventSnapshot, number, std::move(handler));
    }
    if (m_eventDispatcher == nullptr) {
        warnMissing(EDIDVM_WARNING(), EventDispatcherName, "not subscribed:", number);
        return -1;
    }
    return m_eventDispatcher->subscribe(number, std::string(m_name));
}

int MessageHandler::sendCommand(int number, int size, const void* data, int replySize, void* reply)
{
    if (m_commandDispatcher == nullptr) {
        warnMissing(EDIDVM_WARNING(), CommandDispatcherName, "command not sent:", number);
        return -1;
    }
    kpf::IMessage* message = m_commandDispatcher->createMessage(number, size, data, m_name.c_str());
    kpf::IResponse* response = nullptr;
    const int result = m_commandDispatcher->send(&message, &response, kpf::CommandSendMode);

    if (response != nullptr && response->size() == replySize) {
        const void* replyData = response->data();
        if (replySize > 0 && replyData != nullptr && reply != nullptr)
            std::memcpy(reply, replyData, static_cast<std::size_t>(replySize));
    }

    // The response goes before the message it answers.
    void* releasing = response;
    m_commandDispatcher->release(&releasing);
    releasing = message;
    m_commandDispatcher->release(&releasing);
    return result;
}

kpf::IMessage* MessageHandler::createEvent(int number, int size, const void* data)
{
    if (m_eventDispatcher == nullptr) {
        warnMissing(EDIDVM_WARNING(), EventDispatcherName, "event not sent:", number);
        return nullptr;
    }
    return m_eventDispatcher->createMessage(number, size, data, m_name.c_str());
}

void MessageHandler::postEvent(int number, int size, const void* data)
{
    kpf::IMessage* message = createEvent(number, size, data);
    if (message != nullptr)
        m_eventDispatcher->post(&message);
}

void MessageHandler::sendEvent(int number, int size, const void* data)
{
    kpf::IMessage* message = createEvent(number, size, data);
    if (message != nullptr)
        m_eventDispatcher->send(&message, kpf::EventSendMode);
}

} // namespace Message
} // namespace LCD
