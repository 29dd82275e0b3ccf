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
#include <QJsonDocument>
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
constexpr int SendWaitMs = 200; // for a send that did not deliver before it returned
constexpr int MissesToGiveUp = 3;
constexpr int OrderPairs = 10;
constexpr int FanOutTries = 20;
constexpr int WitnessWaitMs = 2000;

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

} // namespace

QString libraryPath()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&libraryPath), &info) == 0 || info.dli_fname == nullptr)
        return QString();
    return QString::fromLocal8Bit(info.dli_fname);
}

QString threadName(long id, const Session& session)
{
    if (id == session.probeThread())
        return QStringLiteral("%1 (the probe's thread)").arg(id);
    if (id == session.startThread())
        return QStringLiteral("%1 (the thread that started the probe)").arg(id);
    return QStringLiteral("%1 (another thread)").arg(id);
}

Measurement::Measurement(Session& session) : m_session(session), m_file(session.reportDir()) {}

bool Measurement::pause(int ms) const
{
    return m_session.waitUnlessStopped(ms);
}

bool Measurement::write(const QString& pending)
{
    QJsonObject probe = m_report.value(QStringLiteral("probe")).toObject();
    // A stop during the measurements leaves them partial, whatever follows.
    if (m_session.stopping() && !m_measured)
        probe["state"] = "stopped";
    else
        probe["state"] = pending.isEmpty() && m_report.contains("variations") ? "finished" : "running";
    if (pending.isEmpty())
        probe.remove(QStringLiteral("pending"));
    else
        probe["pending"] = pending;
    // Earlier states the file never held: the one on disk says so.
    if (m_file.refused() + m_capRefused > 0)
        probe["writesRefused"] = m_file.refused() + m_capRefused;
    m_report["probe"] = probe;
    m_report["problems"] = m_problems;
    if (!m_capture.isEmpty())
        m_report["capture"] = m_capture;

    // A scenario whatever the state: the device as read so far, the steps
    // captured, the measurements kept apart.
    QJsonObject scenario{
        {"name", QStringLiteral("captured by the probe, pid %1").arg(probe["pid"].toInt())},
        {"description", QStringLiteral("the device's state and the events the view model handled, as the probe "
                                       "saw them from %1; the measurements are under \"report\"")
                            .arg(probe["started"].toString())},
        {"device", m_device.json.contains("interfaces") ? m_device.json : QJsonObject{{"interfaces", QJsonArray()}}},
        {"steps", m_steps},
        {"report", m_report}};
    // The one variation the host showed; answer-elsewhere lends payloads
    // on our host too, so the pair is that one.
    QStringList names;
    for (const QJsonValue& variation : m_report["variations"].toArray())
        names.append(variation["name"].toString());
    if (names == QStringList{"lent-payloads", "answer-elsewhere"})
        names.removeFirst();
    if (names.size() == 1)
        scenario["host"] = QJsonObject{{"variation", names.first()}};
    const QByteArray text = QJsonDocument(scenario).toJson();
    if (text.size() > CaptureCapBytes) {
        ++m_capRefused;
        return false;
    }
    m_file.write(text);
    return true;
}

bool Measurement::mayCapture()
{
    const auto refuse = [this](const QString& why) {
        m_capture = QJsonObject{{"state", "not started"}, {"why", why}};
        return false;
    };
    if (m_session.stopping())
        return refuse(QStringLiteral("the probe was stopped before it got there"));
    if (m_fanOutTries == 0 || m_fanOutBoth != m_fanOutTries)
        return refuse(QStringLiteral("one event reached both of the probe's components in %1 of %2 tries: on a host "
                                     "that gives an event to one subscriber only, subscribing would take the view "
                                     "model's events away; only the device's state is captured")
                          .arg(m_fanOutBoth)
                          .arg(m_fanOutTries));
    // The capture reads an event while the view model's delivery lasts: on
    // another thread, or after the send, the two would not take turns.
    const Counts& event = m_counts["sendEvent"];
    if (event.tries == 0 || event.beforeReturn != event.tries || event.sendingThread != event.tries)
        return refuse(QStringLiteral("sendEvent delivered before it returned on the sending thread in %1 of %2 "
                                     "tries; only the device's state is captured")
                          .arg(std::min(event.beforeReturn, event.sendingThread))
                          .arg(event.tries));
    // Where data() works once, the probe's read would leave the view model null.
    const int unstable = event.nullAgain + m_counts["sendCommand"].nullAgain;
    if (unstable != 0)
        return refuse(QStringLiteral("a second data() call returned null in %1 deliveries: reading an event would "
                                     "take its payload from the view model; only the device's state is captured")
                          .arg(unstable));
    return true;
}

