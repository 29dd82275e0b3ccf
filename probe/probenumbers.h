// SPDX-License-Identifier: MIT
#pragma once

// The probe's own message numbers and payloads. They lie outside the
// device's 0xFC range, so no other component subscribes to them.

#include <cstdint>

namespace Probe {
namespace MessageId {

constexpr std::uint32_t SentEvent = 0xE0D10001u;   // sendEvent to itself
constexpr std::uint32_t PostedEvent = 0xE0D10002u; // postEvent to itself
constexpr std::uint32_t Command = 0xE0D10003u;     // sendCommand to itself, 8-byte reply
constexpr std::uint32_t FanOut = 0xE0D10004u;      // an event both components subscribe to

} // namespace MessageId

inline bool isOwnNumber(std::uint32_t number)
{
    return (number & 0xFFFF0000u) == 0xE0D10000u;
}

constexpr std::uint32_t PayloadMagic = 0xE0D1A55Au;

// What every own message carries: the magic and the try's sequence number.
struct s_ProbePayload
{
    std::uint32_t magic = PayloadMagic;
    std::uint32_t seq = 0;
    std::uint32_t number = 0; // the message's own number
    std::uint32_t word3 = 0;  // always zero
};
static_assert(sizeof(s_ProbePayload) == 16, "the probe's payload is 16 bytes");

// The reply to MessageId::Command: the request's magic and sequence number.
struct s_ProbeReply
{
    std::uint32_t magic = 0;
    std::uint32_t seq = 0;
};
static_assert(sizeof(s_ProbeReply) == 8, "the probe's reply is 8 bytes");

} // namespace Probe
