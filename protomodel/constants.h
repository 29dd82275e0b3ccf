// SPDX-License-Identifier: MIT
#pragma once

// Constants shared by the product's view models. Built once while the library
// loads, before any component description, and read-only afterwards.

#include "protomodel/enums.h"

#include <QMap>
#include <QString>

#include <string>

namespace LCD {
namespace Constants {

extern const QString GroupKeyPress;
extern const QString GroupKeyRelease;
extern const QString GroupKeyTimeout;

extern const QMap<Enum::TestPatternType, QString> g_mapIconPath;
extern const QMap<Enum::Interface::ThumbTagName, int> g_mapThumbTagName;
extern const QMap<Enum::Interface::DetailTagName, int> g_mapDetailTimingTagName;
extern const QMap<Enum::Interface::ConnectorType, QString> g_mapConnectorTypeName;
// Display order index -> colour space.
extern const QMap<int, Enum::Interface::InterfaceColorSpace> g_mapOrderColorSpace;

// Names under which sibling view models register.
extern const std::string ScreenColorSpaceViewModel;
extern const std::string ScreenColorDepthViewModel;
extern const std::string OutputColorSpaceViewModel;
extern const std::string OutputColorDepthViewModel;
extern const std::string InputColorSpaceViewModel;
extern const std::string InputColorDepthViewModel;
extern const std::string OutputDynamicViewModel;
extern const std::string ScreenDynamichViewModel;

} // namespace Constants
} // namespace LCD
