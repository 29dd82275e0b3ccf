// Record defaults and the constant tables of the shared protocol model.

#include "protomodel/constants.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/queryinfo.h"
#include "protomodel/screenrecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

using namespace LCD::ProtoModel::Interface;
using namespace LCD::Constants;
using namespace LCD::Enum;
using namespace LCD::Enum::Interface;
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

template <typename Key, typename Value>
std::vector<std::pair<int, Value>> rows(const QMap<Key, Value>& map)
{
    std::vector<std::pair<int, Value>> out;
    for (const auto& entry : map.toStdMap())
        out.emplace_back(static_cast<int>(entry.first), entry.second);
    return out;
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

TEST(InterfaceRecords, TimingChoicesChecksAndQueriesStartEmpty)
{
    const s_InterfaceThumbTiming thumb;
    const s_InterfacePresetTiming preset;
    const s_ThumbTimigCheck thumbCheck;
    const s_DetailTimigCheck detailCheck;
    const s_TimigCheckResult result;
    const std::int64_t zeros[] = {thumb.interfaceId,   thumb.tailParam1,       preset.stTimingDetail.height,
                                  preset.tailParam1,   thumbCheck.checkParam1, detailCheck.tagName,
                                  result.overBandwidth};
    EXPECT_THAT(zeros, Each(0));
    const LCD::GlobalMessageHander::QueryInfo<s_TimigCheckQuery> query;
    const LCD::ProtoModel::Screen::s_ScreenDetailInfo screen;
    EXPECT_FALSE(query.filter);
    EXPECT_THAT((std::vector<std::size_t>{result.frameRates.size(), query.info.stCheckResultArry.size(),
                                          query.info.stThumbCheckArry.size(), query.info.stDetailCheckArry.size(),
                                          screen.stOutputDetailArry.size()}),
                Each(0u));
    EXPECT_THAT(screen.scrWords36, Each(0u));
}

TEST(Constants, TagConnectorAndColourSpaceTables)
{
    std::vector<std::pair<int, int>> tags;
    for (int i = 0; i < 14; ++i)
        tags.emplace_back(i, i);
    EXPECT_EQ(rows(g_mapThumbTagName), decltype(tags)(tags.begin(), tags.begin() + 6));
    EXPECT_EQ(rows(g_mapDetailTimingTagName), tags);

    // Gaps where no connector is named.
    const std::vector<std::pair<int, QString>> named = {
        {2, "DVI"}, {3, "DDVI"}, {4, "HDMI1.3"}, {5, "HDMI1.4"},  {6, "HDMI2.0"}, {7, "DP1.1"},  {8, "DP1.2"},
        {9, "SDI"}, {10, "VGA"}, {11, "CVBS"},   {13, "12G-SDI"}, {14, "6G-SDI"}, {17, "DDP1.1"}};
    EXPECT_EQ(rows(g_mapConnectorTypeName), named);

    // The order swaps the ends.
    const std::vector<std::pair<int, InterfaceColorSpace>> order = {{0, InterfaceColorSpace::ColorSpace3},
                                                                    {1, InterfaceColorSpace::ColorSpace1},
                                                                    {2, InterfaceColorSpace::ColorSpace2},
                                                                    {3, InterfaceColorSpace::ColorSpace0},
                                                                    {255, InterfaceColorSpace::ColorSpace255}};
    EXPECT_EQ(rows(g_mapOrderColorSpace), order);
}

TEST(Constants, IconPathsKeyGroupsAndSiblingNames)
{
    EXPECT_EQ(g_mapIconPath.size(), 22);
    for (int value = 8; value <= 255; ++value)
        EXPECT_FALSE(g_mapIconPath.contains(static_cast<TestPatternType>(value))) << value;
    EXPECT_EQ(g_mapIconPath.value(TestPatternType::Grid), "/share/themes/dark/images/icon_test_gird.png");
    EXPECT_EQ(g_mapIconPath.value(TestPatternType::ChangeGrey),
              "/share/themes/dark/images/icon_test_change_grey_01.png");
    EXPECT_EQ(g_mapIconPath.value(TestPatternType::LineOverlapping),
              "/share/themes/dark/images/icon_test_line_overlapping.png");
    EXPECT_EQ(static_cast<int>(g_mapIconPath.firstKey()), 0);
    EXPECT_EQ(static_cast<int>(g_mapIconPath.lastKey()), 0x205);

    EXPECT_EQ((std::vector<QString>{GroupKeyPress, GroupKeyRelease, GroupKeyTimeout}),
              (std::vector<QString>{"PRESS", "RELEASE", "TIMEOUT"}));
    EXPECT_EQ((std::vector<std::string>{ScreenColorSpaceViewModel, ScreenColorDepthViewModel, OutputColorSpaceViewModel,
                                        OutputColorDepthViewModel, InputColorSpaceViewModel, InputColorDepthViewModel,
                                        OutputDynamicViewModel, ScreenDynamichViewModel}),
              (std::vector<std::string>{
                  "screencolorspaceviewmodel", "screencolordepthviewmodel", "outputcolorspaceviewmodel",
                  "outputcolordepthviewmodel", "inputcolorspaceviewmodel", "inputcolordepthviewmodel",
                  "outputinterfacedynamicviewmodelmessagehander", "screendynamicviewmodelmessagehander"}));
}

} // namespace
