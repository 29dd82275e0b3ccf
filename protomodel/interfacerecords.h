// SPDX-License-Identifier: MIT
#pragma once

// Records that describe the output interfaces and their timings. Each field
// is 32 bits, texts are std::string, lists std::vector; fields named by kind
// and word position (ifWord92 = word 92) are carried, never interpreted.

#include "protomodel/layoutcheck.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace LCD {
namespace ProtoModel {
namespace Interface {

// The short timing the page edits. Payload of 28 bytes.
struct s_ThumbTimingInfo
{
    std::uint32_t param0 = 0;
    float refresh = 0.0f;    // frame rate in Hz
    std::int32_t width = 0;  // pixels
    std::int32_t height = 0; // lines
    std::uint32_t param4 = 0;
    std::uint32_t param5 = 0;
    std::uint32_t param6 = 0;
};
EDIDVM_ASSERT_SIZE(s_ThumbTimingInfo, 28);
EDIDVM_ASSERT_OFFSET(s_ThumbTimingInfo, refresh, 4);
EDIDVM_ASSERT_OFFSET(s_ThumbTimingInfo, height, 12);
EDIDVM_ASSERT_OFFSET(s_ThumbTimingInfo, param6, 24);

// The detailed (reference) timing. Payload of 56 bytes.
struct s_TimingDetailInfo
{
    std::uint32_t param0 = 0;
    float refresh = 0.0f;   // frame rate in Hz
    std::int32_t width = 0; // pixels
    std::uint32_t param3 = 0;
    std::uint32_t param4 = 0;
    std::uint32_t param5 = 0;
    std::uint32_t param6 = 0;
    std::int32_t height = 0; // lines
    std::uint32_t param8 = 0;
    std::uint32_t param9 = 0;
    std::uint32_t param10 = 0;
    std::uint32_t param11 = 0;
    std::uint32_t param12 = 0;
    std::uint32_t param13 = 0;
};
EDIDVM_ASSERT_SIZE(s_TimingDetailInfo, 56);
EDIDVM_ASSERT_OFFSET(s_TimingDetailInfo, width, 8);
EDIDVM_ASSERT_OFFSET(s_TimingDetailInfo, param3, 12);
EDIDVM_ASSERT_OFFSET(s_TimingDetailInfo, height, 28);
EDIDVM_ASSERT_OFFSET(s_TimingDetailInfo, param8, 32);
EDIDVM_ASSERT_OFFSET(s_TimingDetailInfo, param13, 52);

// Type and status of an interface, with further carried words and texts.
struct s_AuxiliaryInfo
{
    std::uint32_t auxWord0 = 0;
    std::int32_t interfaceType = 0; // type code; 4 and 8 are treated specially
    std::uint32_t auxWord2 = 0;
    std::int32_t interfaceStatus = 0; // status code; 2 is passed over
    std::uint32_t auxWord4 = 0;
    std::uint32_t auxWord5 = 0;
    std::uint32_t auxWord6 = 0;
    std::int32_t auxWord7 = -1;
    std::string usedByScreen = "N/A"; // non-empty: used by a screen
    std::uint32_t auxWord16 = 0;
    std::string auxText18;
    std::uint32_t auxWord26 = 0;
    std::string auxText28;
};
EDIDVM_ASSERT_SIZE(s_AuxiliaryInfo, 144);
EDIDVM_ASSERT_OFFSET(s_AuxiliaryInfo, interfaceStatus, 12);
EDIDVM_ASSERT_OFFSET(s_AuxiliaryInfo, auxWord7, 28);
EDIDVM_ASSERT_OFFSET(s_AuxiliaryInfo, usedByScreen, 32);
EDIDVM_ASSERT_OFFSET(s_AuxiliaryInfo, auxWord16, 16 * 4);
EDIDVM_ASSERT_OFFSET(s_AuxiliaryInfo, auxText18, 18 * 4);
EDIDVM_ASSERT_OFFSET(s_AuxiliaryInfo, auxWord26, 26 * 4);
EDIDVM_ASSERT_OFFSET(s_AuxiliaryInfo, auxText28, 28 * 4);

// One output interface. Payload of 840 bytes, received by address.
struct s_InterfaceList
{
    std::int32_t interfaceId = 0; // key of every lookup
    std::uint32_t ifWord1 = 0;
    std::uint32_t ifWord2 = 0;
    std::int32_t slotId = 0;      // slot of the carrying sub-card
    std::int32_t connectorId = 0; // connector within the slot; list sort key
    std::uint32_t ifWord5 = 0;
    s_AuxiliaryInfo stAuxiliaryInfo;
    std::string ifText42 = "N/A";
    s_ThumbTimingInfo stThumbTiming;
    std::array<std::uint32_t, 7> ifWords57{};
    s_TimingDetailInfo stTimingDetail;
    std::array<std::uint32_t, 14> ifWords78{};
    std::uint32_t ifWord92 = 0;
    std::string ifText94;
    std::array<std::int32_t, 35> ifWords102{0,  0,   0,  50, 220, 100, 50, 50, 50, 100, 50, 50,
                                            50, 100, 50, 50, 50,  100, 50, 50, 50, 100, 0,  0,
                                            50, 50,  50, 0,  0,   0,   0,  0,  -1, 0,   0};
    std::int32_t checkParam0 = -1; // copied into each timing check
    std::int32_t ifWord138 = -1;
    std::int32_t checkParam1 = -1; // copied into each timing check
    std::array<std::int32_t, 18> ifWords140{-1, -1, -1, -1, -1, -1, -1, 0, 5, 3, 5, 0, 1, 4, -1, -1, 0, 0};
    std::uint32_t ifWord158 = 0;
    std::array<std::int32_t, 30> ifWords159{1,  0,  0,  0, 0,  0,  0,  0, 0, 50, 50, 50, 0, 0, 0,
                                            50, 50, 50, 0, 50, 50, 50, 5, 5, 5,  5,  5,  5, 5, 0};
    float ifFloat189 = 2.2f;
    std::array<std::int32_t, 20> ifWords190{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0};
};
EDIDVM_ASSERT_SIZE(s_InterfaceList, 840);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, connectorId, 16);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWord5, 20);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, stAuxiliaryInfo, 24);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifText42, 42 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, stThumbTiming, 50 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWords57, 57 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, stTimingDetail, 64 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWords78, 78 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWord92, 92 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifText94, 94 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWords102, 102 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, checkParam0, 137 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWord138, 138 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, checkParam1, 139 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWords140, 140 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWord158, 158 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWords159, 159 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifFloat189, 189 * 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceList, ifWords190, 190 * 4);

