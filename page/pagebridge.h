// SPDX-License-Identifier: MIT
#pragma once

// The page's side of the component: what the component sends to the page
// becomes properties the page shows, and what the user does on the page
// becomes the messages the device's page sends, played through the
// simulator so that every one of them is traced.

#include "sim/player.h"
#include "sim/scenario.h"

#include <QObject>
#include <QString>
#include <QVariantList>

#include <cstdint>

namespace LCD {
namespace ProtoModel {
namespace Interface {
struct s_InterfaceList;
struct s_TimigCheckResult;
} // namespace Interface
} // namespace ProtoModel
} // namespace LCD

namespace edidvm {
namespace page {

class PageBridge : public QObject
{
    Q_OBJECT
    // false until a step or an action has read the device: before it the
    // page knows nothing of its interfaces
    Q_PROPERTY(bool fetched READ fetched NOTIFY changed)
    // {id, text, inUse}, one per interface of the device
    Q_PROPERTY(QVariantList interfaces READ interfaces NOTIFY changed)
    Q_PROPERTY(int currentInterface READ currentInterface NOTIFY changed)
    Q_PROPERTY(QString currentText READ currentText NOTIFY changed)
    // "yes", "no", or empty until the component has told
    Q_PROPERTY(QString inUse READ inUse NOTIFY changed)
    Q_PROPERTY(QString thumbTiming READ thumbTiming NOTIFY changed)
    // Why the thumb timing shown is not what the device has; empty when it is.
    Q_PROPERTY(QString thumbNote READ thumbNote NOTIFY changed)
    Q_PROPERTY(QString detailTiming READ detailTiming NOTIFY changed)
    Q_PROPERTY(QString notice READ notice NOTIFY changed)
    // {text, traced, enabled, reason}: the device's timing and the EDID's modes
    Q_PROPERTY(QVariantList candidates READ candidates NOTIFY changed)
    // {text, over}: the verdicts of the last timing check
    Q_PROPERTY(QVariantList verdicts READ verdicts NOTIFY changed)
    // "thumb" or "detail" once a check has been answered
    Q_PROPERTY(QString verdictsOf READ verdictsOf NOTIFY changed)
    // The interface current when the verdicts came; 0 before any
    Q_PROPERTY(int verdictsInterface READ verdictsInterface NOTIFY changed)
    Q_PROPERTY(bool confirmVisible READ confirmVisible NOTIFY changed)
    Q_PROPERTY(QString confirmText READ confirmText NOTIFY changed)
    Q_PROPERTY(bool warningVisible READ warningVisible NOTIFY changed)
    Q_PROPERTY(QString warningText READ warningText NOTIFY changed)
    Q_PROPERTY(bool waiting READ waiting NOTIFY changed)
    Q_PROPERTY(QString waitingText READ waitingText NOTIFY changed)
    Q_PROPERTY(QString status READ status NOTIFY changed)
    // What the last step or action did, {kind, text}, in order: kind is
    // "passed" or "failed" (its expectations), "failure" (the device's
    // assessment or write failed), "difference" (one of a failed step's
    // first differences), "done", "waiting" or "info".
    Q_PROPERTY(QVariantList outcomes READ outcomes NOTIFY changed)
    // The step the outcomes are of; -1 for a user's action
    Q_PROPERTY(int outcomesOf READ outcomesOf NOTIFY changed)
    Q_PROPERTY(int nextStep READ nextStep NOTIFY changed)
    Q_PROPERTY(int stepCount READ stepCount CONSTANT)

public:
    // The player has not started yet; the bridge observes it from now on.
    PageBridge(sim::Player& player, const sim::Scenario& scenario, QObject* parent = nullptr);

