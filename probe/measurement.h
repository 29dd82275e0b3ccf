// SPDX-License-Identifier: MIT
#pragma once

// The measurements, in order, on the probe's own thread, then the capture.
// Every wait is bounded and gives way to a stop; only a host call that
// never returns can hold the thread, and the report written before it says
// so. The file is a scenario: the device's state as the queries read it,
// the captured steps, and the measurements under "report".

#include "probe/capture.h"
#include "probe/report.h"
#include "probe/session.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Probe {

constexpr int QueryTries = 3;
// The report file never grows past this; the capture stops there.
constexpr int CaptureCapBytes = 1 << 20;
constexpr int CapturePollMs = 20;
constexpr int NotCapturedKept = 100; // events not captured, listed; the rest counted
constexpr int PostWaitMs = 1000;     // for a posted event
constexpr std::uint32_t DeviceParamNumber = 0xFC000004u;
constexpr std::uint32_t SelectedInterfaceNumber = 0xFC08100Au;

// The probe library's own path.
QString libraryPath();
// "3247 (the probe's thread)"
QString threadName(long id, const Session& session);

class Measurement
{
public:
    explicit Measurement(Session& session);
    void run();

private:
    struct Try
    {
        std::uint32_t seq = 0;
        Session::Sent sent;
        const DeliveryRecord* delivery = nullptr;
    };
    // What a series of own sends showed, for the conclusions.
    struct Counts
    {
        int tries = 0, delivered = 0, beforeReturn = 0, afterReturn = 0, sendingThread = 0, otherThread = 0;
        int lent = 0, copied = 0, altered = 0, noData = 0, sameAgain = 0, nullAgain = 0, otherAgain = 0;
        int replied = 0;
    };

    void services();
    void waitForWitness();
    std::vector<Try> series(Session::Send kind, std::uint32_t number, int count, int waitMs, QString* note);
    QJsonObject describe(const char* name, Session::Send kind, std::uint32_t number, const std::vector<Try>& tries,
                         const QString& note);
    void postOrder();
    void fanOut();
    void queries();
    QJsonObject replyQuery(std::uint32_t number);
    void configServices();
    // Whether the interfaces, the device parameter and the selected
    // interface were read; if not, the capture reads them again once.
    bool deviceRead() const;
    void rereadDevice();
    // The configuration services' answers in the device's subcards.
    void subcardInDevice(std::int32_t subcard);
    void tiedInDevice(std::int32_t subcard, const QJsonArray& tied);
    void deliveryThreads();
    void nesting();
    QJsonObject memory() const;
    void conclude();
    // Whether the capture is safe on this host; if not, m_capture says why.
    bool mayCapture();
    // Subscribes the events to capture and writes each as a step, until stopped.
    void capture();

    const DeliveryRecord* awaitOwn(std::uint32_t number, std::uint32_t seq, std::int64_t afterNs, int waitMs);
    int countOf(std::uint32_t number, int component) const;
    bool pause(int ms) const;
    // false when the file would pass the cap.
    bool write(const QString& pending = QString());
    void problem(const QString& text) { m_problems.append(text); }

    Session& m_session;
    ReportFile m_file;
    QJsonObject m_report;
    QJsonArray m_problems;
    std::uint32_t m_seq = 0;
    std::set<const DeliveryRecord*> m_claimed;
    std::map<std::string, Counts> m_counts;
    int m_ownSends = 0;
    int m_capRefused = 0; // writes past the cap
    // Read from the query answers for the configuration services' calls.
    std::int32_t m_slotId = 0, m_connectorId = 0, m_connectorKey = 0, m_deviceParam = -1;
    bool m_interfaceRead = false, m_connectorKeyRead = false;
    int m_elsewhere = 0, m_nulled = 0, m_ownEnvelope = 0, m_interfaceTries = 0;
    bool m_measured = false; // every measurement ran to its end
    int m_nestedSends = 0, m_movingCommands = 0;
    int m_fanOutTries = 0, m_fanOutBoth = 0;
    // The scenario: the device's state and the captured steps.
    DeviceState m_device;
    QJsonArray m_steps;
    QJsonObject m_capture; // the capture's own account, in the report
};

} // namespace Probe
