// The interface record's defaults: the component falls back on them where no
// interface is found.

#include "protomodel/interfacerecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

using namespace LCD::ProtoModel::Interface;
using ::testing::Each;
using ::testing::ElementsAreArray;

namespace {

// A word list from count, value pairs, the way the defaults are written down.
std::vector<std::int32_t> runs(std::initializer_list<std::int32_t> list)
{
    std::vector<std::int32_t> words;
    for (auto run = list.begin(); run != list.end(); run += 2)
        words.insert(words.end(), static_cast<std::size_t>(run[0]), run[1]);
    return words;
}

TEST(InterfaceRecords, DefaultInterfaceListHoldsItsDefaultsFieldByField)
{
    const s_InterfaceList record;
    const s_AuxiliaryInfo& aux = record.stAuxiliaryInfo;
    const std::int64_t zeros[] = {
        record.interfaceId, record.ifWord1,    record.ifWord2, record.slotId,       record.connectorId, record.ifWord5,
        aux.auxWord0,       aux.interfaceType, aux.auxWord2,   aux.interfaceStatus, aux.auxWord4,       aux.auxWord5,
        aux.auxWord6,       aux.auxWord16,     aux.auxWord26,  record.ifWord92,     record.ifWord158};
    EXPECT_THAT(zeros, Each(0));
    const std::int64_t minusOnes[] = {aux.auxWord7, record.checkParam0, record.ifWord138, record.checkParam1};
    EXPECT_THAT(minusOnes, Each(-1));
    EXPECT_EQ(
        (std::array<std::string, 5>{aux.usedByScreen, aux.auxText18, aux.auxText28, record.ifText42, record.ifText94}),
        (std::array<std::string, 5>{"N/A", "", "", "N/A", ""}));
    // The two timing blocks are plain words: all of them zero.
    const std::array<unsigned char, sizeof(s_ThumbTimingInfo) + sizeof(s_TimingDetailInfo)> zero{};
    EXPECT_EQ(std::memcmp(&record.stThumbTiming, zero.data(), sizeof(s_ThumbTimingInfo)), 0);
    EXPECT_EQ(std::memcmp(&record.stTimingDetail, zero.data(), sizeof(s_TimingDetailInfo)), 0);
    EXPECT_THAT(record.ifWords57, Each(0u));
    EXPECT_THAT(record.ifWords78, Each(0u));
    EXPECT_THAT(record.ifWords102,
                ElementsAreArray(runs({3,  0, 1,   50, 1,  220, 1,   100, 3, 50, 1,  100, 3, 50, 1,  100, 3,
                                       50, 1, 100, 3,  50, 1,   100, 2,   0, 3,  50, 5,   0, 1,  -1, 2,   0})));
    EXPECT_THAT(record.ifWords140,
                ElementsAreArray(runs({7, -1, 1, 0, 1, 5, 1, 3, 1, 5, 1, 0, 1, 1, 1, 4, 2, -1, 2, 0})));
    EXPECT_THAT(record.ifWords159, ElementsAreArray(runs({1, 1, 8, 0, 3, 50, 3, 0, 3, 50, 1, 0, 3, 50, 7, 5, 1, 0})));
    EXPECT_FLOAT_EQ(record.ifFloat189, 2.2f);
    EXPECT_THAT(record.ifWords190, ElementsAreArray(runs({10, 0, 9, -1, 1, 0})));
}

} // namespace
