// SPDX-License-Identifier: MIT
#include "probe/report.h"

#include "message/log.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace Probe {

const char ReportDirVariable[] = "EDIDVM_PROBE_DIR";
// Persistent storage: a report must survive the reboot that often follows
// a device's trouble.
const char DefaultReportDir[] = "/var/lib/outputedidviewmodel-probe";

QString reportDirectory(bool* fromVariable)
{
    const QByteArray dir = qgetenv(ReportDirVariable);
    *fromVariable = !dir.isEmpty();
    return dir.isEmpty() ? QString::fromLatin1(DefaultReportDir) : QString::fromLocal8Bit(dir);
}

ReportFile::ReportFile(const QString& dir)
{
    const QString time = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd'T'HHmmss.zzz'Z'"));
    m_path = QDir(dir).filePath(QStringLiteral("probe-%1-%2.json").arg(time).arg(getpid()));
}

bool ReportFile::write(const QByteArray& text)
{
    QString problem;
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath())) {
        problem = QStringLiteral("the directory cannot be made");
    } else {
        QSaveFile file(m_path);
        if (!file.open(QIODevice::WriteOnly) || file.write(text) < 0 || !file.commit())
            problem = file.errorString();
    }
    if (problem.isEmpty()) {
        // The file on disk missed some states: say so once it is whole again.
        if (m_refusedInRow != 0)
            EDIDVM_WARNING() << "the probe's report was written to" << m_path << "again after" << m_refusedInRow
                             << "refused writes";
        m_refusedInRow = 0;
        return true;
    }
    ++m_refused;
    ++m_refusedInRow;
    if (!m_warned) {
        m_warned = true;
        EDIDVM_WARNING() << "the probe's report cannot be written to" << m_path << ":" << problem;
    }
    return false;
}

QJsonObject observation(int count, int tries)
{
    const QString says = count > 0 ? QStringLiteral("seen %1 of %2 tries").arg(count).arg(tries)
                                   : QStringLiteral("not seen over %1 tries").arg(tries);
    return {{"seen", count > 0}, {"count", count}, {"tries", tries}, {"says", says}};
}

QString address(const void* pointer)
{
    if (pointer == nullptr)
        return QStringLiteral("null");
    return QStringLiteral("0x") + QString::number(reinterpret_cast<quintptr>(pointer), 16);
}

QString hexNumber(std::uint32_t number)
{
    return QStringLiteral("0x%1").arg(number, 8, 16, QLatin1Char('0')).toUpper().replace(QLatin1String("0X"), "0x");
}

QJsonObject spread(std::vector<std::int64_t> durationsNs)
{
    if (durationsNs.empty())
        return {{"count", 0}};
    std::sort(durationsNs.begin(), durationsNs.end());
    const auto us = [](std::int64_t ns) { return std::round(double(ns) / 100.0) / 10.0; };
    const std::size_t n = durationsNs.size();
    const std::size_t p99 = static_cast<std::size_t>(std::ceil(0.99 * double(n))) - 1;
    return {{"count", int(n)},
            {"minUs", us(durationsNs.front())},
            {"medianUs", us(durationsNs[n / 2])},
            {"p99Us", us(durationsNs[p99])}};
}

} // namespace Probe
