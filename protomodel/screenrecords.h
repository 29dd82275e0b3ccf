// SPDX-License-Identifier: MIT
#pragma once

// Records that describe the screens of the device. A screen is shown through
// one or more outputs, each carried by an output interface.

#include "protomodel/interfacerecords.h"
#include "protomodel/layoutcheck.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace LCD {
namespace ProtoModel {
namespace Screen {

struct s_General
{
    std::string genText0;
    std::uint32_t genWord8 = 0;
    std::string genText10;
};
EDIDVM_ASSERT_SIZE(s_General, 72);
EDIDVM_ASSERT_OFFSET(s_General, genWord8, 8 * 4);
EDIDVM_ASSERT_OFFSET(s_General, genText10, 10 * 4);

// Element of s_OutputDetail::outList18: four words copied as a block.
struct s_OutWords4
{
    std::array<std::uint32_t, 4> words{};
};
EDIDVM_ASSERT_SIZE(s_OutWords4, 16);

// Element of s_OutputDetail::outList24: six words copied as a block.
struct s_OutWords6
{
    std::array<std::uint32_t, 6> words{};
};
EDIDVM_ASSERT_SIZE(s_OutWords6, 24);

// One output of a screen.
struct s_OutputDetail
{
    std::int32_t interfaceId = 0; // the output interface carrying this output
    std::uint32_t outWord1 = 0;
    std::string outText2;
    std::array<std::uint32_t, 8> outWords10{};
    std::vector<s_OutWords4> outList18;
    std::vector<s_OutWords6> outList24;
};
EDIDVM_ASSERT_SIZE(s_OutputDetail, 120);
EDIDVM_ASSERT_OFFSET(s_OutputDetail, outText2, 2 * 4);
EDIDVM_ASSERT_OFFSET(s_OutputDetail, outWords10, 10 * 4);
EDIDVM_ASSERT_OFFSET(s_OutputDetail, outList18, 18 * 4);
EDIDVM_ASSERT_OFFSET(s_OutputDetail, outList24, 24 * 4);

// One screen.
struct s_ScreenDetailInfo
{
    std::uint32_t screenId = 0;
    std::uint32_t scrWord1 = 0;
    std::uint32_t screenIndex = 0; // shown to the user plus one
    std::uint32_t scrWord3 = 0;
    s_General stGeneral;
    std::array<std::uint32_t, 7> scrWords22{};
    std::vector<s_OutputDetail> stOutputDetailArry; // empty: uses no interface
    std::array<std::uint32_t, 89> scrWords36{};
    std::string scrText126;
    std::uint32_t scrWord134 = 0;
};
EDIDVM_ASSERT_SIZE(s_ScreenDetailInfo, 544);
EDIDVM_ASSERT_OFFSET(s_ScreenDetailInfo, stGeneral, 4 * 4);
EDIDVM_ASSERT_OFFSET(s_ScreenDetailInfo, scrWords22, 22 * 4);
EDIDVM_ASSERT_OFFSET(s_ScreenDetailInfo, stOutputDetailArry, 30 * 4);
EDIDVM_ASSERT_OFFSET(s_ScreenDetailInfo, scrWords36, 36 * 4);
EDIDVM_ASSERT_OFFSET(s_ScreenDetailInfo, scrText126, 126 * 4);
EDIDVM_ASSERT_OFFSET(s_ScreenDetailInfo, scrWord134, 134 * 4);

// A thumb timing proposed for one screen.
struct s_ScreenThumbTiming
{
    std::uint32_t screenId = 0;
    Interface::s_ThumbTimingInfo stThumbTiming;
    std::uint32_t tailParam0 = 0;
    std::uint32_t tailParam1 = 0;
};
EDIDVM_ASSERT_SIZE(s_ScreenThumbTiming, 40);
EDIDVM_ASSERT_OFFSET(s_ScreenThumbTiming, stThumbTiming, 4);
EDIDVM_ASSERT_OFFSET(s_ScreenThumbTiming, tailParam0, 32);

using s_ScreenThumbTimingArry = std::vector<s_ScreenThumbTiming>;

// Data of the screen query; travels only inside an envelope.
struct s_ScreenDetail
{
    std::array<std::uint32_t, 4> detailWords0{};
    std::vector<s_ScreenDetailInfo> stScreenDetailInfoArry;
};
EDIDVM_ASSERT_SIZE(s_ScreenDetail, 40);
EDIDVM_ASSERT_OFFSET(s_ScreenDetail, stScreenDetailInfoArry, 16);

} // namespace Screen
} // namespace ProtoModel
} // namespace LCD
