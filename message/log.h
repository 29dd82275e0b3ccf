// SPDX-License-Identifier: MIT
#pragma once

#include <QMessageLogContext>
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

// The caller's file, line and function, for a helper that warns on its
// caller's behalf: the warning then reads as if the caller had logged it.
#define EDIDVM_CONTEXT() QMessageLogContext(EDIDVM_SOURCE_FILE, __LINE__, Q_FUNC_INFO, "default")
#define EDIDVM_WARNING_IN(context)                                                                                     \
    QMessageLogger((context).file, (context).line, (context).function, (context).category).warning()
