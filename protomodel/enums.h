// SPDX-License-Identifier: MIT
#pragma once

namespace LCD {
namespace Enum {

// Test patterns, in blocks of 256: plain, changing (colour sweep), lines.
enum class TestPatternType : int {
    SolidBlack = 0x000,
    SolidRed = 0x001,
    SolidGreen = 0x002,
    SolidBlue = 0x003,
    SolidWhite = 0x004,
    StripeVertical = 0x005,
    StripeHorizontal = 0x006,
    Grid = 0x007,
    ChangeRed = 0x100,
    ChangeGreen = 0x101,
    ChangeBlue = 0x102,
    ChangeGrey = 0x103,
    ChangeRedVertical = 0x104,
    ChangeGreenVertical = 0x105,
    ChangeBlueVertical = 0x106,
    ChangeGreyVertical = 0x107,
    LineHorizontal = 0x200,
    LineVertical = 0x201,
    LineOverlappingLeft = 0x202,
    LineOverlappingRight = 0x203,
    LineGrid = 0x204,
    LineOverlapping = 0x205,
};

namespace Interface {

// Physical connector of an output interface. 0, 1, 12, 15 and 16 occur
// without a display name.
enum class ConnectorType : int {
    DVI = 2,
    DDVI = 3,
    HDMI1_3 = 4,
    HDMI1_4 = 5,
    HDMI2_0 = 6,
    DP1_1 = 7,
    DP1_2 = 8,
    SDI = 9,
    VGA = 10,
    CVBS = 11,
    SDI12G = 13,
    SDI6G = 14,
    DDP1_1 = 17,
};

// The tags a thumb-timing check expands into, one check each.
enum class ThumbTagName : int { Tag0 = 0, Tag1, Tag2, Tag3, Tag4, Tag5 };

// The tags a detail-timing check expands into, one check each.
enum class DetailTagName : int {
    Tag0 = 0,
    Tag1,
    Tag2,
    Tag3,
    Tag4,
    Tag5,
    Tag6,
    Tag7,
    Tag8,
    Tag9,
    Tag10,
    Tag11,
    Tag12,
    Tag13
};

enum class InterfaceColorSpace : int {
    ColorSpace0 = 0,
    ColorSpace1 = 1,
    ColorSpace2 = 2,
    ColorSpace3 = 3,
    ColorSpace255 = 255
};

} // namespace Interface
} // namespace Enum
} // namespace LCD
