// SPDX-License-Identifier: MIT
// What the user does on the page, delivered as the device's page sends it.

#include "page/pagebridge.h"
#include "page/pagetext_p.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/messageids.h"
#include "viewmodel/viewmodelrecords.h"

namespace msg = LCD::MessageId;

namespace edidvm {
namespace page {

using namespace LCD::ProtoModel::Interface;

void PageBridge::act(const sim::Step& step, const QString& shown, const std::string& traced)
{
    before(step);
    m_outcomesOf = -1;
    m_status = shown;
    m_player.act(step, "page: " + traced);
    // The device's host delivers what was queued before the user goes on.
    if (m_failureQueued) {
        sim::Step pump;
        pump.action = sim::Action::Pump;
        pump.name = "pump";
        m_player.act(pump, "page: the host delivers queued events");
    }
    after();
    m_fetched = true;
    updateDevice();
    emit changed();
}

void PageBridge::selectInterface(int id)
{
    sim::Step step;
    step.action = sim::Action::Current;
    step.name = "current";
    step.number = msg::SetCurrentInterface;
    step.interfaceId = id;
    const QString shown = PageText::tr("interface %1 made current").arg(id);
    const std::string traced = "interface " + std::to_string(id) + " made current";
    act(step, shown, traced);
    sim::Step asked;
    asked.action = sim::Action::InUse;
    asked.name = "inUse";
    asked.number = msg::InUseAsked;
    act(asked, shown, traced);
}

void PageBridge::refresh()
{
    sim::Step step;
    step.action = sim::Action::Refresh;
    step.name = "refresh";
    step.number = msg::RefreshTiming;
    act(step, PageText::tr("refreshed"), "refreshed");
}

void PageBridge::checkTimings()
{
    sim::Step step;
    step.action = sim::Action::ThumbCheck;
    step.name = "thumbCheck";
    step.number = msg::ThumbCheckRequest;
    for (const QVariant& item : m_candidates) {
        const QVariantMap candidate = item.toMap();
        if (!candidate.value(QStringLiteral("enabled")).toBool())
            continue;
        s_ThumbTimigCheck check;
        check.interfaceId = m_current;
        check.stThumbTiming.width = candidate.value(QStringLiteral("width")).toInt();
        check.stThumbTiming.height = candidate.value(QStringLiteral("height")).toInt();
        check.stThumbTiming.refresh = candidate.value(QStringLiteral("refresh")).toFloat();
        step.thumbChecks.push_back(check);
    }
    const int checked = static_cast<int>(step.thumbChecks.size());
    act(step, PageText::tr("%n timing(s) checked", nullptr, checked), std::to_string(checked) + " timing(s) checked");
}

void PageBridge::choose(int candidate, bool thumb)
{
    if (candidate < 0 || candidate >= m_candidates.size())
        return;
    const QVariantMap chosen = m_candidates.at(candidate).toMap();
    if (!chosen.value(QStringLiteral("enabled")).toBool())
        return;
    const auto fill = [&chosen](auto& record) {
        record.width = chosen.value(QStringLiteral("width")).toInt();
        record.height = chosen.value(QStringLiteral("height")).toInt();
        record.refresh = chosen.value(QStringLiteral("refresh")).toFloat();
    };
    sim::Step step;
    step.action = thumb ? sim::Action::ChooseThumb : sim::Action::ChooseReference;
    step.name = thumb ? "chooseThumb" : "chooseReference";
    step.number = thumb ? msg::ThumbChoice : msg::ReferenceChoice;
    step.thumbChoice.interfaceId = m_current;
    step.referenceChoice.interfaceId = m_current;
    fill(step.thumbChoice.stThumbTiming);
    fill(step.referenceChoice.stTimingDetail);
    const QString text = chosen.value(QStringLiteral("text")).toString();
    const std::string traced = chosen.value(QStringLiteral("traced")).toString().toStdString();
    act(step,
        thumb ? PageText::tr("%1 chosen as the thumb timing").arg(text)
              : PageText::tr("%1 chosen as the reference timing").arg(text),
        traced + (thumb ? " chosen as the thumb timing" : " chosen as the reference timing"));
}

void PageBridge::chooseThumb(int candidate)
{
    choose(candidate, true);
}

void PageBridge::chooseReference(int candidate)
{
    choose(candidate, false);
}

void PageBridge::answer(bool accept)
{
    if (!m_confirmVisible)
        return;
    sim::Step step;
    step.action = sim::Action::Answer;
    step.name = "answer";
    step.number = msg::BoxAnswer;
    step.accept = accept;
    step.box = m_confirmBox;
    act(step, accept ? PageText::tr("confirmed") : PageText::tr("declined"), accept ? "confirmed" : "declined");
}

void PageBridge::dismissWarning()
{
    m_warningVisible = false;
    emit changed();
}

} // namespace page
} // namespace edidvm
