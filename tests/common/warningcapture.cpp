#include "common/warningcapture.h"

namespace edidvm {
namespace test {

namespace {
std::mutex g_mutex;
std::vector<LoggedMessage> g_messages;

std::string orEmpty(const char* text)
{
    return text != nullptr ? text : "";
}
} // namespace

WarningCapture::WarningCapture()
{
    clear();
    m_previous = qInstallMessageHandler(&WarningCapture::handler);
}

WarningCapture::~WarningCapture()
{
    qInstallMessageHandler(m_previous);
}

void WarningCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_messages.push_back({type, orEmpty(context.category), orEmpty(context.file), context.line,
                          orEmpty(context.function), text.toStdString()});
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
