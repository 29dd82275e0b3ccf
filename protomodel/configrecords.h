// SPDX-License-Identifier: MIT
#pragma once

// Data of the sub-card query and of the timing assessment. Each travels in a
// query envelope (a filter, then the data) by address.

#include "protomodel/layoutcheck.h"
#include "protomodel/queryinfo.h"
#include "protomodel/screenrecords.h"

#include <array>
#include <cstdint>
#include <vector>

namespace LCD {
namespace ProtoModel {
namespace Subcard {

struct s_SubcardConnector
{
    std::int32_t connectorId = 0; // number of the connector on its subcard
    std::array<std::int32_t, 2> conWords1{};
    std::int32_t connectorKey = 0; // what the subcard service knows it by
    std::array<std::int32_t, 2> conWords4{};
};
EDIDVM_ASSERT_SIZE(s_SubcardConnector, 24);
EDIDVM_ASSERT_OFFSET(s_SubcardConnector, connectorKey, 12);

struct s_SubcardInfo
{
    std::int32_t slotId = 0;
    std::array<std::int32_t, 4> subWords1{};
    std::vector<s_SubcardConnector> stConnectorArry;
};
EDIDVM_ASSERT_SIZE(s_SubcardInfo, 48);
EDIDVM_ASSERT_OFFSET(s_SubcardInfo, stConnectorArry, 24);

// Data of command 0xFC0D1000.
struct s_SubcardQuery
{
    std::int32_t request = 0; // 1 from the asker
    std::vector<s_SubcardInfo> stSubcardInfoArry;
};
EDIDVM_ASSERT_SIZE(s_SubcardQuery, 32);
EDIDVM_ASSERT_OFFSET(s_SubcardQuery, stSubcardInfoArry, 8);

} // namespace Subcard

namespace Screen {

struct s_AssessResult
{
    std::int32_t assessWord0 = 0;
    std::int32_t code = 0; // 0: acceptable; otherwise a failure code for the page
};
EDIDVM_ASSERT_SIZE(s_AssessResult, 8);

// Data of command 0xFC05021F.
struct s_TimingAssessQuery
{
    s_ScreenThumbTimingArry stScreenThumbTimingArry; // set by the asker
    std::vector<s_AssessResult> stAssessResultArry;  // filled by the device
};
EDIDVM_ASSERT_SIZE(s_TimingAssessQuery, 48);
EDIDVM_ASSERT_OFFSET(s_TimingAssessQuery, stAssessResultArry, 24);

} // namespace Screen

namespace Subcard {
EDIDVM_ASSERT_OFFSET(GlobalMessageHander::QueryInfo<s_SubcardQuery>, info, 32);
}
namespace Screen {
EDIDVM_ASSERT_OFFSET(GlobalMessageHander::QueryInfo<s_TimingAssessQuery>, info, 32);
}

} // namespace ProtoModel
} // namespace LCD
