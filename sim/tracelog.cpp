// SPDX-License-Identifier: MIT
#include "sim/tracelog.h"

#include "sim/trace.h"

#include <QMessageLogContext>
#include <QString>

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace edidvm {
namespace sim {

namespace {
Trace* g_trace = nullptr;
QtMessageHandler g_previous = nullptr;

// Only the component's warnings (category "default", with its source file)
// are the trace's; what Qt itself says goes where it always goes.
void logToTrace(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (g_trace != nullptr && context.file != nullptr && context.category != nullptr &&
        std::strcmp(context.category, "default") == 0) {
        g_trace->warning({context.function != nullptr ? context.function : "", text.toStdString()});
        return;
    }
    if (g_previous != nullptr)
        g_previous(type, context, text);
    else
        qt_message_output(type, context, text);
}
} // namespace

TraceLog::TraceLog(Trace& trace)
{
    if (g_trace != nullptr)
        return;
    g_trace = &trace;
    g_previous = qInstallMessageHandler(logToTrace);
    m_installed = true;
}

TraceLog::~TraceLog()
{
    if (!m_installed)
        return;
    qInstallMessageHandler(g_previous);
    g_previous = nullptr;
    g_trace = nullptr;
}

bool colourWanted(bool json)
{
    return !json && isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

} // namespace sim
} // namespace edidvm
