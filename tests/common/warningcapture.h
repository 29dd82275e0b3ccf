#pragma once

// Collects what the code under test logs through Qt, for the life of the
// object.

#include <QtGlobal>

#include <string>
#include <vector>

namespace edidvm {
namespace test {

struct LoggedMessage
{
    QtMsgType type;
    std::string category;
    std::string file;
    int line;
    std::string function;
    std::string text;
};

class WarningCapture
{
public:
    WarningCapture();
    ~WarningCapture();
    WarningCapture(const WarningCapture&) = delete;
    WarningCapture& operator=(const WarningCapture&) = delete;

    std::vector<LoggedMessage> messages() const;
    std::vector<std::string> texts() const;
    void clear();

private:
    QtMessageHandler m_previous;
};

} // namespace test
} // namespace edidvm
