// SPDX-License-Identifier: MIT
#include "probe/measurement.h"

#include "framework/api.h"
#include "framework/configservices.h"
#include "framework/ihostapi.h"
#include "framework/wire.h"
#include "probe/probenumbers.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/queryinfo.h"
#include "protomodel/screenrecords.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonValue>

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

namespace Probe {

namespace {

using LCD::GlobalMessageHander::QueryInfo;
using namespace LCD::ProtoModel;

const char* const ServiceNames[] = {"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher",
                                    "deviceconfigmanager", "subcardconfigmanager"};
constexpr int LookupTries = 3;
constexpr int SeriesSends = 100; // paced sends of each kind
constexpr int PaceMs = 1;
constexpr int SendWaitMs = 200;  // for a send that did not deliver before it returned
constexpr int PostWaitMs = 1000; // for a posted event
constexpr int MissesToGiveUp = 3;
constexpr int OrderPairs = 10;
constexpr int FanOutTries = 20;
constexpr int WitnessWaitMs = 2000;
constexpr int QueryTries = 3;
constexpr std::uint32_t DeviceParamNumber = 0xFC000004u;
constexpr std::uint32_t SelectedInterfaceNumber = 0xFC08100Au;

bool isOwnNumber(std::uint32_t number)
{
    return (number & 0xFFFF0000u) == 0xE0D10000u;
}

const char* kindName(Session::Send kind)
{
    switch (kind) {
    case Session::Send::Event:
        return "sendEvent";
    case Session::Send::Post:
        return "postEvent";
    case Session::Send::Command:
        return "sendCommand";
    }
    return "?";
}

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

QString libraryPath()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&processRssKb), &info) == 0 || info.dli_fname == nullptr)
        return QString();
    return QString::fromLocal8Bit(info.dli_fname);
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

QString threadName(long id, const Session& session)
{
    if (id == session.probeThread())
        return QStringLiteral("%1 (the probe's thread)").arg(id);
    if (id == session.startThread())
        return QStringLiteral("%1 (the thread that started the probe)").arg(id);
    return QStringLiteral("%1 (another thread)").arg(id);
}

} // namespace

Measurement::Measurement(Session& session) : m_session(session), m_file(session.reportDir()) {}

bool Measurement::pause(int ms) const
{
    const std::int64_t until = Session::nowNs() + std::int64_t(ms) * 1000000;
    while (!m_session.stopping() && Session::nowNs() < until)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    return !m_session.stopping();
}

void Measurement::write(const QString& pending)
{
    QJsonObject probe = m_report.value(QStringLiteral("probe")).toObject();
    probe["state"] = pending.isEmpty() && m_report.contains("variations") ? "finished" : "running";
    if (pending.isEmpty())
        probe.remove(QStringLiteral("pending"));
    else
        probe["pending"] = pending;
    m_report["probe"] = probe;
    m_report["problems"] = m_problems;
    m_file.write(m_report);
}

void Measurement::run()
{
    const QByteArray fromEnv = qgetenv(ReportDirVariable);
    m_report["probe"] = QJsonObject{
        {"version", "0.1.0"},
        {"started", QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)},
        {"pid", int(getpid())},
        {"report", m_file.path()},
        {"reportDirFrom", fromEnv.isEmpty() ? QStringLiteral("the default") : QString::fromLatin1(ReportDirVariable)},
        {"library", libraryPath()},
    };
    m_report["memoryAtStart"] = memory();
    write(QStringLiteral("starting"));

    services();
    waitForWitness();
    write(QStringLiteral("own messages"));

    QJsonObject own, cost;
    const struct
    {
        Session::Send kind;
        std::uint32_t number;
        int waitMs;
    } kinds[] = {{Session::Send::Event, MessageId::SentEvent, SendWaitMs},
                 {Session::Send::Command, MessageId::Command, SendWaitMs},
                 {Session::Send::Post, MessageId::PostedEvent, PostWaitMs}};
    for (const auto& kind : kinds) {
        QString note;
        const std::vector<Try> tries = series(kind.kind, kind.number, SeriesSends, kind.waitMs, &note);
        own[kindName(kind.kind)] = describe(kindName(kind.kind), kind.kind, kind.number, tries, note);
        std::vector<std::int64_t> toDelivery, toReturn;
        for (const Try& one : tries) {
            toReturn.push_back(one.sent.returnNs - one.sent.callNs);
            if (one.delivery != nullptr)
                toDelivery.push_back(one.delivery->enterNs - one.sent.callNs);
        }
        cost[kindName(kind.kind)] =
            QJsonObject{{"callToDelivery", spread(toDelivery)}, {"callToReturn", spread(toReturn)}};
        m_report["ownMessages"] = own;
        write(QStringLiteral("own messages"));
    }
    cost["paced"] = SeriesSends;
    cost["paceMs"] = PaceMs;
    m_report["cost"] = cost;

    postOrder();
    fanOut();
    write(QStringLiteral("queries"));
    queries();
    configServices();
    deliveryThreads();
    nesting();
    m_report["memoryAtEnd"] = memory();
    conclude();
    write();
}

