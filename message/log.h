#pragma once

#include <QMessageLogger>

// The file name without the build machine's path, so logs read the same
// from every build.
#if defined(__FILE_NAME__)
#define EDIDVM_SOURCE_FILE __FILE_NAME__
#else
#define EDIDVM_SOURCE_FILE __FILE__
#endif

// A warning with category "default", the source file, the line and the full
// function signature, in every build type: Qt drops the context from plain
// qWarning() in release builds.
#define EDIDVM_WARNING() QMessageLogger(EDIDVM_SOURCE_FILE, __LINE__, Q_FUNC_INFO, "default").warning()
