// SPDX-License-Identifier: MIT
// The VESA Display Monitor Timing (DMT) table: every DMT ID with its timing,
// and the standard-timing code that names it where the standard gives one
// (1024x768 at 70 Hz is named 0x61 0x4c, whose refresh field reads 72).
#include "edid/tables.h"

namespace edidvm::edid::tables {
namespace {

// standard code, {DMT ID, width, height, interlaced, pixel clock kHz,
// {h front, sync, back, border, +}, {v ...}}, reduced blanking
constexpr DmtTiming kDmt[] = {
    {0x0000, {1, 640, 350, false, 31500, {32, 64, 96, 0, true}, {32, 3, 60, 0, false}}, false},
    {0x3119, {2, 640, 400, false, 31500, {32, 64, 96, 0, false}, {1, 3, 41, 0, true}}, false},
    {0x0000, {3, 720, 400, false, 35500, {36, 72, 108, 0, false}, {1, 3, 42, 0, true}}, false},
    {0x3140, {4, 640, 480, false, 25175, {8, 96, 40, 8, false}, {2, 2, 25, 8, false}}, false},
    {0x314c, {5, 640, 480, false, 31500, {16, 40, 120, 8, false}, {1, 3, 20, 8, false}}, false},
    {0x314f, {6, 640, 480, false, 31500, {16, 64, 120, 0, false}, {1, 3, 16, 0, false}}, false},
    {0x3159, {7, 640, 480, false, 36000, {56, 56, 80, 0, false}, {1, 3, 25, 0, false}}, false},
    {0x0000, {8, 800, 600, false, 36000, {24, 72, 128, 0, true}, {1, 2, 22, 0, true}}, false},
    {0x4540, {9, 800, 600, false, 40000, {40, 128, 88, 0, true}, {1, 4, 23, 0, true}}, false},
    {0x454c, {10, 800, 600, false, 50000, {56, 120, 64, 0, true}, {37, 6, 23, 0, true}}, false},
    {0x454f, {11, 800, 600, false, 49500, {16, 80, 160, 0, true}, {1, 3, 21, 0, true}}, false},
    {0x4559, {12, 800, 600, false, 56250, {32, 64, 152, 0, true}, {1, 3, 27, 0, true}}, false},
    {0x0000, {13, 800, 600, false, 73250, {48, 32, 80, 0, true}, {3, 4, 29, 0, false}}, true},
    {0x0000, {14, 848, 480, false, 33750, {16, 112, 112, 0, true}, {6, 8, 23, 0, true}}, false},
    {0x0000, {15, 1024, 768, true, 44900, {8, 176, 56, 0, true}, {0, 4, 20, 0, true}}, false},
    {0x6140, {16, 1024, 768, false, 65000, {24, 136, 160, 0, false}, {3, 6, 29, 0, false}}, false},
    {0x614c, {17, 1024, 768, false, 75000, {24, 136, 144, 0, false}, {3, 6, 29, 0, false}}, false},
    {0x614f, {18, 1024, 768, false, 78750, {16, 96, 176, 0, true}, {1, 3, 28, 0, true}}, false},
    {0x6159, {19, 1024, 768, false, 94500, {48, 96, 208, 0, true}, {1, 3, 36, 0, true}}, false},
    {0x0000, {20, 1024, 768, false, 115500, {48, 32, 80, 0, true}, {3, 4, 38, 0, false}}, true},
    {0x714f, {21, 1152, 864, false, 108000, {64, 128, 256, 0, true}, {1, 3, 32, 0, true}}, false},
    {0x0000, {22, 1280, 768, false, 68250, {48, 32, 80, 0, true}, {3, 7, 12, 0, false}}, true},
    {0x0000, {23, 1280, 768, false, 79500, {64, 128, 192, 0, false}, {3, 7, 20, 0, true}}, false},
    {0x0000, {24, 1280, 768, false, 102250, {80, 128, 208, 0, false}, {3, 7, 27, 0, true}}, false},
    {0x0000, {25, 1280, 768, false, 117500, {80, 136, 216, 0, false}, {3, 7, 31, 0, true}}, false},
    {0x0000, {26, 1280, 768, false, 140250, {48, 32, 80, 0, true}, {3, 7, 35, 0, false}}, false},
    {0x0000, {27, 1280, 800, false, 71000, {48, 32, 80, 0, true}, {3, 6, 14, 0, false}}, true},
    {0x8100, {28, 1280, 800, false, 83500, {72, 128, 200, 0, false}, {3, 6, 22, 0, true}}, false},
    {0x810f, {29, 1280, 800, false, 106500, {80, 128, 208, 0, false}, {3, 6, 29, 0, true}}, false},
    {0x8119, {30, 1280, 800, false, 122500, {80, 136, 216, 0, false}, {3, 6, 34, 0, true}}, false},
    {0x0000, {31, 1280, 800, false, 146250, {48, 32, 80, 0, true}, {3, 6, 38, 0, false}}, true},
    {0x8140, {32, 1280, 960, false, 108000, {96, 112, 312, 0, true}, {1, 3, 36, 0, true}}, false},
    {0x8159, {33, 1280, 960, false, 148500, {64, 160, 224, 0, true}, {1, 3, 47, 0, true}}, false},
    {0x0000, {34, 1280, 960, false, 175500, {48, 32, 80, 0, true}, {3, 4, 50, 0, false}}, true},
    {0x8180, {35, 1280, 1024, false, 108000, {48, 112, 248, 0, true}, {1, 3, 38, 0, true}}, false},
    {0x818f, {36, 1280, 1024, false, 135000, {16, 144, 248, 0, true}, {1, 3, 38, 0, true}}, false},
    {0x8199, {37, 1280, 1024, false, 157500, {64, 160, 224, 0, true}, {1, 3, 44, 0, true}}, false},
    {0x0000, {38, 1280, 1024, false, 187250, {48, 32, 80, 0, true}, {3, 7, 50, 0, false}}, true},
    {0x0000, {39, 1360, 768, false, 85500, {64, 112, 256, 0, true}, {3, 6, 18, 0, true}}, false},
    {0x0000, {40, 1360, 768, false, 148250, {48, 32, 80, 0, true}, {3, 5, 37, 0, false}}, true},
    {0x0000, {41, 1400, 1050, false, 101000, {48, 32, 80, 0, true}, {3, 4, 23, 0, false}}, true},
    {0x9040, {42, 1400, 1050, false, 121750, {88, 144, 232, 0, false}, {3, 4, 32, 0, true}}, false},
    {0x904f, {43, 1400, 1050, false, 156000, {104, 144, 248, 0, false}, {3, 4, 42, 0, true}}, false},
    {0x9059, {44, 1400, 1050, false, 179500, {104, 152, 256, 0, false}, {3, 4, 48, 0, true}}, false},
    {0x0000, {45, 1400, 1050, false, 208000, {48, 32, 80, 0, true}, {3, 4, 55, 0, false}}, true},
    {0x0000, {46, 1440, 900, false, 88750, {48, 32, 80, 0, true}, {3, 6, 17, 0, false}}, true},
    {0x9500, {47, 1440, 900, false, 106500, {80, 152, 232, 0, false}, {3, 6, 25, 0, true}}, false},
    {0x950f, {48, 1440, 900, false, 136750, {96, 152, 248, 0, false}, {3, 6, 33, 0, true}}, false},
    {0x9519, {49, 1440, 900, false, 157000, {104, 152, 256, 0, false}, {3, 6, 39, 0, true}}, false},
    {0x0000, {50, 1440, 900, false, 182750, {48, 32, 80, 0, true}, {3, 6, 44, 0, false}}, true},
    {0xa940, {51, 1600, 1200, false, 162000, {64, 192, 304, 0, true}, {1, 3, 46, 0, true}}, false},
    {0xa945, {52, 1600, 1200, false, 175500, {64, 192, 304, 0, true}, {1, 3, 46, 0, true}}, false},
    {0xa94a, {53, 1600, 1200, false, 189000, {64, 192, 304, 0, true}, {1, 3, 46, 0, true}}, false},
    {0xa94f, {54, 1600, 1200, false, 202500, {64, 192, 304, 0, true}, {1, 3, 46, 0, true}}, false},
    {0xa959, {55, 1600, 1200, false, 229500, {64, 192, 304, 0, true}, {1, 3, 46, 0, true}}, false},
    {0x0000, {56, 1600, 1200, false, 268250, {48, 32, 80, 0, true}, {3, 4, 64, 0, false}}, true},
    {0x0000, {57, 1680, 1050, false, 119000, {48, 32, 80, 0, true}, {3, 6, 21, 0, false}}, true},
    {0xb300, {58, 1680, 1050, false, 146250, {104, 176, 280, 0, false}, {3, 6, 30, 0, true}}, false},
    {0xb30f, {59, 1680, 1050, false, 187000, {120, 176, 296, 0, false}, {3, 6, 40, 0, true}}, false},
    {0xb319, {60, 1680, 1050, false, 214750, {128, 176, 304, 0, false}, {3, 6, 46, 0, true}}, false},
    {0x0000, {61, 1680, 1050, false, 245500, {48, 32, 80, 0, true}, {3, 6, 53, 0, false}}, true},
    {0xc140, {62, 1792, 1344, false, 204750, {128, 200, 328, 0, false}, {1, 3, 46, 0, true}}, false},
    {0xc14f, {63, 1792, 1344, false, 261000, {96, 216, 352, 0, false}, {1, 3, 69, 0, true}}, false},
    {0x0000, {64, 1792, 1344, false, 333250, {48, 32, 80, 0, true}, {3, 4, 72, 0, false}}, true},
    {0xc940, {65, 1856, 1392, false, 218250, {96, 224, 352, 0, false}, {1, 3, 43, 0, true}}, false},
    {0xc94f, {66, 1856, 1392, false, 288000, {128, 224, 352, 0, false}, {1, 3, 104, 0, true}}, false},
    {0x0000, {67, 1856, 1392, false, 356500, {48, 32, 80, 0, true}, {3, 4, 74, 0, false}}, true},
    {0x0000, {68, 1920, 1200, false, 154000, {48, 32, 80, 0, true}, {3, 6, 26, 0, false}}, true},
    {0xd100, {69, 1920, 1200, false, 193250, {136, 200, 336, 0, false}, {3, 6, 36, 0, true}}, false},
    {0xd10f, {70, 1920, 1200, false, 245250, {136, 208, 344, 0, false}, {3, 6, 46, 0, true}}, false},
    {0xd119, {71, 1920, 1200, false, 281250, {144, 208, 352, 0, false}, {3, 6, 53, 0, true}}, false},
    {0x0000, {72, 1920, 1200, false, 317000, {48, 32, 80, 0, true}, {3, 6, 62, 0, false}}, true},
    {0xd140, {73, 1920, 1440, false, 234000, {128, 208, 344, 0, false}, {1, 3, 56, 0, true}}, false},
    {0xd14f, {74, 1920, 1440, false, 297000, {144, 224, 352, 0, false}, {1, 3, 56, 0, true}}, false},
    {0x0000, {75, 1920, 1440, false, 380500, {48, 32, 80, 0, true}, {2, 3, 78, 0, false}}, true},
    {0x0000, {76, 2560, 1600, false, 268500, {48, 32, 80, 0, true}, {3, 6, 37, 0, false}}, true},
    {0x0000, {77, 2560, 1600, false, 348500, {192, 280, 472, 0, false}, {3, 6, 49, 0, true}}, false},
    {0x0000, {78, 2560, 1600, false, 443250, {208, 280, 488, 0, false}, {3, 6, 63, 0, true}}, false},
    {0x0000, {79, 2560, 1600, false, 505250, {208, 280, 488, 0, false}, {3, 6, 73, 0, true}}, false},
    {0x0000, {80, 2560, 1600, false, 552750, {48, 32, 80, 0, true}, {3, 6, 85, 0, false}}, true},
    {0x0000, {81, 1366, 768, false, 85500, {70, 143, 213, 0, true}, {3, 3, 24, 0, true}}, false},
    {0xd1c0, {82, 1920, 1080, false, 148500, {88, 44, 148, 0, true}, {4, 5, 36, 0, true}}, false},
    {0xa9c0, {83, 1600, 900, false, 108000, {24, 80, 96, 0, true}, {1, 3, 96, 0, true}}, true},
    {0xe1c0, {84, 2048, 1152, false, 162000, {26, 80, 96, 0, true}, {1, 3, 44, 0, true}}, true},
    {0x81c0, {85, 1280, 720, false, 74250, {110, 40, 220, 0, true}, {5, 5, 20, 0, true}}, false},
    {0x0000, {86, 1366, 768, false, 72000, {14, 56, 64, 0, true}, {1, 3, 28, 0, true}}, true},
    {0x0000, {87, 4096, 2160, false, 556744, {8, 32, 40, 0, true}, {48, 8, 6, 0, false}}, true},
    {0x0000, {88, 4096, 2160, false, 556188, {8, 32, 40, 0, true}, {48, 8, 6, 0, false}}, true},
};

} // namespace

const DmtTiming* dmt(int id)
{
    for (const DmtTiming& entry : kDmt) {
        if (entry.timing.code == id)
            return &entry;
    }
    return nullptr;
}

const DmtTiming* dmtByStandardCode(std::uint16_t code)
{
    if (code == 0)
        return nullptr;
    for (const DmtTiming& entry : kDmt) {
        if (entry.standardCode == code)
            return &entry;
    }
    return nullptr;
}

} // namespace edidvm::edid::tables