void Measurement::services()
{
    kpf::IHostApi* api = kpf::api::get().hostApi;
    QJsonObject services;
    for (const char* name : ServiceNames) {
        int found = 0;
        std::set<const void*> addresses;
        for (int i = 0; i < LookupTries && api != nullptr; ++i) {
            const void* service = api->findService(name);
            found += service != nullptr ? 1 : 0;
            addresses.insert(service);
        }
        QJsonObject entry = observation(found, LookupTries);
        QJsonArray seen;
        for (const void* address : addresses)
            seen.append(Probe::address(address));
        entry["addresses"] = seen;
        if (api == nullptr)
            entry["says"] = QStringLiteral("not looked up: pluginit gave no host API");
        services[name] = entry;
        if (found < LookupTries)
            problem(QStringLiteral("service %1 %2").arg(name, entry["says"].toString()));
    }
    m_report["services"] = services;

    QJsonArray subscribed;
    for (std::size_t i = 0; i < std::size(subscriptions); ++i) {
        const int result = m_session.subscribeResult(i);
        subscribed.append(QJsonObject{{"component", subscriptions[i].component},
                                      {"number", hexNumber(subscriptions[i].number)},
                                      {"channel", subscriptions[i].command ? "command" : "event"},
                                      {"result", result == NotSubscribed ? QJsonValue("not made") : result}});
        if (result != 0)
            problem(QStringLiteral("the subscription of component %1 to %2 returned %3")
                        .arg(subscriptions[i].component)
                        .arg(hexNumber(subscriptions[i].number))
                        .arg(result == NotSubscribed ? QStringLiteral("nothing: not made") : QString::number(result)));
    }
    m_report["subscriptions"] = subscribed;
}

void Measurement::waitForWitness()
{
    const std::int64_t since = Session::nowNs();
    while (!m_session.witnessHasStarted() && Session::nowNs() - since < std::int64_t(WitnessWaitMs) * 1000000)
        if (!pause(1))
            return;
    if (!m_session.witnessHasStarted())
        problem(QStringLiteral("the second component was not started within %1 ms").arg(WitnessWaitMs));
}

