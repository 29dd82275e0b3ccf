#include "protomodel/interfacerecords.h"
#include "protomodel/queryinfo.h"
#include "protomodel/screenrecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

using namespace LCD::ProtoModel::Interface;
using ::testing::Each;
using ::testing::ElementsAreArray;

namespace {

// Builds a word list from (count, value) runs, the way the defaults are
// written down.
std::vector<std::int32_t> runs(std::initializer_list<std::pair<int, std::int32_t>> list)
{
    std::vector<std::int32_t> words;
    for (const auto& run : list)
        words.insert(words.end(), static_cast<std::size_t>(run.first), run.second);
    return words;
}

TEST(InterfaceRecords, DefaultInterfaceListHoldsItsDefaultsFieldByField)
{
    const s_InterfaceList record;
    EXPECT_EQ(record.interfaceId, 0);
    EXPECT_EQ(record.ifWord1, 0u);
    EXPECT_EQ(record.ifWord2, 0u);
    EXPECT_EQ(record.slotId, 0);
    EXPECT_EQ(record.connectorId, 0);
    EXPECT_EQ(record.ifWord5, 0u);

    const s_AuxiliaryInfo& aux = record.stAuxiliaryInfo;
    EXPECT_EQ(aux.auxWord0, 0u);
    EXPECT_EQ(aux.interfaceType, 0);
    EXPECT_EQ(aux.auxWord2, 0u);
    EXPECT_EQ(aux.interfaceStatus, 0);
    EXPECT_EQ(aux.auxWord4, 0u);
    EXPECT_EQ(aux.auxWord5, 0u);
    EXPECT_EQ(aux.auxWord6, 0u);
    EXPECT_EQ(aux.auxWord7, -1);
    EXPECT_EQ(aux.usedByScreen, "N/A");
    EXPECT_EQ(aux.auxWord16, 0u);
    EXPECT_EQ(aux.auxText18, "");
    EXPECT_EQ(aux.auxWord26, 0u);
    EXPECT_EQ(aux.auxText28, "");

    EXPECT_EQ(record.ifText42, "N/A");
    // The two timing blocks are plain words: all of them zero.
    const std::array<unsigned char, sizeof(s_ThumbTimingInfo)> zeroThumb{};
    const std::array<unsigned char, sizeof(s_TimingDetailInfo)> zeroDetail{};
    EXPECT_EQ(std::memcmp(&record.stThumbTiming, zeroThumb.data(), zeroThumb.size()), 0);
    EXPECT_EQ(std::memcmp(&record.stTimingDetail, zeroDetail.data(), zeroDetail.size()), 0);
    EXPECT_THAT(record.ifWords57, Each(0u));
    EXPECT_THAT(record.ifWords78, Each(0u));
    EXPECT_EQ(record.ifWord92, 0u);
    EXPECT_EQ(record.ifText94, "");
    EXPECT_THAT(record.ifWords102, ElementsAreArray(runs({{3, 0},
                                                          {1, 50},
                                                          {1, 220},
                                                          {1, 100},
                                                          {3, 50},
                                                          {1, 100},
                                                          {3, 50},
                                                          {1, 100},
                                                          {3, 50},
                                                          {1, 100},
                                                          {3, 50},
                                                          {1, 100},
                                                          {2, 0},
                                                          {3, 50},
                                                          {5, 0},
                                                          {1, -1},
                                                          {2, 0}})));
    EXPECT_EQ(record.checkParam0, -1);
    EXPECT_EQ(record.ifWord138, -1);
    EXPECT_EQ(record.checkParam1, -1);
    EXPECT_THAT(
        record.ifWords140,
        ElementsAreArray(runs({{7, -1}, {1, 0}, {1, 5}, {1, 3}, {1, 5}, {1, 0}, {1, 1}, {1, 4}, {2, -1}, {2, 0}})));
    EXPECT_EQ(record.ifWord158, 0u);
    EXPECT_THAT(record.ifWords159,
                ElementsAreArray(runs({{1, 1}, {8, 0}, {3, 50}, {3, 0}, {3, 50}, {1, 0}, {3, 50}, {7, 5}, {1, 0}})));
    EXPECT_FLOAT_EQ(record.ifFloat189, 2.2f);
    EXPECT_THAT(record.ifWords190, ElementsAreArray(runs({{10, 0}, {9, -1}, {1, 0}})));
}

TEST(InterfaceRecords, AssignmentReplacesEveryFieldTextsIncluded)
{
    s_InterfaceList target;
    target.ifText42 = std::string(200, 'a');
    target.ifText94 = std::string(100, 'b');
    target.stAuxiliaryInfo.usedByScreen = std::string(300, 'c');
    target.stAuxiliaryInfo.auxText18 = std::string(64, 'd');
    target.stAuxiliaryInfo.auxText28 = "a long text that must go";
    target.ifWords102[4] = 1;

    s_InterfaceList source;
    source.interfaceId = 12;
    source.stAuxiliaryInfo.usedByScreen = "";
    source.ifText94 = "x";
    target = source;

    EXPECT_EQ(target.interfaceId, 12);
    EXPECT_EQ(target.ifText42, "N/A");
    EXPECT_EQ(target.ifText94, "x");
    EXPECT_EQ(target.stAuxiliaryInfo.usedByScreen, "");
    EXPECT_EQ(target.stAuxiliaryInfo.auxText18, "");
    EXPECT_EQ(target.stAuxiliaryInfo.auxText28, "");
    EXPECT_EQ(target.ifWords102[4], 220);
}

TEST(InterfaceRecords, TimingChoicesAndChecksStartAtZero)
{
    const s_InterfaceThumbTiming thumb;
    const s_InterfacePresetTiming preset;
    const s_ThumbTimigCheck thumbCheck;
    const s_DetailTimigCheck detailCheck;
    const s_TimigCheckResult result;
    EXPECT_EQ(thumb.interfaceId, 0);
    EXPECT_EQ(thumb.tailParam1, 0u);
    EXPECT_EQ(preset.stTimingDetail.height, 0);
    EXPECT_EQ(preset.tailParam1, 0u);
    EXPECT_EQ(thumbCheck.checkParam1, 0);
    EXPECT_EQ(detailCheck.tagName, 0);
    EXPECT_EQ(result.overBandwidth, 0);
    EXPECT_TRUE(result.frameRates.empty());

    const LCD::GlobalMessageHander::QueryInfo<s_TimigCheckQuery> query;
    EXPECT_FALSE(query.filter);
    EXPECT_TRUE(query.info.stCheckResultArry.empty());
    EXPECT_TRUE(query.info.stThumbCheckArry.empty());
    EXPECT_TRUE(query.info.stDetailCheckArry.empty());

    const LCD::ProtoModel::Screen::s_ScreenDetailInfo screen;
    EXPECT_TRUE(screen.stOutputDetailArry.empty());
    EXPECT_THAT(screen.scrWords36, Each(0u));
}

} // namespace
