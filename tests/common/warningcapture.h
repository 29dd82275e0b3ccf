// SPDX-License-Identifier: MIT
#pragma once

// Collects what the code under test logs through Qt, for the life of the
// object.

#include <QString>
#include <QtGlobal>

#include <mutex>
#include <string>
#include <vector>

namespace edidvm {
namespace test {

struct LoggedMessage
{
    QtMsgType type;
    std::string category, file;
    int line;
    std::string function, text;
};

class WarningCapture
{
public:
    WarningCapture() : m_previous(qInstallMessageHandler(&capture)) { clear(); }
    ~WarningCapture() { qInstallMessageHandler(m_previous); }
    WarningCapture(const WarningCapture&) = delete;
    WarningCapture& operator=(const WarningCapture&) = delete;

    std::vector<LoggedMessage> messages() const
    {
        std::lock_guard<std::mutex> lock(s_mutex);
        return s_log;
    }
    std::vector<std::string> texts() const
    {
        std::vector<std::string> texts;
        for (const LoggedMessage& message : messages())
            texts.push_back(message.text);
        return texts;
    }
    void clear()
    {
        std::lock_guard<std::mutex> lock(s_mutex);
        s_log.clear();
    }

private:
    static void capture(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        const auto orEmpty = [](const char* value) { return std::string(value != nullptr ? value : ""); };
        std::lock_guard<std::mutex> lock(s_mutex);
        s_log.push_back({type, orEmpty(context.category), orEmpty(context.file), context.line,
                         orEmpty(context.function), text.toStdString()});
    }

    static inline std::mutex s_mutex;
    static inline std::vector<LoggedMessage> s_log;
    QtMessageHandler m_previous;
};

} // namespace test
} // namespace edidvm
