// SPDX-License-Identifier: MIT
#pragma once

// Our stand-in for the host framework's command dispatcher: routes a command
// to a stand-in responder or to the component subscribed to its number.

#include "framework/idispatchers.h"
#include "framework/imessage.h"
#include "host/hostobjects.h"
#include "host/sendhook.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
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

// What stands in for another component answering a command: it may read a
// query envelope's address from the payload and fill the envelope in place.
// A returned value becomes the reply payload; nullopt means no reply.
using Responder = std::function<std::optional<Bytes>(const kpf::IMessage& command)>;

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
    // Subscribed components get each command as a message of their own
    // whose data() works once (UnstableData); responders get it as sent.
    void setUnstableDeliveries(bool unstable) { m_unstable.store(unstable); }
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
    std::atomic<bool> m_unstable{false};
    SendHook m_sendHook; // set before any send, never while one runs
};

} // namespace host
} // namespace edidvm
