// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kpf {

// Numbers and kinds are written as unsigned hex but travel as int. Every
// conversion goes through here so that a value from 0x80000000 up never hits
// a narrowing conversion and the wrap is defined in one place.
constexpr int wireInt(std::uint32_t value) noexcept
{
    return static_cast<int>(value);
}

constexpr std::uint32_t wireWord(int value) noexcept
{
    return static_cast<std::uint32_t>(value);
}

// Message kinds, as returned by IMessage::kind().
constexpr int MessageKindCommand = wireInt(0xF0000001u);
constexpr int MessageKindEvent = wireInt(0xF0000002u);

// Numbers that the handler base filters before any table lookup.
constexpr int MessageStart = wireInt(0xFFFF0000u);
constexpr int MessageReserved1 = wireInt(0xFFFF0001u);
constexpr int MessageReserved2 = wireInt(0xFFFF0002u);
constexpr int MessageReserved3 = wireInt(0xFFFFFFFEu);
constexpr int MessageReserved4 = wireInt(0xFFFFFFFFu);

// Mode arguments the host expects with the two send operations.
constexpr int CommandSendMode = 0;
constexpr int EventSendMode = 9;

} // namespace kpf
