// SPDX-License-Identifier: MIT
// The desktop page offscreen: after every step of a shipped scenario its
// items show what the component sent; the bridge where its mapping can fail.

#include "page/pagesession.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/messageids.h"
#include "viewmodel/viewmodelrecords.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegularExpression>
#include <QTranslator>
#include <QVariant>

#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <string>

namespace msg = LCD::MessageId;

namespace {
using namespace edidvm;
using namespace LCD::ProtoModel::Interface;

// What the page must show, worked out from the component's sends alone.
struct Sent
{
    std::optional<QString> thumb; // "WxH" of the last thumb timing
    std::optional<QString> detail;
    std::optional<QString> confirm; // the text of a confirmation not yet answered
    bool waiting = false;
    std::optional<int> verdicts;
    // In this step: the bandwidth box, how often the indicator was shown,
    // the assessment failure code posted, whether a thumb write was sent
    // and whether the component said it is committed.
    struct Step
    {
        std::optional<QString> warning;
        int waitingShown = 0;
        std::optional<int> failureCode;
        bool thumbWrite = false, committed = false;
    } now;

    void take(std::uint32_t number, const void* data, int size)
    {
        const auto resolution = [](std::int32_t width, std::int32_t height) {
            return QStringLiteral("%1x%2").arg(width).arg(height);
        };
        if ((number == msg::ThumbTiming || number == msg::ChangedThumb || number == msg::CommittedThumb) &&
            size == sizeof(s_ThumbTimingInfo)) {
            now.committed = number == msg::CommittedThumb;
            const auto* timing = static_cast<const s_ThumbTimingInfo*>(data);
            thumb = resolution(timing->width, timing->height);
        } else if ((number == msg::DetailTiming || number == msg::ChangedDetail) &&
                   size == sizeof(s_TimingDetailInfo)) {
            const auto* timing = static_cast<const s_TimingDetailInfo*>(data);
            detail = resolution(timing->width, timing->height);
        } else if (number == msg::Confirmation && size == sizeof(Model::s_MessageBoxRequest)) {
            confirm = QString::fromUtf8(static_cast<const Model::s_MessageBoxRequest*>(data)->text);
        } else if (number == msg::MessageBox && size == sizeof(Model::s_MessageBoxRequest)) {
            now.warning = QString::fromUtf8(static_cast<const Model::s_MessageBoxRequest*>(data)->text);
        } else if (number == msg::ShowWaiting || number == msg::HideWaiting) {
            waiting = number == msg::ShowWaiting;
            now.waitingShown += waiting ? 1 : 0;
        } else if ((number == msg::ThumbCheckResults || number == msg::DetailCheckResults) &&
                   size == sizeof(s_TimigCheckResultArry)) {
            verdicts = static_cast<int>(static_cast<const s_TimigCheckResultArry*>(data)->size());
        } else if (number == msg::AssessFailed && size == sizeof(std::int32_t)) {
            now.failureCode = *static_cast<const std::int32_t*>(data);
        } else if (number == msg::WriteThumb) {
            now.thumbWrite = true;
        }
    }
};

QVariant item(QQuickWindow* window, const char* name, const char* property = "text")
{
    const auto* found = window->findChild<QObject*>(QString::fromLatin1(name));
    return found == nullptr ? QVariant() : found->property(property);
}

// Items made by a list's or repeater's delegate, which are no QObject
// children of the window: the visual tree is walked.
QList<QQuickItem*> items(QQuickItem* under, const QString& name)
{
    QList<QQuickItem*> found;
    for (QQuickItem* child : under->childItems()) {
        if (child->objectName() == name)
            found.push_back(child);
        found += items(child, name);
    }
    return found;
}

// The outcome of the given kind whose text holds the given words, if any.
bool hasOutcome(const page::PageBridge& bridge, const char* kind, const QString& words = {})
{
    for (const QVariant& entry : bridge.outcomes()) {
        const QVariantMap outcome = entry.toMap();
        if (outcome.value(QStringLiteral("kind")).toString() == kind &&
            outcome.value(QStringLiteral("text")).toString().contains(words))
            return true;
    }
    return false;
}

std::string traceOf(std::FILE* file)
{
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    return text;
}

TEST(Page, EveryStepShowsWhatTheComponentSent)
{
    struct Row
    {
        const char* name;
        // The device changed before the first step.
        std::function<void(sim::Device&)> change;
        std::optional<std::size_t> fails; // the step that then misses its expectations
    };
    const Row rows[] = {
        {"two-screens-declined", {}, {}},
        {"two-screens-confirmed", {}, {}},
        {"two-screens-confirmed", [](sim::Device& device) { device.thumbCommitAnswer.reset(); }, {}},
        {"two-screens-confirmed", [](sim::Device& device) { device.thumbCommitAnswer = 1; }, 2},
        {"timing-checks", {}, {}},
        {"bandwidth-rejected", {}, {}},
        {"assessment-failed", {}, {}},
        {"chained-choices", {}, {}},
        {"edid-interface", {}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        sim::Scenario scenario = sim::loadScenario(std::string(EDIDVM_SCENARIO_DIR "/") + row.name + ".json");
        if (row.change)
            row.change(scenario.device);
        std::FILE* out = std::tmpfile();
        sim::Trace trace(out, false, false);
        Sent sent;
        {
            page::PageSession session(scenario, trace);
            ASSERT_TRUE(session.open(EDIDVM_PLUGIN_PATH));
            session.player().addObserver([&sent](const host::SentMessage& message, const void* data) {
                sent.take(message.number, data, message.size);
            });
            QQuickWindow* window = session.window();
            const page::PageBridge& bridge = session.bridge();
            window->show();
            QCoreApplication::processEvents();
            // Nothing read from the device yet, though it has interfaces: the page says so.
            EXPECT_EQ(item(window, "interfaceList", "count").toInt(), 0);
            EXPECT_TRUE(item(window, "noInterfaces", "visible").toBool());
            EXPECT_TRUE(item(window, "noInterfaces").toString().startsWith(QStringLiteral("Nothing")));
            for (std::size_t step = 0; step < scenario.steps.size(); ++step) {
                SCOPED_TRACE(scenario.steps[step].name + " " + std::to_string(step));
                // An answer closes the box whatever the component does next.
                if (scenario.steps[step].action == sim::Action::Answer)
                    sent.confirm.reset();
                // The bandwidth box takes no answer: the next step closes it, sending nothing.
                const bool boxLeft = sent.now.warning.has_value();
                sent.now = {};
                const bool fails = row.fails == step;
                EXPECT_EQ(session.bridge().playNext(), !fails);
                QCoreApplication::processEvents();
                const auto shows = [window](const char* name, const std::optional<QString>& start) {
                    return !start || item(window, name).toString().startsWith(*start);
                };
                EXPECT_TRUE(shows("thumbTiming", sent.thumb));
                EXPECT_TRUE(shows("detailTiming", sent.detail));
                EXPECT_EQ(item(window, "confirmBox", "visible").toBool(), sent.confirm.has_value());
                EXPECT_TRUE(!sent.confirm || item(window, "confirmText").toString() == *sent.confirm);
                EXPECT_EQ(item(window, "warningBox", "visible").toBool(), sent.now.warning.has_value());
                EXPECT_TRUE(!sent.now.warning || item(window, "warningText").toString() == *sent.now.warning);
                EXPECT_EQ(item(window, "waitingIndicator", "visible").toBool(), sent.waiting);
                EXPECT_EQ(item(window, "verdictList", "count").toInt(), sent.verdicts.value_or(0));
                // Numbered from 0, as the trace is.
                const QString status = item(window, "status").toString();
                EXPECT_TRUE(status.startsWith(
                    QStringLiteral("Step %1 (steps 0 to %2)").arg(step).arg(scenario.steps.size() - 1)));

                // What the step did, in words on the page.
                const bool expects = scenario.steps[step].expect || scenario.steps[step].warnings;
                EXPECT_EQ(hasOutcome(bridge, "passed"), expects && !fails);
                EXPECT_EQ(hasOutcome(bridge, "failed"), fails);
                EXPECT_EQ(hasOutcome(bridge, "difference", "0xFC"), fails);
                // Three differences shown, the rest counted.
                const int more = static_cast<int>(session.player().lastOutcome().differences.size()) - 3;
                EXPECT_EQ(hasOutcome(bridge, "difference", QStringLiteral("and %1 more").arg(more)), more > 0);
                EXPECT_EQ(hasOutcome(bridge, "info", "bandwidth box was closed"), boxLeft);
                EXPECT_EQ(hasOutcome(bridge, "waiting", "shown and hidden"),
                          sent.now.waitingShown > 0 && !sent.waiting);
                EXPECT_TRUE(!sent.now.failureCode ||
                            hasOutcome(bridge, "failure", QStringLiteral("code %1").arg(*sent.now.failureCode)));
                if (scenario.steps[step].action == sim::Action::Pump) {
                    EXPECT_EQ(hasOutcome(bridge, "failure", "reached the page"),
                              scenario.name == "a failed assessment");
                }
                const sim::Device& device = session.player().device().state();
                const bool taken = device.thumbCommitAnswer == std::optional<std::uint8_t>(0) && device.writesApply;
                EXPECT_EQ(hasOutcome(bridge, "done", "wrote the thumb"), sent.now.thumbWrite && taken);
                EXPECT_EQ(hasOutcome(bridge, "failure", "thumb timing"), sent.now.thumbWrite && !taken);
                // A write the device did not take, which the component commits anyway.
                EXPECT_TRUE(!sent.now.thumbWrite || bridge.thumbNote().isEmpty() == (taken || !sent.now.committed));

                // Labels that say what they show, whole.
                EXPECT_TRUE(
                    shows("notice", bridge.notice().isEmpty() ? QStringLiteral("-") : QStringLiteral("word 0: ")));
                const QList<QQuickItem*> labels = items(window->contentItem(), "interfaceLabel");
                EXPECT_EQ(labels.size(), bridge.interfaces().size());
                for (QQuickItem* label : labels + items(window->contentItem(), "candidateLabel")) {
                    EXPECT_TRUE(label->property("text").toString().contains(
                        QRegularExpression(QStringLiteral("^(Interface \\d+: |device: |EDID: )"))));
                    EXPECT_FALSE(label->property("truncated").toBool())
                        << label->property("text").toString().toStdString();
                }
                // The step's outcome stays in sight whatever box is up.
                const auto* outcomes = window->findChild<QQuickItem*>(QStringLiteral("outcomeBox"));
                for (const char* modal : {"shade", "confirmBox", "warningBox", "waitingIndicator"}) {
                    const auto* box = window->findChild<QQuickItem*>(QString::fromLatin1(modal));
                    EXPECT_FALSE(box->isVisible() && outcomes->isVisible() &&
                                 box->mapRectToScene(box->boundingRect())
                                     .intersects(outcomes->mapRectToScene(outcomes->boundingRect())))
                        << modal;
                }
                const auto* candidates = window->findChild<QQuickItem*>(QStringLiteral("candidateList"));
                EXPECT_EQ(item(window, "candidateScroll", "policy").toInt() == Qt::ScrollBarAlwaysOn,
                          candidates->property("contentHeight").toReal() > candidates->height());
                const bool elsewhere =
                    !bridge.verdictsOf().isEmpty() && bridge.verdictsInterface() != bridge.currentInterface();
                const QString title = item(window, "verdictBox", "title").toString();
                EXPECT_TRUE(bridge.verdictsOf().isEmpty() ||
                            title.endsWith(QString::number(bridge.verdictsInterface())));
                const QList<QQuickItem*> notCurrent = items(window->contentItem(), "verdictsNotCurrent");
                EXPECT_TRUE(notCurrent.size() == 1 && notCurrent.front()->isVisible() == elsewhere);
            }
            EXPECT_FALSE(session.bridge().playNext());
            EXPECT_EQ(session.close(), 0);
        }
        std::fclose(out);
    }
}

TEST(Page, GermanShowsTheLibrarysAndThePagesOwnTexts)
{
    // As edidsim page --lang de installs them.
    QTranslator library;
    QTranslator own;
    ASSERT_TRUE(library.load(QStringLiteral("outputedidviewmodel_de"), QStringLiteral(EDIDVM_TRANSLATIONS_DIR)));
    ASSERT_TRUE(own.load(QStringLiteral("edidsim_de"), QStringLiteral(EDIDVM_TRANSLATIONS_DIR)));
    QCoreApplication::installTranslator(&library);
    QCoreApplication::installTranslator(&own);
    sim::Scenario scenario = sim::loadScenario(EDIDVM_SCENARIO_DIR "/two-screens-confirmed.json");
    // The write refused: the last step misses its expectations.
    scenario.device.thumbCommitAnswer = 1;
    std::FILE* out = std::tmpfile();
    sim::Trace trace(out, false, false);
    {
        page::PageSession session(scenario, trace);
        ASSERT_TRUE(session.open(EDIDVM_PLUGIN_PATH));
        QQuickWindow* window = session.window();
        EXPECT_EQ(window->title(), QStringLiteral("Ausgabe-Timing"));
        EXPECT_TRUE(item(window, "noInterfaces").toString().startsWith(QStringLiteral("Vom Gerät")));
        while (session.bridge().nextStep() < session.bridge().stepCount())
            session.bridge().playNext();
        QCoreApplication::processEvents();
        EXPECT_TRUE(item(window, "status").toString().startsWith(QStringLiteral("Schritt 2 (Schritte 0 bis 2)")));
        // The library's waiting text inside the page's own sentence.
        EXPECT_TRUE(hasOutcome(session.bridge(), "waiting", "Warteanzeige („Wird geladen"));
        // The page's words around the trace's lines.
        EXPECT_TRUE(hasOutcome(session.bridge(), "difference", "fehlt: 0xFC020611 CommittedThumb"));
        EXPECT_TRUE(hasOutcome(session.bridge(), "difference", "weitere, im Trace"));
        session.bridge().selectInterface(5);
        EXPECT_EQ(session.bridge().status(), QStringLiteral("Schnittstelle 5 zur aktuellen gemacht"));
        session.close();
    }
    QCoreApplication::removeTranslator(&own);
    QCoreApplication::removeTranslator(&library);
    // The trace stays English whatever the page's language.
    EXPECT_NE(traceOf(out).find("page: interface 5 made current"), std::string::npos);
    std::fclose(out);
}

TEST(PageBridge, FieldTextDropsOnlyACutCharacter)
{
    struct Row
    {
        const char* text;
        std::size_t capacity;
        const char* shown;
    };
    const Row rows[] = {
        {"abc", 8, "abc"},
        {"abcdef", 3, "abc"},            // no NUL in the field
        {"ab\xC3\xA4", 4, "ab\xC3\xA4"}, // a two-byte character that fits exactly
        {"ab\xC3\xA4", 3, "ab"},         // and one cut after its first byte
        {"a\xE2\x82\xAC", 3, "a"},       // three bytes, two fit
        {"a\xF0\x9F\x98\x80", 4, "a"},   // four bytes, three fit
        {"a\xF0\x9F\x98\x80", 5, "a\xF0\x9F\x98\x80"},
        {"", 0, ""},
    };
    for (const Row& row : rows)
        EXPECT_EQ(page::fieldText(row.text, row.capacity), QString::fromUtf8(row.shown)) << row.text;
    EXPECT_EQ(page::fieldText(nullptr, 8), QString());
}

TEST(PageBridge, WhatCannotBeShownLeavesAnEmptyState)
{
    sim::Scenario scenario; // a device with no interfaces
    std::FILE* out = std::tmpfile();
    sim::Trace trace(out, false, false);
    page::PageSession session(scenario, trace);
    ASSERT_TRUE(session.open(EDIDVM_PLUGIN_PATH));
    QQuickWindow* window = session.window();
    page::PageBridge& bridge = session.bridge();
    QCoreApplication::processEvents();
    EXPECT_TRUE(item(window, "noInterfaces", "visible").toBool());
    EXPECT_EQ(item(window, "currentInterface").toString(), QStringLiteral("no interface chosen"));

    bridge.selectInterface(2147483647);
    bridge.checkTimings();
    bridge.chooseThumb(0);
    bridge.answer(true);
    QCoreApplication::processEvents();
    EXPECT_EQ(bridge.currentText(), QStringLiteral("interface 2147483647 is not on the device"));
    EXPECT_TRUE(item(window, "noCandidates", "visible").toBool());
    EXPECT_FALSE(item(window, "confirmBox", "visible").toBool());

    // A check answered with no verdicts, then payloads of the wrong size or none.
    const s_TimigCheckResultArry none;
    bridge.received(msg::ThumbCheckResults, &none, sizeof none);
    QCoreApplication::processEvents();
    EXPECT_EQ(bridge.verdictsOf(), QStringLiteral("thumb"));
    EXPECT_TRUE(item(window, "noVerdicts", "visible").toBool());
    const QList<QQuickItem*> title = items(window->contentItem(), "verdictTitle");
    ASSERT_EQ(title.size(), 1);
    EXPECT_TRUE(title.front()->property("text").toString().endsWith(QStringLiteral(" 2147483647")));
    EXPECT_FALSE(title.front()->property("truncated").toBool());
    Model::s_MessageBoxRequest box;
    box.boxId = 35;
    bridge.received(msg::Confirmation, &box, sizeof box - 1);
    bridge.received(msg::Confirmation, nullptr, sizeof box);
    bridge.received(msg::ThumbTiming, &box, 4);
    bridge.received(msg::ShowWaiting, nullptr, 12);
    EXPECT_FALSE(bridge.confirmVisible());
    EXPECT_EQ(bridge.thumbTiming(), QString());
    EXPECT_TRUE(bridge.waiting());
    EXPECT_EQ(bridge.waitingText(), QString());

    // A box text filling its field, its last character cut by the field's end.
    std::memset(box.text, 'x', sizeof box.text);
    std::memcpy(box.text + sizeof box.text - 1, "\xC3", 1);
    bridge.received(msg::Confirmation, &box, sizeof box);
    QCoreApplication::processEvents();
    EXPECT_EQ(item(window, "confirmText").toString(), QString(sizeof box.text - 1, QLatin1Char('x')));
    EXPECT_EQ(bridge.pendingBox(), 35);
    EXPECT_EQ(session.close(), 0);
    EXPECT_NE(traceOf(out).find("the page closed while box 35 waited for an answer"), std::string::npos);
    std::fclose(out);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_QUICK_BACKEND", "software");
    QGuiApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
