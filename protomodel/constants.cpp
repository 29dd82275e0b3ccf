// SPDX-License-Identifier: MIT
#include "protomodel/constants.h"

// The tables must exist before any component description of the library is
// built, whatever translation unit that sits in and whatever the link order:
// a raised initialisation priority guarantees it, and objects of equal
// priority keep their order of definition below. They are destroyed after
// the component descriptions, in reverse order.
#define EDIDVM_EARLY __attribute__((init_priority(200)))

namespace LCD {
namespace Constants {

using Enum::TestPatternType;
using Enum::Interface::ConnectorType;
using Enum::Interface::DetailTagName;
using Enum::Interface::InterfaceColorSpace;
using Enum::Interface::ThumbTagName;

namespace {

template <typename Tag>
QMap<Tag, int> identityTags(int count)
{
    QMap<Tag, int> map;
    for (int value = 0; value < count; ++value)
        map.insert(static_cast<Tag>(value), value);
    return map;
}

} // namespace

const QString GroupKeyPress EDIDVM_EARLY = QStringLiteral("PRESS");
const QString GroupKeyRelease EDIDVM_EARLY = QStringLiteral("RELEASE");
const QString GroupKeyTimeout EDIDVM_EARLY = QStringLiteral("TIMEOUT");

const QMap<TestPatternType, QString> g_mapIconPath EDIDVM_EARLY = {
    {TestPatternType::SolidBlack, QStringLiteral("/share/themes/dark/images/icon_test_solid_black.png")},
    {TestPatternType::SolidRed, QStringLiteral("/share/themes/dark/images/icon_test_solid_red.png")},
    {TestPatternType::SolidGreen, QStringLiteral("/share/themes/dark/images/icon_test_solid_green.png")},
    {TestPatternType::SolidBlue, QStringLiteral("/share/themes/dark/images/icon_test_solid_blue.png")},
    {TestPatternType::SolidWhite, QStringLiteral("/share/themes/dark/images/icon_test_solid_white.png")},
    {TestPatternType::StripeVertical, QStringLiteral("/share/themes/dark/images/icon_test_stripe_v.png")},
    {TestPatternType::StripeHorizontal, QStringLiteral("/share/themes/dark/images/icon_test_stripe_h.png")},
    {TestPatternType::Grid, QStringLiteral("/share/themes/dark/images/icon_test_gird.png")},
    {TestPatternType::ChangeRed, QStringLiteral("/share/themes/dark/images/icon_test_change_red.png")},
    {TestPatternType::ChangeGreen, QStringLiteral("/share/themes/dark/images/icon_test_change_green.png")},
    {TestPatternType::ChangeBlue, QStringLiteral("/share/themes/dark/images/icon_test_change_blue.png")},
    {TestPatternType::ChangeGrey, QStringLiteral("/share/themes/dark/images/icon_test_change_grey_01.png")},
    {TestPatternType::ChangeRedVertical, QStringLiteral("/share/themes/dark/images/icon_test_change_red_v.png")},
    {TestPatternType::ChangeGreenVertical, QStringLiteral("/share/themes/dark/images/icon_test_change_green_v.png")},
    {TestPatternType::ChangeBlueVertical, QStringLiteral("/share/themes/dark/images/icon_test_change_blue_v.png")},
    {TestPatternType::ChangeGreyVertical, QStringLiteral("/share/themes/dark/images/icon_test_change_grey_v.png")},
    {TestPatternType::LineHorizontal, QStringLiteral("/share/themes/dark/images/icon_test_line_h.png")},
    {TestPatternType::LineVertical, QStringLiteral("/share/themes/dark/images/icon_test_line_v.png")},
    {TestPatternType::LineOverlappingLeft,
     QStringLiteral("/share/themes/dark/images/icon_test_line_overlapping_left.png")},
    {TestPatternType::LineOverlappingRight,
     QStringLiteral("/share/themes/dark/images/icon_test_line_overlapping_right.png")},
    {TestPatternType::LineGrid, QStringLiteral("/share/themes/dark/images/icon_test_line_gird.png")},
    {TestPatternType::LineOverlapping, QStringLiteral("/share/themes/dark/images/icon_test_line_overlapping.png")},
};

const QMap<ThumbTagName, int> g_mapThumbTagName EDIDVM_EARLY = identityTags<ThumbTagName>(6);
const QMap<DetailTagName, int> g_mapDetailTimingTagName EDIDVM_EARLY = identityTags<DetailTagName>(14);

const QMap<ConnectorType, QString> g_mapConnectorTypeName EDIDVM_EARLY = {
    {ConnectorType::DVI, QStringLiteral("DVI")},         {ConnectorType::DDVI, QStringLiteral("DDVI")},
    {ConnectorType::HDMI1_3, QStringLiteral("HDMI1.3")}, {ConnectorType::HDMI1_4, QStringLiteral("HDMI1.4")},
    {ConnectorType::HDMI2_0, QStringLiteral("HDMI2.0")}, {ConnectorType::DP1_1, QStringLiteral("DP1.1")},
    {ConnectorType::DP1_2, QStringLiteral("DP1.2")},     {ConnectorType::SDI, QStringLiteral("SDI")},
    {ConnectorType::VGA, QStringLiteral("VGA")},         {ConnectorType::CVBS, QStringLiteral("CVBS")},
    {ConnectorType::SDI12G, QStringLiteral("12G-SDI")},  {ConnectorType::SDI6G, QStringLiteral("6G-SDI")},
    {ConnectorType::DDP1_1, QStringLiteral("DDP1.1")},
};

const QMap<int, InterfaceColorSpace> g_mapOrderColorSpace EDIDVM_EARLY = {
    {3, InterfaceColorSpace::ColorSpace0},     {1, InterfaceColorSpace::ColorSpace1},
    {2, InterfaceColorSpace::ColorSpace2},     {0, InterfaceColorSpace::ColorSpace3},
    {255, InterfaceColorSpace::ColorSpace255},
};

const std::string ScreenColorSpaceViewModel EDIDVM_EARLY = "screencolorspaceviewmodel";
const std::string ScreenColorDepthViewModel EDIDVM_EARLY = "screencolordepthviewmodel";
const std::string OutputColorSpaceViewModel EDIDVM_EARLY = "outputcolorspaceviewmodel";
const std::string OutputColorDepthViewModel EDIDVM_EARLY = "outputcolordepthviewmodel";
const std::string InputColorSpaceViewModel EDIDVM_EARLY = "inputcolorspaceviewmodel";
const std::string InputColorDepthViewModel EDIDVM_EARLY = "inputcolordepthviewmodel";
const std::string OutputDynamicViewModel EDIDVM_EARLY = "outputinterfacedynamicviewmodelmessagehander";
const std::string ScreenDynamichViewModel EDIDVM_EARLY = "screendynamicviewmodelmessagehander";

} // namespace Constants
} // namespace LCD
