// SPDX-License-Identifier: MIT
#include "page/pagebridge.h"

#include "protomodel/constants.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "sim/decode.h"
#include "viewmodel/viewmodelrecords.h"

#include <QCoreApplication>
#include <QVariantMap>

#include <algorithm>
#include <cstring>
#include <set>
#include <tuple>

namespace msg = LCD::MessageId;

#include "page/pagetext_p.h"

namespace edidvm {
namespace page {

using namespace LCD::ProtoModel::Interface;

namespace {
// The numbers the page reacts to.
enum : std::uint32_t {
    DetailTiming = msg::DetailTiming,
    ThumbTiming = msg::ThumbTiming,
    AdoptedInterface = msg::AdoptedInterface,
    TimingNotice = msg::TimingNotice,
    ThumbCheckResults = msg::ThumbCheckResults,
    DetailCheckResults = msg::DetailCheckResults,
    ChangedDetail = msg::ChangedDetail,
    ChangedThumb = msg::ChangedThumb,
    Confirmation = msg::Confirmation,
    CommittedThumb = msg::CommittedThumb,
    InUse = msg::InUse,
    ShowWaiting = msg::ShowWaiting,
    HideWaiting = msg::HideWaiting,
    MessageBox = msg::MessageBox,
    AssessFailed = msg::AssessFailed,
    WriteThumb = msg::WriteThumb,
    WriteReference = msg::WriteReference,
};

template <typename Record>
bool read(const void* data, int size, Record& record)
{
    if (data == nullptr || size != static_cast<int>(sizeof(Record)))
        return false;
    std::memcpy(&record, data, sizeof record);
    return true;
}

QString timing(std::int32_t width, std::int32_t height, float refresh)
{
    return QString::fromStdString(sim::timingText(width, height, refresh));
}

// Both timing records carry width, height and refresh.
template <typename Record>
void showTiming(const void* data, int size, QString& shown)
{
    Record record;
    if (read(data, size, record))
        shown = timing(record.width, record.height, record.refresh);
}

// The first timing of a written list, as the page names it.
template <typename Choice, typename Timing>
QString writtenText(const void* data, int size, Timing Choice::*member)
{
    if (data == nullptr || size != static_cast<int>(sizeof(std::vector<Choice>)))
        return {};
    const auto* written = static_cast<const std::vector<Choice>*>(data);
    if (written->empty())
        return {};
    const Timing& first = written->front().*member;
    return timing(first.width, first.height, first.refresh);
}
} // namespace

QString PageBridge::interfaceText(const s_InterfaceList& entry)
{
    const auto type = static_cast<LCD::Enum::Interface::ConnectorType>(entry.stAuxiliaryInfo.interfaceType);
    const QString name = LCD::Constants::g_mapConnectorTypeName.value(
        type, PageText::tr("type %1").arg(entry.stAuxiliaryInfo.interfaceType));
    // The id first: a narrow list cuts the end of a label.
    return PageText::tr("Interface %1: %2, slot %3, connector %4")
        .arg(entry.interfaceId)
        .arg(name)
        .arg(entry.slotId)
        .arg(entry.connectorId);
}

QString PageBridge::verdictText(const s_TimigCheckResult& verdict)
{
    QString text = PageText::tr("interface %1: bandwidth %2 of %3")
                       .arg(verdict.interfaceId)
                       .arg(verdict.bandwidthNeeded)
                       .arg(verdict.bandwidthLimit);
    if (verdict.maxFrameRate != 0)
        text += PageText::tr(", up to %1 Hz").arg(verdict.maxFrameRate / 100.0, 0, 'f', 2);
    return text;
}

QString PageBridge::differenceText(const sim::Difference& difference)
{
    // The sides are the trace's own lines, which stay English.
    const QString expected = QString::fromStdString(difference.expected);
    const QString came = QString::fromStdString(difference.came);
    switch (difference.change) {
    case sim::Difference::Change::Missing:
        return PageText::tr("missing %1").arg(expected);
    case sim::Difference::Change::Unexpected:
        return PageText::tr("unexpected %1").arg(came);
    case sim::Difference::Change::Differing:
        break;
    }
    return PageText::tr("expected %1, came %2").arg(expected, came);
}

QString fieldText(const char* text, std::size_t capacity)
{
    if (text == nullptr)
        return {};
    std::size_t length = 0;
    while (length < capacity && text[length] != '\0')
        ++length;
    // Back up over a last character whose bytes do not all fit.
    std::size_t start = length;
    while (start > 0 && (static_cast<unsigned char>(text[start - 1]) & 0xC0u) == 0x80u)
        --start;
    if (start > 0) {
        const auto lead = static_cast<unsigned char>(text[start - 1]);
        const std::size_t needed = lead >= 0xF0u ? 4 : lead >= 0xE0u ? 3 : lead >= 0xC0u ? 2 : 1;
        if (needed > 1 && length - (start - 1) < needed)
            length = start - 1;
    }
    return QString::fromUtf8(text, static_cast<int>(length));
}

PageBridge::PageBridge(sim::Player& player, const sim::Scenario& scenario, QObject* parent)
    : QObject(parent), m_player(player), m_scenario(scenario)
{
    m_player.addObserver(
        [this](const host::SentMessage& sent, const void* data) { received(sent.number, data, sent.size); });
}

QString PageBridge::currentText() const
{
    for (const QVariant& item : m_interfaces) {
        const QVariantMap entry = item.toMap();
        if (entry.value(QStringLiteral("id")).toInt() == m_current)
            return entry.value(QStringLiteral("text")).toString();
    }
    return m_current == 0 ? PageText::tr("no interface chosen")
                          : PageText::tr("interface %1 is not on the device").arg(m_current);
}

void PageBridge::received(std::uint32_t number, const void* data, int size)
{
    switch (number) {
    case DetailTiming:
    case ChangedDetail:
        showTiming<s_TimingDetailInfo>(data, size, m_detail);
        break;
    case ThumbTiming:
    case ChangedThumb:
        showTiming<s_ThumbTimingInfo>(data, size, m_thumb);
        m_thumbNote.clear();
        break;
    case CommittedThumb:
        showTiming<s_ThumbTimingInfo>(data, size, m_thumb);
        // The component commits whatever the device answered; the page
        // says when the device did not take it.
        if (m_writeFailed)
            m_thumbNote = PageText::tr("shown as committed, but the device did not take the write");
        else
            m_thumbNote.clear();
        break;
    case WriteThumb: {
        const QString written = writtenText(data, size, &s_InterfaceThumbTiming::stThumbTiming);
        const sim::Device& device = m_player.device().state();
        m_writeFailed = !device.thumbCommitAnswer || *device.thumbCommitAnswer != 0 || !device.writesApply;
        if (!device.thumbCommitAnswer)
            outcome("failure",
                    PageText::tr("The device never answered the write of the thumb timing %1.").arg(written));
        else if (*device.thumbCommitAnswer != 0)
            outcome("failure",
                    PageText::tr("The device answered the write of the thumb timing %1 as failed (answer %2).")
                        .arg(written)
                        .arg(*device.thumbCommitAnswer));
        else if (!device.writesApply)
            outcome("failure",
                    PageText::tr("The device answered the write of the thumb timing %1 as done but kept its timing.")
                        .arg(written));
        else
            outcome("done", PageText::tr("The device wrote the thumb timing %1.").arg(written));
        return;
    }
    case WriteReference: {
        const QString written = writtenText(data, size, &s_InterfacePresetTiming::stTimingDetail);
        if (m_player.device().state().writesApply)
            outcome("done", PageText::tr("The reference timing %1 was sent to the device, which answers no such write.")
                                .arg(written));
        else
            outcome(
                "failure",
                PageText::tr("The reference timing %1 was sent to the device, which kept its timing.").arg(written));
        return;
    }
    case AssessFailed: {
        std::int32_t code = 0;
        if (read(data, size, code)) {
            m_failureQueued = true;
            outcome(
                "failure",
                PageText::tr("The device's assessment failed for a screen: code %1, queued for the page.").arg(code));
        }
        return;
    }
    case TimingNotice: {
        Model::s_InterfaceTimingNotice notice;
        if (read(data, size, notice))
            m_notice = PageText::tr("word 0: %1, word 1: %2, word 2: %3, word 3: %4")
                           .arg(notice.noticeWord0)
                           .arg(notice.noticeWord1)
                           .arg(notice.noticeWord2)
                           .arg(notice.noticeWord3);
        break;
    }
    case AdoptedInterface: {
        std::int32_t id = 0;
        if (read(data, size, id))
            m_current = id;
        break;
    }
    case InUse:
        if (data != nullptr && size == 1)
            m_inUse = *static_cast<const std::uint8_t*>(data) != 0 ? QStringLiteral("yes") : QStringLiteral("no");
        break;
    case ThumbCheckResults:
    case DetailCheckResults:
        // A vector object in the sender's memory, read while it lives.
        if (data != nullptr && size == static_cast<int>(sizeof(s_TimigCheckResultArry))) {
            m_verdicts.clear();
            for (const s_TimigCheckResult& verdict : *static_cast<const s_TimigCheckResultArry*>(data)) {
                const bool over = verdict.overBandwidth != 0 || verdict.bandwidthNeeded > verdict.bandwidthLimit;
                m_verdicts.push_back(
                    QVariantMap{{QStringLiteral("text"), verdictText(verdict)}, {QStringLiteral("over"), over}});
            }
            m_verdictsOf = number == ThumbCheckResults ? QStringLiteral("thumb") : QStringLiteral("detail");
            m_verdictsInterface = m_current;
        }
        break;
    case Confirmation: {
        Model::s_MessageBoxRequest box;
        if (read(data, size, box)) {
            m_confirmVisible = true;
            m_confirmBox = box.boxId;
            m_confirmText = fieldText(box.text, sizeof box.text);
        }
        break;
    }
    case MessageBox: {
        Model::s_MessageBoxRequest box;
        if (read(data, size, box)) {
            m_warningVisible = true;
            m_warningText = fieldText(box.text, sizeof box.text);
        }
        break;
    }
    case ShowWaiting:
        m_waiting = true;
        m_waitingText = fieldText(static_cast<const char*>(data), size > 0 ? static_cast<std::size_t>(size) : 0);
        ++m_waitingShown;
        break;
    case HideWaiting:
        m_waiting = false;
        ++m_waitingHidden;
        break;
    default:
        return;
    }
    emit changed();
}

void PageBridge::delivered(std::uint32_t number, const void* data, int size)
{
    std::int32_t code = 0;
    if (number != AssessFailed || !read(data, size, code))
        return;
    m_failureQueued = false;
    outcome("failure", PageText::tr("The device's assessment failure code %1 reached the page.").arg(code));
    emit changed();
}

void PageBridge::outcome(const char* kind, const QString& text)
{
    m_outcomes.push_back(
        QVariantMap{{QStringLiteral("kind"), QString::fromLatin1(kind)}, {QStringLiteral("text"), text}});
}

void PageBridge::after()
{
    // A picture is taken after the step: an indicator shown and hidden in
    // it would leave no trace but this.
    if (m_waitingShown > 0 && !m_waiting)
        outcome(
            "waiting",
            PageText::tr("The waiting indicator (\"%1\") was shown and hidden during this step.").arg(m_waitingText));
    else if (m_waitingShown > 0)
        outcome("waiting",
                PageText::tr("The waiting indicator (\"%1\") was shown and is still up.").arg(m_waitingText));
    else if (m_waitingHidden > 0)
        outcome("waiting", PageText::tr("The waiting indicator was hidden."));
    m_waitingShown = 0;
    m_waitingHidden = 0;
}

void PageBridge::updateDevice()
{
    const sim::Device& device = m_player.device().state();
    m_interfaces.clear();
    for (const s_InterfaceList& entry : device.interfaces) {
        m_interfaces.push_back(QVariantMap{
            {QStringLiteral("id"), entry.interfaceId},
            {QStringLiteral("text"), interfaceText(entry)},
            {QStringLiteral("inUse"), !entry.stAuxiliaryInfo.usedByScreen.empty()},
        });
    }
    m_candidates.clear();
    const auto current = std::find_if(device.interfaces.begin(), device.interfaces.end(),
                                      [this](const s_InterfaceList& entry) { return entry.interfaceId == m_current; });
    if (current == device.interfaces.end())
        return;
    // A refused mode stays in the list, greyed, with the reason.
    // "traced" is the English text the trace names the candidate by.
    const auto add = [this](const QString& text, const std::string& traced, std::int32_t width, std::int32_t height,
                            double refresh, const QString& refused) {
        m_candidates.push_back(QVariantMap{{QStringLiteral("text"), text},
                                           {QStringLiteral("traced"), QString::fromStdString(traced)},
                                           {QStringLiteral("width"), width},
                                           {QStringLiteral("height"), height},
                                           {QStringLiteral("refresh"), refresh},
                                           {QStringLiteral("enabled"), refused.isEmpty()},
                                           {QStringLiteral("reason"), refused}});
    };
    const s_ThumbTimingInfo& own = current->stThumbTiming;
    if (own.width > 0 && own.height > 0) {
        const QString text = timing(own.width, own.height, own.refresh);
        add(PageText::tr("device: %1").arg(text), "device: " + text.toStdString(), own.width, own.height, own.refresh,
            {});
    }
    const auto edid = device.edid.find(m_current);
    if (edid == device.edid.end())
        return;
    // An EDID names one mode in several of its blocks; the user picks it once.
    std::set<std::tuple<std::int32_t, std::int32_t, double>> listed;
    for (const sim::EdidTiming& mode : edid->second) {
        if (listed.insert({mode.width, mode.height, mode.refresh}).second)
            add(PageText::tr("EDID: %1").arg(QString::fromStdString(mode.text)), "EDID: " + mode.text, mode.width,
                mode.height, mode.refresh, QString::fromStdString(mode.refused));
    }
}

void PageBridge::before(const sim::Step& step)
{
    // The bandwidth box takes no answer: it stays until the next step or
    // action, which closes it without sending anything. A confirmation
    // stays until it is answered.
    m_outcomes.clear();
    if (m_warningVisible)
        outcome(
            "info",
            PageText::tr("The bandwidth box was closed; nothing is sent for it, the component takes no answer to it."));
    m_warningVisible = false;
    if (step.action == sim::Action::Answer)
        m_confirmVisible = false;
    if (step.action == sim::Action::Current) {
        m_current = step.interfaceId;
        m_inUse.clear();
    }
}

bool PageBridge::playNext()
{
    if (m_next >= m_scenario.steps.size())
        return false;
    const std::size_t index = m_next++;
    const sim::Step& step = m_scenario.steps[index];
    before(step);
    m_outcomesOf = static_cast<int>(index);
    // Numbered from 0, as the trace and the scenario's JSON paths do.
    m_status = PageText::tr("Step %1 (steps 0 to %2): %3")
                   .arg(index)
                   .arg(m_scenario.steps.size() - 1)
                   .arg(QString::fromStdString(step.name + (step.note.empty() ? "" : " (" + step.note + ")")));
    const bool met = m_player.playStep(index);
    const sim::StepOutcome& result = m_player.lastOutcome();
    if (!result.checked) {
        outcome("info", PageText::tr("The step expects nothing."));
    } else if (result.met) {
        outcome("passed", PageText::tr("Expectations met."));
    } else {
        // The first differences; the trace has them all.
        constexpr std::size_t Shown = 3;
        const std::size_t count = result.differences.size();
        outcome("failed", PageText::tr("Expectations not met: %n difference(s), the first below.", nullptr,
                                       static_cast<int>(count)));
        for (std::size_t i = 0; i < std::min(Shown, count); ++i)
            outcome("difference", differenceText(result.differences[i]));
        if (count > Shown)
            outcome("difference",
                    PageText::tr("... and %n more, in the trace.", nullptr, static_cast<int>(count - Shown)));
    }
    after();
    m_fetched = true;
    updateDevice();
    emit changed();
    return met;
}

} // namespace page
} // namespace edidvm
