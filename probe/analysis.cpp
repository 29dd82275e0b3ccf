// SPDX-License-Identifier: MIT
// What the deliveries showed as a whole: the threads, the nesting, the
// memory, and the conclusions: the host variations seen and what lies
// outside all of them.

#include "probe/measurement.h"

#include "probe/probenumbers.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cctype>

namespace Probe {

namespace {

const char MovingCurrentNotMeasured[] = "not measured: the probe subscribes the component's events only on a host "
                                        "that delivers one event to every subscriber";

// The kernel's figure in kB from a "Name:   123 kB" line of /proc.
long kilobytes(const QByteArray& line)
{
    const QList<QByteArray> words = line.simplified().split(' ');
    return words.size() >= 2 ? words.at(1).toLong() : -1;
}

long processRssKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (QByteArray line = status.readLine(); !line.isEmpty(); line = status.readLine())
        if (line.startsWith("VmRSS:"))
            return kilobytes(line);
    return -1;
}

// The resident part of the probe's own mappings.
long libraryRssKb(const QString& path)
{
    QFile smaps(QStringLiteral("/proc/self/smaps"));
    if (path.isEmpty() || !smaps.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray wanted = QFileInfo(path).canonicalFilePath().toLocal8Bit();
    long total = 0;
    bool ours = false;
    for (QByteArray line = smaps.readLine(); !line.isEmpty(); line = smaps.readLine()) {
        // A mapping's header line: "start-end perms offset dev inode path".
        if (std::isxdigit(static_cast<unsigned char>(line.at(0))) != 0 && !line.contains(": ")) {
            ours = line.trimmed().endsWith(wanted);
        } else if (ours && line.startsWith("Rss:")) {
            total += kilobytes(line);
        }
    }
    return total;
}

} // namespace

void Measurement::deliveryThreads()
{
    std::vector<const DeliveryRecord*> records = m_session.deliveries();
    std::map<QString, std::set<long>> byKind;
    for (const DeliveryRecord* record : records) {
        const char* kind = record->number == MessageId::SentEvent     ? "sendEvent"
                           : record->number == MessageId::Command     ? "sendCommand"
                           : record->number == MessageId::PostedEvent ? "postEvent"
                           : record->number == MessageId::FanOut      ? "fanOut"
                                                                      : "others";
        byKind[kind].insert(record->thread);
    }
    QJsonObject delivering;
    for (const auto& entry : byKind) {
        QJsonArray threads;
        for (long id : entry.second)
            threads.append(threadName(id, m_session));
        delivering[entry.first] = threads;
    }
    // Two deliveries overlap when one starts on another thread before the
    // other has left the probe's handler.
    std::sort(records.begin(), records.end(),
              [](const DeliveryRecord* a, const DeliveryRecord* b) { return a->enterNs < b->enterNs; });
    int overlapping = 0;
    QJsonObject example;
    const DeliveryRecord* latest = nullptr;
    for (const DeliveryRecord* record : records) {
        if (latest != nullptr && record->enterNs < latest->leaveNs && record->thread != latest->thread) {
            ++overlapping;
            if (example.isEmpty())
                example = QJsonObject{
                    {"first", QStringLiteral("%1 on %2").arg(hexNumber(latest->number)).arg(latest->thread)},
                    {"second", QStringLiteral("%1 on %2").arg(hexNumber(record->number)).arg(record->thread)}};
        }
        if (latest == nullptr || record->leaveNs > latest->leaveNs)
            latest = record;
    }
    QJsonObject overlap = observation(overlapping, int(records.size()));
    overlap["says"] = overlapping > 0
                          ? QStringLiteral("seen in %1 of %2 deliveries").arg(overlapping).arg(records.size())
                          : QStringLiteral("not seen over %1 deliveries").arg(records.size());
    if (!example.isEmpty())
        overlap["example"] = example;
    m_report["threads"] = QJsonObject{{"probe", threadName(m_session.probeThread(), m_session)},
                                      {"startedOn", threadName(m_session.startThread(), m_session)},
                                      {"delivering", delivering},
                                      {"overlappingDeliveries", overlap},
                                      {"deliveriesSeen", int(records.size())},
                                      {"deliveriesNotKept", int(m_session.dropped())}};
}

void Measurement::nesting()
{
    std::set<std::pair<std::uint32_t, std::uint32_t>> nestedSends, movingCommands;
    std::set<std::uint32_t> numbers, queryNumbers;
    int insideQueries = 0;
    QJsonObject example;
    for (const DeliveryRecord* record : m_session.deliveries()) {
        if (record->sendingNumber == 0)
            continue;
        const bool theSentOne = isOwnNumber(record->number) && record->number == record->sendingNumber &&
                                (!record->payloadRead || record->seq == record->sendingSeq);
        if (theSentOne)
            continue;
        const auto send = std::make_pair(record->sendingNumber, record->sendingSeq);
        if (!isOwnNumber(record->sendingNumber)) {
            ++insideQueries;
            queryNumbers.insert(record->number);
        } else if (record->ownAnsweredBefore && record->number == CurrentInterfaceNumber) {
            movingCommands.insert(send);
        } else {
            nestedSends.insert(send);
            numbers.insert(record->number);
            if (example.isEmpty())
                example = QJsonObject{{"delivered", hexNumber(record->number)},
                                      {"during", hexNumber(record->sendingNumber)},
                                      {"beforeTheSentMessageArrived", !record->ownDeliveredBefore},
                                      {"thread", threadName(record->thread, m_session)}};
        }
    }
    m_nestedSends = int(nestedSends.size());
    m_movingCommands = int(movingCommands.size());
    const auto list = [](const std::set<std::uint32_t>& set) {
        QJsonArray out;
        for (std::uint32_t number : set)
            out.append(hexNumber(number));
        return out;
    };
    const int commands = m_counts["sendCommand"].tries;
    // The probe subscribes the view model's events only in the capture: a
    // host that routes them here unasked shows the move, none shows nothing.
    const QJsonValue moving = m_movingCommands > 0 ? QJsonValue(observation(m_movingCommands, commands))
                                                   : QJsonValue(MovingCurrentNotMeasured);
    QJsonObject nested{{"insideOwnSends", observation(m_nestedSends, m_ownSends)},
                       {"numbers", list(numbers)},
                       {"currentInterfaceAfterCommandAnswered", moving},
                       {"insideQueries", QJsonObject{{"count", insideQueries}, {"numbers", list(queryNumbers)}}}};
    if (!example.isEmpty())
        nested["example"] = example;
    m_report["nestedDeliveries"] = nested;
}

QJsonObject Measurement::memory() const
{
    return {{"processRssKb", int(processRssKb())}, {"probeLibraryRssKb", int(libraryRssKb(libraryPath()))}};
}

void Measurement::conclude()
{
    const Counts& event = m_counts["sendEvent"];
    const Counts& command = m_counts["sendCommand"];
    const Counts& post = m_counts["postEvent"];
    const int sends = event.tries + command.tries;
    const int lent = event.lent + command.lent, copied = event.copied + command.copied;
    const int unstable = event.nullAgain + command.nullAgain;
    const int delivered = event.delivered + command.delivered;

    QJsonArray variations;
    const auto variation = [&variations](const char* name, const QString& evidence) {
        variations.append(QJsonObject{{"name", name}, {"evidence", evidence}});
    };
    if (lent > 0)
        variation(
            "lent-payloads",
            QStringLiteral("data() was the sender's own buffer in %1 of %2 sends to itself").arg(lent).arg(sends));
    if (m_elsewhere > 0)
        variation("answer-elsewhere", QStringLiteral("the interface query pointed the asker's pointer variable at "
                                                     "another envelope in %1 of %2 tries")
                                          .arg(m_elsewhere)
                                          .arg(m_interfaceTries));
    if (unstable > 0)
        variation(
            "unstable-data",
            QStringLiteral("a second data() call returned null in %1 of %2 deliveries").arg(unstable).arg(delivered));
    if (m_nestedSends > 0)
        variation("nested-deliveries",
                  QStringLiteral("other messages came in on the sending thread during %1 of %2 own "
                                 "sends")
                      .arg(m_nestedSends)
                      .arg(m_ownSends));
    if (m_movingCommands > 0)
        variation("moving-current", QStringLiteral("%1 came in on the sending thread after %2 of %3 commands were "
                                                   "answered, before they returned")
                                        .arg(hexNumber(CurrentInterfaceNumber))
                                        .arg(m_movingCommands)
                                        .arg(command.tries));
    // "default" only where each of its marks was measured: payloads sent
    // both ways and the interface query answered.
    const int sameAgain = event.sameAgain + command.sameAgain;
    const bool measured = event.tries > 0 && command.tries > 0 && m_ownEnvelope + m_elsewhere + m_nulled > 0;
    if (variations.isEmpty() && copied > 0 && measured)
        variation("default", QStringLiteral("payloads copied in %1 of %2 sends to itself, data() the same on a second "
                                            "call in %3 of %4 deliveries, the interface query answered in the "
                                            "asker's envelope in %5 of %6 tries, other messages inside %7 of %8 own "
                                            "sends")
                                 .arg(copied)
                                 .arg(sends)
                                 .arg(sameAgain)
                                 .arg(delivered)
                                 .arg(m_ownEnvelope)
                                 .arg(m_interfaceTries)
                                 .arg(m_nestedSends)
                                 .arg(m_ownSends));
    else if (variations.isEmpty())
        problem(QStringLiteral("no variation concluded: sendEvent (%1 tries), sendCommand (%2 tries) and an answered "
                               "interface query (%3 of %4 tries) are all needed")
                    .arg(event.tries)
                    .arg(command.tries)
                    .arg(m_ownEnvelope + m_elsewhere + m_nulled)
                    .arg(m_interfaceTries));
    m_report["variations"] = variations;

    QJsonArray outside;
    const auto was = [&outside](int count, int tries, const QString& what) {
        if (count > 0)
            outside.append(QStringLiteral("%1 (%2 of %3 tries)").arg(what).arg(count).arg(tries));
    };
    for (const auto& named : {std::make_pair("sendEvent", event), std::make_pair("sendCommand", command)}) {
        const Counts& c = named.second;
        const QString name = QString::fromLatin1(named.first);
        was(c.afterReturn, c.tries, name + QStringLiteral(" delivered after it returned"));
        was(c.otherThread, c.tries, name + QStringLiteral(" delivered on another thread than the sender's"));
        was(c.tries - c.delivered, c.tries, name + QStringLiteral(" delivered nothing"));
        was(c.altered, c.tries, name + QStringLiteral(" delivered a payload other than the one sent"));
        was(c.noData, c.tries, name + QStringLiteral(" delivered a message whose data() was null"));
        was(c.otherAgain, c.tries, name + QStringLiteral(": data() returned another address on a second call"));
    }
    was(command.delivered - command.replied, command.tries,
        QStringLiteral("a command's reply did not reach the sender"));
    was(post.beforeReturn, post.tries,
        QStringLiteral("postEvent delivered before it returned, %1")
            .arg(post.sendingThread > 0 ? "on the posting thread" : "on another thread"));
    was(post.tries - post.delivered, post.tries,
        QStringLiteral("postEvent delivered nothing within %1 ms").arg(PostWaitMs));
    was(post.altered + post.noData, post.tries,
        QStringLiteral("postEvent delivered a payload other than the one sent"));
    was(m_fanOutTries - m_fanOutBoth, m_fanOutTries,
        QStringLiteral("an event did not reach both components subscribed to it"));
    was(m_nulled, m_interfaceTries, QStringLiteral("the interface query set the asker's pointer variable to null"));
    m_report["outside"] = outside;
}

} // namespace Probe