void Measurement::capture()
{
    QJsonArray subscribed;
    for (std::uint32_t number : CapturedNumbers) {
        const int result = m_session.subscribeForCapture(number);
        if (result != 0)
            problem(QStringLiteral("the capture's subscription to %1 returned %2").arg(hexNumber(number)).arg(result));
        subscribed.append(QJsonObject{{"number", hexNumber(number)}, {"result", result}});
    }
    QJsonArray notCaptured;
    int notCapturedCount = 0;
    m_capture =
        QJsonObject{{"state", "capturing"}, {"capBytes", CaptureCapBytes}, {"subscriptions", subscribed}, {"events", 0},
                    {"steps", 0},           {"notCaptured", notCaptured}};
    m_session.startCapturing();
    write();
    int events = 0;
    std::size_t notKept = 0;
    for (bool going = true; going;) {
        going = pause(CapturePollMs);
        std::size_t dropped = 0;
        std::vector<CapturedEvent> taken = m_session.takeCaptured(&dropped);
        if (events == 0 && !taken.empty() && !deviceRead())
            rereadDevice();
        for (const CapturedEvent& event : taken) {
            ++events;
            QString why;
            const QJsonArray steps = stepsOf(event, m_device, &why);
            if (steps.isEmpty()) {
                ++notCapturedCount;
                if (notCaptured.size() < NotCapturedKept)
                    notCaptured.append(
                        QJsonObject{{"event", events}, {"number", hexNumber(event.number)}, {"why", why}});
                m_capture["notCaptured"] = notCaptured;
                m_capture["notCapturedCount"] = notCapturedCount;
            }
            for (const QJsonValue& step : steps)
                m_steps.append(step);
            m_capture["events"] = events;
            m_capture["steps"] = m_steps.size();
            if (write())
                continue;
            // Past the cap: this event's steps are taken back, and it ends.
            for (int i = 0; i < steps.size(); ++i)
                m_steps.removeLast();
            m_session.stopCapturing();
            m_capture["steps"] = m_steps.size();
            m_capture["state"] = "stopped";
            m_capture["why"] =
                QStringLiteral("the file reached its cap of %1 bytes at event %2; later events are not captured")
                    .arg(CaptureCapBytes)
                    .arg(events);
            // The last state must fit: the note and the list of events not
            // captured give way first.
            if (!write()) {
                m_capture["why"] = QStringLiteral("cap reached");
                while (!write() && !notCaptured.isEmpty()) {
                    notCaptured.removeLast();
                    m_capture["notCaptured"] = notCaptured;
                }
            }
            return;
        }
        if (dropped != 0) {
            notKept += dropped;
            m_capture["notKept"] =
                QStringLiteral("%1 events came faster than they could be written and were lost").arg(notKept);
            write();
        }
    }
    m_capture["state"] = "ended: the probe was stopped";
    write();
}

bool Measurement::deviceRead() const
{
    return !m_device.interfaces.empty() && !m_device.json["deviceParam"].isNull() &&
           !m_device.json["selectedInterface"].isNull();
}

void Measurement::rereadDevice()
{
    // Components started after the probe may answer by now; what was read
    // at the start stays.
    const QJsonObject atStart = m_report["queries"].toObject();
    for (const char* key : {"interfaces", "screens", "subcards"})
        if (m_device.json[key].toArray().isEmpty())
            m_device.json.remove(key);
    for (const char* key : {"selectedInterface", "deviceParam"})
        if (m_device.json[key].isNull())
            m_device.json.remove(key);
    queries();
    configServices();
    m_report["queriesAtFirstEvent"] = m_report["queries"];
    m_report["queries"] = atStart;
}

void Measurement::run()
{
    m_report["probe"] = QJsonObject{
        {"version", "0.1.0"},
        {"started", QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)},
        {"pid", int(getpid())},
        {"report", m_file.path()},
        {"reportDirFrom",
         m_session.reportDirFromVariable() ? QString::fromLatin1(ReportDirVariable) : QStringLiteral("the default")},
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
    m_measured = !m_session.stopping();
    // Decided before the finished report is written, which then says so.
    const bool capturing = mayCapture();
    write();
    if (capturing)
        capture();
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

} // namespace Probe
