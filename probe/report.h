// SPDX-License-Identifier: MIT
#pragma once

// The report file and the small pieces every field of it is made of.

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <vector>

namespace Probe {

// The directory the reports go to: $EDIDVM_PROBE_DIR, or DefaultReportDir.
extern const char ReportDirVariable[];
extern const char DefaultReportDir[];
// Reads the variable; fromVariable: whether it gave the directory.
QString reportDirectory(bool* fromVariable);

// One file per start, named after the time it was chosen; rewritten whole
// (a new file renamed over it) after each step, so a reader never sees half.
class ReportFile
{
public:
    explicit ReportFile(const QString& dir);
    // A file that cannot be written is logged once, naming its path, and
    // again when it is written after refusals. false when refused.
    bool write(const QByteArray& text);
    const QString& path() const { return m_path; }
    int refused() const { return m_refused; } // writes refused so far

private:
    QString m_path;
    bool m_warned = false;
    int m_refused = 0, m_refusedInRow = 0;
};

// "seen 3 of 20 tries" or "not seen over 20 tries", with the counts.
QJsonObject observation(int count, int tries);
// 0x-prefixed hex, or "null".
QString address(const void* pointer);
QString hexNumber(std::uint32_t number);
// min, median and p99 of durations in ns, reported in microseconds.
QJsonObject spread(std::vector<std::int64_t> durationsNs);

} // namespace Probe
