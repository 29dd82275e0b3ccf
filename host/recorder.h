// SPDX-License-Identifier: MIT
#pragma once

#include "host/hostobjects.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace edidvm {
namespace host {

enum class SentKind { Command, Event, QueuedEvent };

// One message a component sent, as it was at the moment of sending.
struct SentMessage
{
    SentKind kind = SentKind::Event;
    std::uint32_t number = 0;
    std::string sender;
    int size = 0;
    bool nullData = true;
    int mode = -1; // the send mode given; -1 for a post
    Bytes bytes;   // copy of the payload
};

// Records what components send, in order. Thread-safe.
class Recorder
{
public:
    // Runs at send time, while payloads that carry addresses into the
    // sender's memory (envelopes, 24-byte containers) are still valid.
    using Hook = std::function<void(const SentMessage& sent, const void* data)>;

    void record(SentKind kind, const HostMessage& message, int mode);
    // Off: nothing is kept and the hook is not called (long runs, benchmarks).
    void setEnabled(bool enabled) { m_enabled.store(enabled); }
    void setHook(Hook hook);

    std::vector<SentMessage> messages() const;
    std::vector<SentMessage> take(); // returns and clears
    void clear();

private:
    mutable std::mutex m_mutex;
    std::vector<SentMessage> m_messages;
    std::shared_ptr<const Hook> m_hook;
    std::atomic<bool> m_enabled{true};
};

} // namespace host
} // namespace edidvm
