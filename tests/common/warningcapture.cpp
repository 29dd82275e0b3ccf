#include "common/warningcapture.h"

#include <QString>

#include <mutex>

namespace edidvm {
namespace test {

namespace {
std::mutex g_mutex;
std::vector<LoggedMessage> g_messages;

void capture(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    const auto orEmpty = [](const char* value) { return std::string(value != nullptr ? value : ""); };
    std::lock_guard<std::mutex> lock(g_mutex);
    g_messages.push_back({type, orEmpty(context.category), orEmpty(context.file), context.line,
                          orEmpty(context.function), text.toStdString()});
}
} // namespace

WarningCapture::WarningCapture() : m_previous(qInstallMessageHandler(&capture))
{
    clear();
}

WarningCapture::~WarningCapture()
{
    qInstallMessageHandler(m_previous);
}

std::vector<LoggedMessage> WarningCapture::messages() const
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_messages;
}

std::vector<std::string> WarningCapture::texts() const
{
    std::vector<std::string> texts;
    for (const LoggedMessage& message : messages())
        texts.push_back(message.text);
    return texts;
}

void WarningCapture::clear()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_messages.clear();
}

} // namespace test
} // namespace edidvm