    bool fetched() const { return m_fetched; }
    QVariantList interfaces() const { return m_interfaces; }
    int currentInterface() const { return m_current; }
    QString currentText() const;
    QString inUse() const { return m_inUse; }
    QString thumbTiming() const { return m_thumb; }
    QString thumbNote() const { return m_thumbNote; }
    QString detailTiming() const { return m_detail; }
    QString notice() const { return m_notice; }
    QVariantList candidates() const { return m_candidates; }
    QVariantList verdicts() const { return m_verdicts; }
    QString verdictsOf() const { return m_verdictsOf; }
    int verdictsInterface() const { return m_verdictsInterface; }
    bool confirmVisible() const { return m_confirmVisible; }
    QString confirmText() const { return m_confirmText; }
    bool warningVisible() const { return m_warningVisible; }
    QString warningText() const { return m_warningText; }
    bool waiting() const { return m_waiting; }
    QString waitingText() const { return m_waitingText; }
    QString status() const { return m_status; }
    QVariantList outcomes() const { return m_outcomes; }
    int outcomesOf() const { return m_outcomesOf; }
    int nextStep() const { return static_cast<int>(m_next); }
    int stepCount() const { return static_cast<int>(m_scenario.steps.size()); }

    // What the component sent, while its payload lives. Public so that a
    // payload no scenario makes can be shown too.
    void received(std::uint32_t number, const void* data, int size);
    // A queued event the host delivers to the page.
    void delivered(std::uint32_t number, const void* data, int size);
    // Plays the scenario's next step; false when there is none or it did
    // not meet its expectations.
    bool playNext();
    // The confirmation box the component is waiting on; 0 when none.
    int pendingBox() const { return m_confirmVisible ? m_confirmBox : 0; }

    // The user's actions.
    Q_INVOKABLE void selectInterface(int id);
    Q_INVOKABLE void refresh();
    Q_INVOKABLE void checkTimings();
    Q_INVOKABLE void chooseThumb(int candidate);
    Q_INVOKABLE void chooseReference(int candidate);
    Q_INVOKABLE void answer(bool accept);
    Q_INVOKABLE void dismissWarning();
    Q_INVOKABLE void playNextStep() { playNext(); }

signals:
    void changed();

private:
    static QString interfaceText(const LCD::ProtoModel::Interface::s_InterfaceList& entry);
    static QString verdictText(const LCD::ProtoModel::Interface::s_TimigCheckResult& verdict);
    static QString differenceText(const sim::Difference& difference);
    // Before a step or action reaches the component: boxes it closes, the
    // interface it makes current.
    void before(const sim::Step& step);
    // shown on the page, traced in English whatever the page's language
    void act(const sim::Step& step, const QString& shown, const std::string& traced);
    void updateDevice();
    // After a step or action: what the waiting indicator did during it.
    void after();
    void outcome(const char* kind, const QString& text);
    void choose(int candidate, bool thumb);

    sim::Player& m_player;
    const sim::Scenario& m_scenario;
    std::size_t m_next = 0;

    bool m_fetched = false;
    QVariantList m_interfaces;
    int m_current = 0;
    QString m_inUse;
    QString m_thumb;
    QString m_thumbNote;
    bool m_writeFailed = false; // the last thumb write was refused or never answered
    QString m_detail;
    QString m_notice;
    QVariantList m_candidates;
    QVariantList m_verdicts;
    QString m_verdictsOf;
    int m_verdictsInterface = 0;
    bool m_confirmVisible = false;
    int m_confirmBox = 0;
    QString m_confirmText;
    bool m_warningVisible = false;
    QString m_warningText;
    bool m_waiting = false;
    QString m_waitingText;
    QString m_status;
    QVariantList m_outcomes;
    int m_outcomesOf = -1;
    int m_waitingShown = 0; // in this step or action
    int m_waitingHidden = 0;
    bool m_failureQueued = false; // an assessment failure not yet delivered
};

// A text field of a record: up to the first NUL or the field's end, as UTF-8;
// a character cut at the end is left out, never shown as a replacement.
QString fieldText(const char* text, std::size_t capacity);

} // namespace page
} // namespace edidvm
