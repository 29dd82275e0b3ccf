// SPDX-License-Identifier: MIT
#pragma once

// The hook both dispatchers call during a component's own send, where the
// host's variations come in.

#include <functional>

namespace edidvm {
namespace host {

class HostMessage;

// Where a component's own send stands when the send hook runs.
enum class SendStage {
    Delivering, // before any receiver has it
    Answered,   // a command, after its receiver answered
};
// Runs on the sending thread during a component's own send.
using SendHook = std::function<void(const HostMessage& sent, SendStage stage)>;

} // namespace host
} // namespace edidvm
