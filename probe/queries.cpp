// SPDX-License-Identifier: MIT
// The read-only queries, asked as the view model asks them, and the two
// configuration services: what the device answered, for the report and for
// the device's state in the scenario the report is.

#include "probe/measurement.h"

#include "framework/api.h"
#include "framework/configservices.h"
#include "framework/ihostapi.h"
#include "probe/capture.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/queryinfo.h"
#include "protomodel/screenrecords.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>

namespace Probe {

using LCD::GlobalMessageHander::QueryInfo;
using namespace LCD::ProtoModel;

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
                m_interfaceRead = true;
            }
            // The device's state is the first answer's.
            if (m_device.json.contains("interfaces"))
                return;
            QJsonArray list;
            for (const Interface::s_InterfaceList& entry : info.stInterfaceListArry) {
                // Either would make the file one the simulator refuses.
                if (m_device.interfaces.count(entry.interfaceId) != 0) {
                    problem(QStringLiteral("interface %1 is listed twice: the later entry is left out of the "
                                           "device's state")
                                .arg(entry.interfaceId));
                    continue;
                }
                if (!timingsPlayable(entry)) {
                    problem(QStringLiteral("interface %1 has a zero timing, which a scenario cannot hold: it is left "
                                           "out of the device's state")
                                .arg(entry.interfaceId));
                    continue;
                }
                m_device.interfaces[entry.interfaceId] = interfaceEntry(entry);
                list.append(m_device.interfaces[entry.interfaceId]);
            }
            m_device.json["interfaces"] = list;
        },
        pending, &own, &elsewhere, &nulled);
    m_ownEnvelope = own;
    m_elsewhere = elsewhere;
    m_nulled = nulled;
    QJsonObject interfaces = queries["interfaces"].toObject();
    // A stop cuts the tries short: the counts are of those made.
    m_interfaceTries = interfaces["tries"].toArray().size();
    interfaces["answeredInAskersEnvelope"] = observation(own, m_interfaceTries);
    interfaces["answeredElsewhere"] = observation(elsewhere, m_interfaceTries);
    interfaces["pointerNulled"] = observation(nulled, m_interfaceTries);
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
        [this](const Screen::s_ScreenDetail& info) {
            if (m_device.json.contains("screens"))
                return;
            QJsonArray screens;
            for (const Screen::s_ScreenDetailInfo& screen : info.stScreenDetailInfoArry) {
                // Outputs on interfaces the list did not give cannot be played.
                QJsonArray outputs;
                for (const Screen::s_OutputDetail& output : screen.stOutputDetailArry)
                    if (m_device.interfaces.count(output.interfaceId) != 0)
                        outputs.append(output.interfaceId);
                screens.append(QJsonObject{
                    {"id", double(screen.screenId)}, {"index", double(screen.screenIndex)}, {"outputs", outputs}});
            }
            m_device.json["screens"] = screens;
        },
        pending, &ignoredOwn, &ignoredElsewhere, &ignoredNulled);

    queries["subcards"] = envelopeQuery<Subcard::s_SubcardQuery>(
        m_session, 0xFC0D1000u, [](auto& envelope, auto&) { envelope.info.request = 1; },
        [](const Subcard::s_SubcardQuery& info) { return int(info.stSubcardInfoArry.size()); },
        [this](const Subcard::s_SubcardQuery& info) {
            const bool first = !m_device.json.contains("subcards");
            QJsonArray subcards;
            for (const Subcard::s_SubcardInfo& subcard : info.stSubcardInfoArry) {
                QJsonArray connectors;
                for (const Subcard::s_SubcardConnector& connector : subcard.stConnectorArry) {
                    if (m_interfaceRead && subcard.slotId == m_slotId && connector.connectorId == m_connectorId) {
                        m_connectorKey = connector.connectorKey;
                        m_connectorKeyRead = true;
                    }
                    connectors.append(
                        QJsonObject{{"connector", connector.connectorId}, {"key", connector.connectorKey}});
                }
                subcards.append(QJsonObject{{"slot", subcard.slotId}, {"connectors", connectors}});
            }
            if (first)
                m_device.json["subcards"] = subcards;
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
            m_device.json[number == DeviceParamNumber ? "deviceParam" : "selectedInterface"] = value;
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
    // Asked only with what the queries read: an invented argument would put
    // an answer to a question the view model never asks into the device.
    // The device parameter stays -1 unanswered, as the view model asks then.
    const auto notCalled = [](const QString& why) {
        return QJsonObject{{"called", false}, {"says", QStringLiteral("not called: ") + why}};
    };
    std::int32_t subcard = -1;
    bool subcardRead = false;
    if (device == nullptr)
        out["deviceconfigmanager"] = notCalled(QStringLiteral("the service was not found"));
    else if (!m_interfaceRead)
        out["deviceconfigmanager"] = notCalled(QStringLiteral("no interface was read"));
    else if (m_session.stopping())
        out["deviceconfigmanager"] = notCalled(QStringLiteral("the probe was stopped"));
    else {
        subcard = device->subcardOfSlot(m_slotId);
        subcardRead = true;
        out["deviceconfigmanager"] = QJsonObject{
            {"called", true}, {"call", QStringLiteral("subcardOfSlot(%1)").arg(m_slotId)}, {"answer", subcard}};
    }
    if (subcards == nullptr)
        out["subcardconfigmanager"] = notCalled(QStringLiteral("the service was not found"));
    else if (!subcardRead || !m_connectorKeyRead)
        out["subcardconfigmanager"] =
            notCalled(QStringLiteral("the subcard or the interface's connector key was not read"));
    else if (m_session.stopping())
        out["subcardconfigmanager"] = notCalled(QStringLiteral("the probe was stopped"));
    else {
        const std::vector<int> related = subcards->relatedConnectors(subcard, m_connectorKey, m_deviceParam);
        QJsonArray answer;
        for (int connector : related)
            answer.append(connector);
        tiedInDevice(subcard, answer);
        out["subcardconfigmanager"] = QJsonObject{
            {"called", true},
            {"call",
             QStringLiteral("relatedConnectors(%1, %2, %3)").arg(subcard).arg(m_connectorKey).arg(m_deviceParam)},
            {"answer", answer}};
    }
    m_report["configServices"] = out;
    if (subcardRead)
        subcardInDevice(subcard);
    // What no read-only query shows; the simulator plays its defaults.
    m_device.json["unknown"] = QJsonArray{"verdicts", "assessments", "thumbCommitAnswer", "writesApply"};
    for (const char* key : {"interfaces", "screens", "subcards"})
        if (!m_device.json.contains(key))
            m_device.json[key] = QJsonArray();
    for (const char* key : {"selectedInterface", "deviceParam"})
        if (!m_device.json.contains(key))
            m_device.json[key] = QJsonValue::Null;
}

namespace {
// The first-listed interface's slot's entry, the one the services answered for.
QJsonArray withSlot(const QJsonArray& subcards, std::int32_t slot, const std::function<void(QJsonObject&)>& change)
{
    QJsonArray out;
    for (const QJsonValue& item : subcards) {
        QJsonObject subcard = item.toObject();
        if (subcard["slot"].toInt() == slot)
            change(subcard);
        out.append(subcard);
    }
    return out;
}
} // namespace

void Measurement::subcardInDevice(std::int32_t subcard)
{
    m_device.json["subcards"] = withSlot(m_device.json["subcards"].toArray(), m_slotId,
                                         [subcard](QJsonObject& entry) { entry["subcard"] = subcard; });
}

void Measurement::tiedInDevice(std::int32_t subcard, const QJsonArray& tied)
{
    const std::int32_t key = m_connectorKey;
    m_device.json["subcards"] =
        withSlot(m_device.json["subcards"].toArray(), m_slotId, [subcard, key, &tied](QJsonObject& entry) {
            // The service was asked with the device service's answer: only
            // an entry that gives that value is asked so when played.
            entry["subcard"] = subcard;
            QJsonArray connectors;
            for (const QJsonValue& item : entry["connectors"].toArray()) {
                QJsonObject connector = item.toObject();
                if (connector["key"].toInt() == key)
                    connector["tied"] = tied;
                connectors.append(connector);
            }
            entry["connectors"] = connectors;
        });
}

} // namespace Probe