// Answer of the interface-detail query; travels only inside an envelope.
struct s_InterfaceDetailInfo
{
    std::array<std::uint32_t, 4> detailWords0{};      // left unset by the asker
    std::vector<s_InterfaceList> stInterfaceListArry; // answering component's order
};
EDIDVM_ASSERT_SIZE(s_InterfaceDetailInfo, 40);
EDIDVM_ASSERT_OFFSET(s_InterfaceDetailInfo, stInterfaceListArry, 16);

// A thumb timing chosen for one interface. Payload of 40 bytes.
struct s_InterfaceThumbTiming
{
    std::int32_t interfaceId = 0;
    s_ThumbTimingInfo stThumbTiming;
    std::uint32_t tailParam0 = 0;
    std::uint32_t tailParam1 = 0;
};
EDIDVM_ASSERT_SIZE(s_InterfaceThumbTiming, 40);
EDIDVM_ASSERT_OFFSET(s_InterfaceThumbTiming, stThumbTiming, 4);
EDIDVM_ASSERT_OFFSET(s_InterfaceThumbTiming, tailParam0, 32);

// A reference timing chosen for one interface. Payload of 68 bytes.
struct s_InterfacePresetTiming
{
    std::int32_t interfaceId = 0;
    s_TimingDetailInfo stTimingDetail;
    std::uint32_t tailParam0 = 0;
    std::uint32_t tailParam1 = 0;
};
EDIDVM_ASSERT_SIZE(s_InterfacePresetTiming, 68);
EDIDVM_ASSERT_OFFSET(s_InterfacePresetTiming, stTimingDetail, 4);
EDIDVM_ASSERT_OFFSET(s_InterfacePresetTiming, tailParam0, 60);