const DeliveryRecord* Measurement::awaitOwn(std::uint32_t number, std::uint32_t seq, std::int64_t afterNs, int waitMs)
{
    const std::int64_t until = Session::nowNs() + std::int64_t(waitMs) * 1000000;
    for (;;) {
        // By sequence number; a payload that could not be read counts by
        // its number and time.
        const DeliveryRecord* loose = nullptr;
        for (const DeliveryRecord* record : m_session.deliveries()) {
            if (record->number != number || record->component != 0 || m_claimed.count(record) != 0)
                continue;
            if (record->seq == seq) {
                m_claimed.insert(record);
                return record;
            }
            if (loose == nullptr && !record->intact && record->enterNs >= afterNs)
                loose = record;
        }
        if (loose != nullptr) {
            m_claimed.insert(loose);
            return loose;
        }
        if (Session::nowNs() >= until || m_session.stopping())
            return nullptr;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

std::vector<Measurement::Try> Measurement::series(Session::Send kind, std::uint32_t number, int count, int waitMs,
                                                  QString* note)
{
    std::vector<Try> tries;
    const bool events = kind != Session::Send::Command;
    if (events ? !m_session.hasEventDispatcher() : !m_session.hasCommandDispatcher()) {
        *note = QStringLiteral("not tried: the %1 was not found").arg(events ? "eventdispatcher" : "commanddispatcher");
        return tries;
    }
    int misses = 0;
    for (int i = 0; i < count && !m_session.stopping(); ++i) {
        Try one;
        one.seq = ++m_seq;
        one.sent = m_session.sendOwn(kind, number, one.seq);
        ++m_ownSends;
        one.delivery = awaitOwn(number, one.seq, one.sent.callNs, waitMs);
        tries.push_back(one);
        misses = one.delivery != nullptr ? 0 : misses + 1;
        if (misses == MissesToGiveUp) {
            *note = QStringLiteral("stopped after %1 tries in a row delivered nothing within %2 ms")
                        .arg(MissesToGiveUp)
                        .arg(waitMs);
            break;
        }
        if (!pause(PaceMs))
            break;
    }
    return tries;
}

QJsonObject Measurement::describe(const char* name, Session::Send kind, std::uint32_t number,
                                  const std::vector<Try>& tries, const QString& note)
{
    Counts c;
    c.tries = int(tries.size());
    std::set<long> threads;
    QJsonObject example;
    std::map<int, int> results;
    for (const Try& one : tries) {
        ++results[one.sent.result];
        if (kind == Session::Send::Command && one.sent.replyMagic == PayloadMagic && one.sent.replySeq == one.seq)
            ++c.replied;
        const DeliveryRecord* d = one.delivery;
        if (d == nullptr)
            continue;
        ++c.delivered;
        threads.insert(d->thread);
        ++(d->enterNs <= one.sent.returnNs ? c.beforeReturn : c.afterReturn);
        ++(d->thread == m_session.probeThread() ? c.sendingThread : c.otherThread);
        if (d->data1 == nullptr)
            ++c.noData;
        else if (d->data1 == one.sent.buffer)
            ++c.lent;
        else if (d->intact && d->seq == one.seq)
            ++c.copied;
        else
            ++c.altered;
        if (d->data1 != nullptr)
            ++(d->data2 == d->data1 ? c.sameAgain : d->data2 == nullptr ? c.nullAgain : c.otherAgain);
        if (example.isEmpty())
            example = QJsonObject{{"senderBuffer", address(one.sent.buffer)},
                                  {"dataFirstCall", address(d->data1)},
                                  {"dataSecondCall", address(d->data2)},
                                  {"size", d->size}};
    }
    m_counts[name] = c;

    QJsonObject out{{"number", hexNumber(number)},
                    {"tries", c.tries},
                    {"delivered", observation(c.delivered, c.tries)},
                    {"deliveredBeforeReturn", observation(c.beforeReturn, c.tries)},
                    {"deliveredAfterReturn", observation(c.afterReturn, c.tries)},
                    {"onSendingThread", observation(c.sendingThread, c.tries)},
                    {"onAnotherThread", observation(c.otherThread, c.tries)},
                    {"lent", observation(c.lent, c.tries)},
                    {"copied", observation(c.copied, c.tries)},
                    {"altered", observation(c.altered, c.tries)},
                    {"noData", observation(c.noData, c.tries)},
                    {"sameDataOnSecondCall", observation(c.sameAgain, c.tries)},
                    {"nullDataOnSecondCall", observation(c.nullAgain, c.tries)},
                    {"otherDataOnSecondCall", observation(c.otherAgain, c.tries)},
                    {"example", example}};
    QJsonArray threadList;
    for (long id : threads)
        threadList.append(threadName(id, m_session));
    out["deliveringThreads"] = threadList;
    if (kind == Session::Send::Command) {
        out["replyReachedSender"] = observation(c.replied, c.tries);
        QJsonObject resultCounts;
        for (const auto& entry : results)
            resultCounts[QString::number(entry.first)] = entry.second;
        out["results"] = resultCounts;
    }
    if (!note.isEmpty())
        out["note"] = note;
    return out;
}

void Measurement::postOrder()
{
    int postFirst = 0, sendFirst = 0, missing = 0, pairs = 0;
    for (int i = 0; i < OrderPairs && m_session.hasEventDispatcher() && !m_session.stopping(); ++i) {
        ++pairs;
        const std::uint32_t postSeq = ++m_seq;
        const Session::Sent posted = m_session.sendOwn(Session::Send::Post, MessageId::PostedEvent, postSeq);
        const std::uint32_t sendSeq = ++m_seq;
        const Session::Sent sent = m_session.sendOwn(Session::Send::Event, MessageId::SentEvent, sendSeq);
        m_ownSends += 2;
        const DeliveryRecord* post = awaitOwn(MessageId::PostedEvent, postSeq, posted.callNs, PostWaitMs);
        const DeliveryRecord* send = awaitOwn(MessageId::SentEvent, sendSeq, sent.callNs, SendWaitMs);
        if (post == nullptr || send == nullptr) {
            ++missing;
            if (missing == MissesToGiveUp)
                break;
            continue;
        }
        ++(post->enterNs < send->enterNs ? postFirst : sendFirst);
        pause(PaceMs);
    }
    m_report["postThenSendEvent"] =
        QJsonObject{{"pairs", pairs},
                    {"what", "postEvent, then at once sendEvent; which of the two reached the probe first"},
                    {"postDeliveredFirst", observation(postFirst, pairs)},
                    {"sendEventDeliveredFirst", observation(sendFirst, pairs)},
                    {"notBothDelivered", observation(missing, pairs)}};
}

int Measurement::countOf(std::uint32_t number, int component) const
{
    int count = 0;
    for (const DeliveryRecord* record : m_session.deliveries())
        count += record->number == number && record->component == component ? 1 : 0;
    return count;
}

void Measurement::fanOut()
{
    int probe = 0, witness = 0;
    for (int i = 0; i < FanOutTries && m_session.hasEventDispatcher() && !m_session.stopping(); ++i) {
        const int probeBefore = countOf(MessageId::FanOut, 0), witnessBefore = countOf(MessageId::FanOut, 1);
        m_session.sendOwn(Session::Send::Event, MessageId::FanOut, ++m_seq);
        ++m_ownSends;
        ++m_fanOutTries;
        const std::int64_t until = Session::nowNs() + std::int64_t(SendWaitMs) * 1000000;
        bool toProbe = false, toWitness = false;
        do {
            toProbe = countOf(MessageId::FanOut, 0) > probeBefore;
            toWitness = countOf(MessageId::FanOut, 1) > witnessBefore;
        } while (!(toProbe && toWitness) && Session::nowNs() < until && pause(1));
        probe += toProbe ? 1 : 0;
        witness += toWitness ? 1 : 0;
        m_fanOutBoth += toProbe && toWitness ? 1 : 0;
        pause(PaceMs);
    }
    m_report["fanOut"] = QJsonObject{{"number", hexNumber(MessageId::FanOut)},
                                     {"witnessStarted", m_session.witnessHasStarted()},
                                     {"reachedProbe", observation(probe, m_fanOutTries)},
                                     {"reachedWitness", observation(witness, m_fanOutTries)},
                                     {"reachedBoth", observation(m_fanOutBoth, m_fanOutTries)}};
}

namespace {
// One envelope query, asked as the view model asks it.
template <typename Info, typename Setup, typename Entries, typename Read>
QJsonObject envelopeQuery(Session& session, std::uint32_t number, Setup setup, Entries entries, Read read,
                          const std::function<void(const QString&)>& pending, int* own, int* elsewhere, int* nulled)
{
    QJsonArray tries;
    int answered = 0;
    for (int i = 0; i < QueryTries && !session.stopping(); ++i) {
        pending(QStringLiteral("command %1 sent (try %2 of %3); it had not returned when this was written: no answer")
                    .arg(hexNumber(number))
                    .arg(i + 1)
                    .arg(QueryTries));
        auto filterCalls = std::make_shared<std::atomic<int>>(0);
        QueryInfo<Info> envelope;
        setup(envelope, filterCalls);
        QueryInfo<Info>* pointer = &envelope;
        const int result = session.query(number, sizeof pointer, &pointer);
        QJsonObject one{{"result", result}, {"filterCalls", filterCalls->load()}};
        if (pointer == nullptr) {
            ++*nulled;
            one["says"] = "the asker's pointer variable was set to null";
        } else {
            const int count = entries(pointer->info);
            one["entries"] = count;
            if (pointer != &envelope) {
                ++*elsewhere;
                ++answered;
                one["says"] = QStringLiteral("answered elsewhere: the pointer variable moved from %1 to %2")
                                  .arg(address(&envelope), address(pointer));
                read(pointer->info);
            } else if (count > 0) {
                ++*own;
                ++answered;
                one["says"] = "answered in the asker's envelope";
                read(pointer->info);
            } else {
                one["says"] = result == 0 ? QStringLiteral("no answer: the list stayed empty")
                                          : QStringLiteral("no answer: nobody received the command");
            }
        }
        tries.append(one);
    }
    return {{"number", hexNumber(number)}, {"answered", observation(answered, int(tries.size()))}, {"tries", tries}};
}
} // namespace

void Measurement::queries()
{
    const auto pending = [this](const QString& text) { write(text); };
    QJsonObject queries;
    int own = 0, elsewhere = 0, nulled = 0, ignoredOwn = 0, ignoredElsewhere = 0, ignoredNulled = 0;

    queries["interfaces"] = envelopeQuery<Interface::s_InterfaceDetailInfo>(
        m_session, 0xFC050111u, [](auto&, auto&) {},
        [](const Interface::s_InterfaceDetailInfo& info) { return int(info.stInterfaceListArry.size()); },
        [this](const Interface::s_InterfaceDetailInfo& info) {
            if (!info.stInterfaceListArry.empty()) {
                m_slotId = info.stInterfaceListArry.front().slotId;
                m_connectorId = info.stInterfaceListArry.front().connectorId;
            }
        },
        pending, &own, &elsewhere, &nulled);
    m_ownEnvelope = own;
    m_elsewhere = elsewhere;
    m_nulled = nulled;
    QJsonObject interfaces = queries["interfaces"].toObject();
    interfaces["answeredInAskersEnvelope"] = observation(own, QueryTries);
    interfaces["answeredElsewhere"] = observation(elsewhere, QueryTries);
    interfaces["pointerNulled"] = observation(nulled, QueryTries);
    queries["interfaces"] = interfaces;

    // The screen filter the view model attaches.
    queries["screens"] = envelopeQuery<Screen::s_ScreenDetail>(
        m_session, 0xFC050200u,
        [](QueryInfo<Screen::s_ScreenDetail>& envelope, const std::shared_ptr<std::atomic<int>>& calls) {
            envelope.filter = [calls](std::map<std::string, std::string>& params) {
                ++*calls;
                params.clear();
                params["screenType"] = "2";
                return true;
            };
        },
        [](const Screen::s_ScreenDetail& info) { return int(info.stScreenDetailInfoArry.size()); },
        [](const Screen::s_ScreenDetail&) {}, pending, &ignoredOwn, &ignoredElsewhere, &ignoredNulled);

    queries["subcards"] = envelopeQuery<Subcard::s_SubcardQuery>(
        m_session, 0xFC0D1000u, [](auto& envelope, auto&) { envelope.info.request = 1; },
        [](const Subcard::s_SubcardQuery& info) { return int(info.stSubcardInfoArry.size()); },
        [this](const Subcard::s_SubcardQuery& info) {
            for (const Subcard::s_SubcardInfo& subcard : info.stSubcardInfoArry)
                for (const Subcard::s_SubcardConnector& connector : subcard.stConnectorArry)
                    if (subcard.slotId == m_slotId && connector.connectorId == m_connectorId)
                        m_connectorKey = connector.connectorKey;
        },
        pending, &ignoredOwn, &ignoredElsewhere, &ignoredNulled);

    queries["deviceParam"] = replyQuery(DeviceParamNumber);
    queries["selectedInterface"] = replyQuery(SelectedInterfaceNumber);
    m_report["queries"] = queries;
    for (const char* key : {"interfaces", "screens", "subcards", "deviceParam", "selectedInterface"}) {
        const QJsonObject query = queries[key].toObject();
        if (!query["answered"].toObject()["seen"].toBool())
            problem(QStringLiteral("query %1 (%2): no answer over %3 tries")
                        .arg(key, query["number"].toString())
                        .arg(query["answered"].toObject()["tries"].toInt()));
    }
}

QJsonObject Measurement::replyQuery(std::uint32_t number)
{
    QJsonArray tries;
    int answered = 0;
    for (int i = 0; i < QueryTries && !m_session.stopping(); ++i) {
        write(QStringLiteral("command %1 sent (try %2 of %3); it had not returned when this was written: no answer")
                  .arg(hexNumber(number))
                  .arg(i + 1)
                  .arg(QueryTries));
        int size = -1;
        std::vector<unsigned char> reply;
        const int result = m_session.rawQuery(number, &size, &reply);
        QJsonObject one{{"result", result}, {"replySize", size}};
        if (size < 0) {
            one["says"] = "no answer";
        } else if (size != 4 || reply.size() != 4) {
            one["says"] = reply.empty() && size > 0 ? QStringLiteral("size %1, expected 4, no data").arg(size)
                                                    : QStringLiteral("size %1, expected 4").arg(size);
        } else {
            std::int32_t value = 0;
            std::memcpy(&value, reply.data(), sizeof value);
            one["says"] = QStringLiteral("answered: %1").arg(value);
            one["value"] = value;
            ++answered;
            if (number == DeviceParamNumber)
                m_deviceParam = value;
        }
        tries.append(one);
    }
    return {{"number", hexNumber(number)}, {"answered", observation(answered, int(tries.size()))}, {"tries", tries}};
}

void Measurement::configServices()
{
    kpf::IHostApi* api = kpf::api::get().hostApi;
    auto* device =
        api != nullptr ? static_cast<DeviceConfigManager*>(api->findService("deviceconfigmanager")) : nullptr;
    auto* subcards =
        api != nullptr ? static_cast<SubcardConfigManager*>(api->findService("subcardconfigmanager")) : nullptr;
    QJsonObject out;
    std::int32_t subcard = -1;
    if (device == nullptr) {
        out["deviceconfigmanager"] = QJsonObject{{"called", false}, {"says", "not called: the service was not found"}};
    } else {
        subcard = device->subcardOfSlot(m_slotId);
        out["deviceconfigmanager"] = QJsonObject{
            {"called", true}, {"call", QStringLiteral("subcardOfSlot(%1)").arg(m_slotId)}, {"answer", subcard}};
    }
    if (subcards == nullptr) {
        out["subcardconfigmanager"] = QJsonObject{{"called", false}, {"says", "not called: the service was not found"}};
    } else {
        const std::vector<int> related = subcards->relatedConnectors(subcard, m_connectorKey, m_deviceParam);
        QJsonArray answer;
        for (int connector : related)
            answer.append(connector);
        out["subcardconfigmanager"] = QJsonObject{
            {"called", true},
            {"call",
             QStringLiteral("relatedConnectors(%1, %2, %3)").arg(subcard).arg(m_connectorKey).arg(m_deviceParam)},
            {"answer", answer}};
    }
    m_report["configServices"] = out;
}

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
    QJsonObject nested{{"insideOwnSends", observation(m_nestedSends, m_ownSends)},
                       {"numbers", list(numbers)},
                       {"currentInterfaceAfterCommandAnswered", observation(m_movingCommands, commands)},
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
                                          .arg(QueryTries));
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
    if (variations.isEmpty() && copied > 0)
        variation("default", QStringLiteral("payloads copied in %1 of %2 sends to itself, data() the same on a second "
                                            "call, the interface query answered in the asker's envelope in %3 of %4 "
                                            "tries, nothing delivered inside its own sends")
                                 .arg(copied)
                                 .arg(sends)
                                 .arg(m_ownEnvelope)
                                 .arg(QueryTries));
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
    was(m_nulled, QueryTries, QStringLiteral("the interface query set the asker's pointer variable to null"));
    m_report["outside"] = outside;
}

} // namespace Probe
