// SPDX-License-Identifier: MIT
#pragma once

// Records of the view model's own messages.

#include "protomodel/layoutcheck.h"

#include <cstdint>

namespace Model {

// The current SDI interface as another component announces it. 16 bytes.
struct s_SDIInterfaceInfo
{
    std::uint32_t sdiWord0 = 0;
    std::uint32_t sdiWord1 = 0;
    std::int32_t interfaceId = 0; // the SDI interface
    std::uint32_t sdiWord3 = 0;
};
EDIDVM_ASSERT_SIZE(s_SDIInterfaceInfo, 16);
EDIDVM_ASSERT_OFFSET(s_SDIInterfaceInfo, interfaceId, 8);

// Sent with the timings of the current interface. 16 bytes.
struct s_InterfaceTimingNotice
{
    std::uint32_t noticeWord0 = 0;
    std::uint32_t noticeWord1 = 0;
    std::uint32_t noticeWord2 = 0; // never assigned; receivers must not rely on it
    std::uint32_t noticeWord3 = 0;
};
EDIDVM_ASSERT_SIZE(s_InterfaceTimingNotice, 16);
EDIDVM_ASSERT_OFFSET(s_InterfaceTimingNotice, noticeWord3, 12);

// A message box request, and the answer a confirmation box sends back.
// Exactly 556 bytes on the wire. The defaults are what every sender puts in.
struct s_MessageBoxRequest
{
    std::int32_t boxId = 0; // returned unchanged in the answer
    std::int32_t boxType = 0;
    std::int32_t boxParam1 = -1;
    std::int32_t boxParam2 = -1;
    std::uint8_t reserved1[8] = {};
    char text[256] = {};     // UTF-8, NUL-terminated
    std::uint8_t result = 0; // answer: non-zero when the user accepted
    std::uint8_t flag1 = 1;
    std::uint8_t flag2 = 0;
    std::uint8_t reserved2 = 0;
    std::int32_t duration = 2000;
    char detailText[256] = {};
    std::uint8_t flag3 = 0;
    std::uint8_t flag4 = 0;
    std::uint8_t flag5 = 0;
    std::uint8_t reserved3 = 0;
    std::int32_t boxParam3 = -1;
    std::int32_t boxParam4 = 1;
};
EDIDVM_ASSERT_SIZE(s_MessageBoxRequest, 556);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, boxType, 4);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, boxParam1, 8);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, boxParam2, 12);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, reserved1, 16);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, text, 24);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, result, 280);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, flag1, 281);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, flag2, 282);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, reserved2, 283);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, duration, 284);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, detailText, 288);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, flag3, 544);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, flag4, 545);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, flag5, 546);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, reserved3, 547);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, boxParam3, 548);
EDIDVM_ASSERT_OFFSET(s_MessageBoxRequest, boxParam4, 552);

} // namespace Model
