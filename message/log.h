#pragma once

#include <QMessageLogger>

// A warning with category "default", the source file, the line and the full
// function signature, in every build type: Qt drops the context from plain
// qWarning() in release builds.
#define EDIDVM_WARNING() QMessageLogger(__FILE__, __LINE__, Q_FUNC_INFO, "default").warning()
