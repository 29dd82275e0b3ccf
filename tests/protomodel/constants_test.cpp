#include "protomodel/constants.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

using namespace LCD::Constants;
using namespace LCD::Enum;
using namespace LCD::Enum::Interface;

namespace {

template <typename Key, typename Value>
std::vector<std::pair<int, Value>> rows(const QMap<Key, Value>& map)
{
    std::vector<std::pair<int, Value>> out;
    for (const auto& entry : map.toStdMap())
        out.emplace_back(static_cast<int>(entry.first), entry.second);
    return out;
}

TEST(Constants, TagTablesExpandIntoOneCheckPerTagInOrder)
{
    std::vector<std::pair<int, int>> thumb;
    for (int i = 0; i < 6; ++i)
        thumb.emplace_back(i, i);
    EXPECT_EQ(rows(g_mapThumbTagName), thumb);

    std::vector<std::pair<int, int>> detail;
    for (int i = 0; i < 14; ++i)
        detail.emplace_back(i, i);
    EXPECT_EQ(rows(g_mapDetailTimingTagName), detail);
}

TEST(Constants, ConnectorNamesHaveGapsWhereNoConnectorIsNamed)
{
    EXPECT_EQ(g_mapConnectorTypeName.size(), 13);
    const std::pair<int, const char*> named[] = {
        {2, "DVI"}, {3, "DDVI"}, {4, "HDMI1.3"}, {5, "HDMI1.4"},  {6, "HDMI2.0"}, {7, "DP1.1"},  {8, "DP1.2"},
        {9, "SDI"}, {10, "VGA"}, {11, "CVBS"},   {13, "12G-SDI"}, {14, "6G-SDI"}, {17, "DDP1.1"}};
    for (const auto& row : named)
        EXPECT_EQ(g_mapConnectorTypeName.value(static_cast<ConnectorType>(row.first)), QString(row.second))
            << row.first;
    for (int unnamed : {0, 1, 12, 15, 16})
        EXPECT_TRUE(g_mapConnectorTypeName.value(static_cast<ConnectorType>(unnamed)).isEmpty()) << unnamed;
}

TEST(Constants, ColourSpaceOrderSwapsTheEnds)
{
    const std::vector<std::pair<int, InterfaceColorSpace>> expected = {{0, InterfaceColorSpace::ColorSpace3},
                                                                       {1, InterfaceColorSpace::ColorSpace1},
                                                                       {2, InterfaceColorSpace::ColorSpace2},
                                                                       {3, InterfaceColorSpace::ColorSpace0},
                                                                       {255, InterfaceColorSpace::ColorSpace255}};
    EXPECT_EQ(rows(g_mapOrderColorSpace), expected);
}

TEST(Constants, IconPathsCoverTheThreePatternBlocksOnly)
{
    EXPECT_EQ(g_mapIconPath.size(), 22);
    for (int value = 8; value <= 255; ++value)
        EXPECT_FALSE(g_mapIconPath.contains(static_cast<TestPatternType>(value))) << value;
    EXPECT_EQ(g_mapIconPath.value(TestPatternType::Grid), "/share/themes/dark/images/icon_test_gird.png");
    EXPECT_EQ(g_mapIconPath.value(TestPatternType::ChangeGrey),
              "/share/themes/dark/images/icon_test_change_grey_01.png");
    EXPECT_EQ(g_mapIconPath.value(TestPatternType::LineOverlapping),
              "/share/themes/dark/images/icon_test_line_overlapping.png");
    const auto keys = g_mapIconPath.keys();
    EXPECT_EQ(static_cast<int>(keys.front()), 0);
    EXPECT_EQ(static_cast<int>(keys.back()), 0x205);
}

TEST(Constants, KeyGroupsAndSiblingNames)
{
    EXPECT_EQ(GroupKeyPress, "PRESS");
    EXPECT_EQ(GroupKeyRelease, "RELEASE");
    EXPECT_EQ(GroupKeyTimeout, "TIMEOUT");
    EXPECT_EQ(ScreenColorSpaceViewModel, "screencolorspaceviewmodel");
    EXPECT_EQ(ScreenColorDepthViewModel, "screencolordepthviewmodel");
    EXPECT_EQ(OutputColorSpaceViewModel, "outputcolorspaceviewmodel");
    EXPECT_EQ(OutputColorDepthViewModel, "outputcolordepthviewmodel");
    EXPECT_EQ(InputColorSpaceViewModel, "inputcolorspaceviewmodel");
    EXPECT_EQ(InputColorDepthViewModel, "inputcolordepthviewmodel");
    EXPECT_EQ(OutputDynamicViewModel, "outputinterfacedynamicviewmodelmessagehander");
    EXPECT_EQ(ScreenDynamichViewModel, "screendynamicviewmodelmessagehander");
}

} // namespace
