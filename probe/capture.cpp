// SPDX-License-Identifier: MIT
#include "probe/capture.h"

#include "framework/imessage.h"
#include "framework/wire.h"
#include "probe/report.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "viewmodel/viewmodelrecords.h"

#include <QJsonValue>

#include <cmath>
#include <cstring>
#include <vector>

namespace Probe {

namespace msg = LCD::MessageId;
using namespace LCD::ProtoModel::Interface;
using LCD::GlobalMessageHander::QueryInfo;

const std::uint32_t CapturedNumbers[15] = {
    msg::SetCurrentInterface, msg::SdiInterface,
    msg::RefreshTiming,       msg::SelectedInterfaceTiming,
    msg::ThumbCheckRequest,   msg::DetailCheckRequest,
    msg::ThumbChoice,         msg::ReferenceChoice,
    msg::PublishReference,    msg::ChangedReferenceTimings,
    msg::ChangedThumbTimings, msg::InUseAsked,
    msg::InUseAsked2,         msg::InUseAsked3,
    msg::BoxAnswer,
};

bool isCaptured(std::uint32_t number)
{
    for (std::uint32_t captured : CapturedNumbers)
        if (captured == number)
            return true;
    return false;
}

namespace {

// Longer payloads than any record the view model reads are not kept.
constexpr int BytesMax = 4096;

// The shortest decimal that reads back as the same float, so a file says
// 59.94 rather than 59.939998626708984.
QJsonValue refreshValue(float refresh)
{
    for (int digits = 6; digits <= 9; ++digits) {
        const QString text = QString::number(double(refresh), 'g', digits);
        if (text.toFloat() == refresh)
            return text.toDouble();
    }
    return double(refresh);
}

bool playable(std::int32_t width, std::int32_t height, float refresh)
{
    return width >= 1 && height >= 1 && std::isfinite(refresh) && refresh > 0.0f;
}

template <typename T>
T as(const void* data)
{
    T value;
    std::memcpy(static_cast<void*>(&value), data, sizeof value);
    return value;
}

QString hex(const void* data, int size)
{
    return QString::fromLatin1(QByteArray(static_cast<const char*>(data), size).toHex());
}

const char* stepName(std::uint32_t number)
{
    switch (number) {
    case msg::RefreshTiming:
        return "refresh";
    case msg::SelectedInterfaceTiming:
        return "askSelected";
    case msg::PublishReference:
        return "publishReference";
    case msg::InUseAsked:
    case msg::InUseAsked2:
    case msg::InUseAsked3:
        return "inUse";
    }
    return nullptr;
}

template <typename Check, typename Show>
QJsonArray checksOf(const std::vector<Check>& checks, Show show)
{
    QJsonArray out;
    for (const Check& check : checks)
        out.append(QJsonObject{{"timing", show(check)}, {"tag", check.tagName}});
    return out;
}

// A changed-timings list; false when a record holds what the step cannot.
template <typename Record, typename Timing>
bool timingsOf(const std::vector<Record>& records, Timing timing, QJsonArray* out)
{
    for (const Record& record : records) {
        const auto& t = timing(record);
        if (record.tailParam1 != 0 || !playable(t.width, t.height, t.refresh))
            return false;
        QJsonObject item{{"interface", record.interfaceId}, {"timing", timing.json(t)}};
        if (record.tailParam0 != 0)
            item["tailParam0"] = double(record.tailParam0);
        out->append(item);
    }
    return true;
}

struct ThumbOf
{
    const s_ThumbTimingInfo& operator()(const s_InterfaceThumbTiming& r) const { return r.stThumbTiming; }
    QJsonObject json(const s_ThumbTimingInfo& t) const { return thumbTiming(t); }
};
struct DetailOf
{
    const s_TimingDetailInfo& operator()(const s_InterfacePresetTiming& r) const { return r.stTimingDetail; }
    QJsonObject json(const s_TimingDetailInfo& t) const { return detailTiming(t); }
};

} // namespace

QJsonObject thumbTiming(const s_ThumbTimingInfo& t)
{
    QJsonObject out{{"width", t.width}, {"height", t.height}, {"refresh", refreshValue(t.refresh)}};
    const std::pair<const char*, std::uint32_t> words[] = {
        {"param0", t.param0}, {"param4", t.param4}, {"param5", t.param5}, {"param6", t.param6}};
    for (const auto& word : words)
        if (word.second != 0)
            out[word.first] = double(word.second);
    return out;
}

QJsonObject detailTiming(const s_TimingDetailInfo& t)
{
    QJsonObject out{{"width", t.width}, {"height", t.height}, {"refresh", refreshValue(t.refresh)}};
    const std::pair<const char*, std::uint32_t> words[] = {
        {"param0", t.param0},   {"param3", t.param3},   {"param4", t.param4},  {"param5", t.param5},
        {"param6", t.param6},   {"param8", t.param8},   {"param9", t.param9},  {"param10", t.param10},
        {"param11", t.param11}, {"param12", t.param12}, {"param13", t.param13}};
    for (const auto& word : words)
        if (word.second != 0)
            out[word.first] = double(word.second);
    return out;
}

bool timingsPlayable(const s_InterfaceList& entry)
{
    const auto& thumb = entry.stThumbTiming;
    const auto& detail = entry.stTimingDetail;
    return playable(thumb.width, thumb.height, thumb.refresh) && playable(detail.width, detail.height, detail.refresh);
}

QJsonObject interfaceEntry(const s_InterfaceList& entry)
{
    return {{"id", entry.interfaceId},
            {"slot", entry.slotId},
            {"connector", entry.connectorId},
            {"type", entry.stAuxiliaryInfo.interfaceType},
            {"status", entry.stAuxiliaryInfo.interfaceStatus},
            {"usedByScreen", QString::fromStdString(entry.stAuxiliaryInfo.usedByScreen)},
            {"thumb", thumbTiming(entry.stThumbTiming)},
            {"detail", detailTiming(entry.stTimingDetail)},
            {"words", QJsonObject{{"ifWord92", double(entry.ifWord92)},
                                  {"ifWord158", double(entry.ifWord158)},
                                  {"checkParam0", entry.checkParam0},
                                  {"checkParam1", entry.checkParam1}}}};
}

CapturedEvent readEvent(const kpf::IMessage& message)
{
    CapturedEvent event;
    event.number = kpf::wireWord(message.number());
    const int size = message.size();
    const void* data = message.data();
    if (const char* name = stepName(event.number)) {
        // Not read by the view model: the step delivers no payload.
        event.step = QJsonObject{{"do", name}};
        if (event.number == msg::InUseAsked2 || event.number == msg::InUseAsked3)
            event.step["trigger"] = event.number == msg::InUseAsked2 ? "InUseAsked2" : "InUseAsked3";
        return event;
    }
    if (data == nullptr && size != 0) {
        event.why = QStringLiteral("data() was null for a payload of %1 bytes").arg(size);
        return event;
    }
    const auto sized = [&](std::size_t bytes) { return data != nullptr && size == static_cast<int>(bytes); };
    switch (event.number) {
    case msg::SetCurrentInterface:
        if (!sized(sizeof(s_InterfaceList)))
            break;
        if (timingsPlayable(*static_cast<const s_InterfaceList*>(data)))
            event.step =
                QJsonObject{{"do", "current"}, {"record", interfaceEntry(*static_cast<const s_InterfaceList*>(data))}};
        else
            event.why = QStringLiteral("the record has a zero timing, which a scenario cannot hold");
        break;
    case msg::SdiInterface:
        if (sized(sizeof(Model::s_SDIInterfaceInfo))) {
            const auto sdi = as<Model::s_SDIInterfaceInfo>(data);
            event.bytes = hex(data, size); // for an interface the device did not list
            if (sdi.sdiWord0 == 0 && sdi.sdiWord1 == 0 && sdi.sdiWord3 == 0)
                event.step = QJsonObject{{"do", "sdi"}, {"interface", sdi.interfaceId}};
        }
        break;
    case msg::ThumbChoice:
        // The view model stamps a choice with the current interface itself.
        if (sized(sizeof(s_InterfaceThumbTiming))) {
            const auto choice = as<s_InterfaceThumbTiming>(data);
            const auto& t = choice.stThumbTiming;
            if (choice.tailParam0 == 0 && choice.tailParam1 == 0 && playable(t.width, t.height, t.refresh))
                event.step = QJsonObject{{"do", "chooseThumb"}, {"timing", thumbTiming(t)}};
        }
        break;
    case msg::ReferenceChoice:
        if (sized(sizeof(s_InterfacePresetTiming))) {
            const auto choice = as<s_InterfacePresetTiming>(data);
            const auto& t = choice.stTimingDetail;
            if (choice.tailParam0 == 0 && choice.tailParam1 == 0 && playable(t.width, t.height, t.refresh))
                event.step = QJsonObject{{"do", "chooseReference"}, {"timing", detailTiming(t)}};
        }
        break;
    case msg::ThumbCheckRequest:
    case msg::DetailCheckRequest:
        if (sized(sizeof(void*))) {
            const auto* query = as<const QueryInfo<s_TimigCheckQuery>*>(data);
            if (query == nullptr) {
                event.why = QStringLiteral("the envelope's address was null");
                return event;
            }
            // Each check is stamped with the current interface by the view model.
            const bool thumb = event.number == msg::ThumbCheckRequest;
            event.step = QJsonObject{
                {"do", thumb ? "thumbCheck" : "detailCheck"},
                {"checks", thumb ? checksOf(query->info.stThumbCheckArry,
                                            [](const s_ThumbTimigCheck& c) { return thumbTiming(c.stThumbTiming); })
                                 : checksOf(query->info.stDetailCheckArry, [](const s_DetailTimigCheck& c) {
                                       return detailTiming(c.stTimingDetail);
                                   })}};
            return event;
        }
        break;
    case msg::ChangedThumbTimings:
    case msg::ChangedReferenceTimings:
        if (sized(24)) {
            QJsonArray timings;
            const bool thumb = event.number == msg::ChangedThumbTimings;
            const bool whole =
                thumb
                    ? timingsOf(*static_cast<const std::vector<s_InterfaceThumbTiming>*>(data), ThumbOf(), &timings)
                    : timingsOf(*static_cast<const std::vector<s_InterfacePresetTiming>*>(data), DetailOf(), &timings);
            if (!whole) {
                event.why = QStringLiteral("the list holds a word or a timing the step cannot carry");
                return event;
            }
            event.step = QJsonObject{{"do", thumb ? "changedThumb" : "changedReference"}, {"timings", timings}};
            return event;
        }
        break;
    case msg::BoxAnswer:
        // Played back as the last confirmation raised, with this id and answer.
        if (sized(sizeof(Model::s_MessageBoxRequest))) {
            const auto* answer = static_cast<const Model::s_MessageBoxRequest*>(data);
            event.step = QJsonObject{{"do", "answer"}, {"accept", answer->result != 0}, {"box", answer->boxId}};
        }
        break;
    }
    if (event.step.isEmpty()) {
        if (size > BytesMax)
            event.why = QStringLiteral("a payload of %1 bytes, more than %2 kept").arg(size).arg(BytesMax);
        else
            event.bytes = size == 0 ? QStringLiteral("") : hex(data, size);
    }
    return event;
}

QJsonArray stepsOf(const CapturedEvent& event, DeviceState& device, QString* why)
{
    const auto known = [&device](const QJsonValue& id) { return device.interfaces.count(id.toInt()) != 0; };
    const QString name = event.step["do"].toString();
    if (name == "current") {
        const QJsonObject record = event.step["record"].toObject();
        const int id = record["id"].toInt();
        if (!known(id)) {
            *why = QStringLiteral("interface %1 is not one the device listed").arg(id);
            return {};
        }
        QJsonArray steps;
        if (device.interfaces[id] != record) {
            // The record differs from the device's list: the device changes first.
            steps.append(QJsonObject{{"do", "device"}, {"interfaces", QJsonArray{record}}});
            device.interfaces[id] = record;
        }
        steps.append(QJsonObject{{"do", "current"}, {"interface", id}});
        return steps;
    }
    bool playableStep = !event.step.isEmpty();
    if (name == "sdi")
        playableStep = known(event.step["interface"]);
    if (name == "changedThumb" || name == "changedReference") {
        for (const QJsonValue& item : event.step["timings"].toArray())
            if (!known(item["interface"])) {
                *why = QStringLiteral("interface %1 is not one the device listed").arg(item["interface"].toInt());
                return {};
            }
    }
    if (playableStep)
        return {event.step};
    if (!event.bytes.isNull())
        return {
            QJsonObject{{"do", "raw"}, {"number", hexNumber(event.number)}, {"kind", "event"}, {"bytes", event.bytes}}};
    *why = event.why.isEmpty() ? QStringLiteral("nothing readable") : event.why;
    return {};
}

} // namespace Probe