// One element of a thumb-timing check request. 44 bytes.
struct s_ThumbTimigCheck
{
    std::int32_t interfaceId = 0;
    std::int32_t tagName = 0; // an Enum::Interface::ThumbTagName value
    s_ThumbTimingInfo stThumbTiming;
    std::int32_t checkParam0 = 0;
    std::int32_t checkParam1 = 0;
};
EDIDVM_ASSERT_SIZE(s_ThumbTimigCheck, 44);
EDIDVM_ASSERT_OFFSET(s_ThumbTimigCheck, stThumbTiming, 8);
EDIDVM_ASSERT_OFFSET(s_ThumbTimigCheck, checkParam0, 36);

// One element of a detail-timing check request. 72 bytes.
struct s_DetailTimigCheck
{
    std::int32_t interfaceId = 0;
    std::int32_t tagName = 0; // an Enum::Interface::DetailTagName value
    s_TimingDetailInfo stTimingDetail;
    std::int32_t checkParam0 = 0;
    std::int32_t checkParam1 = 0;
};
EDIDVM_ASSERT_SIZE(s_DetailTimigCheck, 72);
EDIDVM_ASSERT_OFFSET(s_DetailTimigCheck, stTimingDetail, 8);
EDIDVM_ASSERT_OFFSET(s_DetailTimigCheck, checkParam0, 64);

// The checking service's verdict on one interface.
struct s_TimigCheckResult
{
    std::int32_t interfaceId = 0;
    std::uint32_t resWord1 = 0;
    float resFloat2 = 0.0f;
    float resFloat3 = 0.0f;
    std::int32_t bandwidthLimit = 0;  // what the interface offers
    std::int32_t bandwidthNeeded = 0; // over the limit when greater
    std::vector<std::int32_t> resList6;
    std::vector<std::int32_t> frameRates; // allowed rates, Hz times 100
    std::int32_t resWord18 = 0;
    std::int32_t maxFrameRate = 0;  // Hz times 100
    std::int32_t overBandwidth = 0; // non-zero: judged over bandwidth
    std::int32_t resWord21 = 0;
};
EDIDVM_ASSERT_SIZE(s_TimigCheckResult, 88);
EDIDVM_ASSERT_OFFSET(s_TimigCheckResult, bandwidthNeeded, 20);
EDIDVM_ASSERT_OFFSET(s_TimigCheckResult, resList6, 6 * 4);
EDIDVM_ASSERT_OFFSET(s_TimigCheckResult, frameRates, 12 * 4);
EDIDVM_ASSERT_OFFSET(s_TimigCheckResult, resWord18, 18 * 4);
EDIDVM_ASSERT_OFFSET(s_TimigCheckResult, resWord21, 21 * 4);

using s_TimigCheckResultArry = std::vector<s_TimigCheckResult>;
using s_InterfaceThumbTimingArry = std::vector<s_InterfaceThumbTiming>;
using s_InterfacePresetTimingArry = std::vector<s_InterfacePresetTiming>;

// Data of the timing-check queries; travels only inside an envelope.
struct s_TimigCheckQuery
{
    s_TimigCheckResultArry stCheckResultArry; // filled by the checking service
    std::vector<s_ThumbTimigCheck> stThumbCheckArry;
    std::vector<s_DetailTimigCheck> stDetailCheckArry;
};
EDIDVM_ASSERT_SIZE(s_TimigCheckQuery, 72);
EDIDVM_ASSERT_OFFSET(s_TimigCheckQuery, stThumbCheckArry, 24);
EDIDVM_ASSERT_OFFSET(s_TimigCheckQuery, stDetailCheckArry, 48);

} // namespace Interface
} // namespace ProtoModel
} // namespace LCD
