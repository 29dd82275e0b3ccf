// SPDX-License-Identifier: MIT
#include "tests/support/devicestandin.h"

#include "host/host.h"
#include "protomodel/messageids.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace msg = LCD::MessageId;

namespace edidvm {
namespace test {

using namespace LCD::ProtoModel::Interface;
using namespace LCD::ProtoModel::Screen;
using namespace LCD::ProtoModel::Subcard;
using host::Bytes;
using LCD::GlobalMessageHander::QueryInfo;

// A list sent by value travels as the vector object itself.
constexpr int VectorObjectSize = 24;

Parameters DeviceStandIn::readPlainly(const LCD::GlobalMessageHander::QueryFilter& filter)
{
    Parameters params;
    if (filter)
        filter(params);
    return params;
}

void DeviceStandIn::install(host::Host& host, unsigned services)
{
    m_host = &host;
    host::CommandDispatcher& commands = host.commands();
    if (services & InterfaceQuery)
        commands.setResponder(msg::InterfaceDetail,
                              [this](const kpf::IMessage& command) { return answerInterfaces(command); });
    if (services & ScreenQuery)
        commands.setResponder(msg::Screens, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = host::payloadAddress<QueryInfo<s_ScreenDetail>>(command)) {
                if (readFilter)
                    keep(screenFiltersSeen, readFilter(query->filter));
                query->info.stScreenDetailInfoArry = screens;
            }
            return std::nullopt;
        });
    if (services & SubcardQuery)
        commands.setResponder(msg::Subcards, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = host::payloadAddress<QueryInfo<s_SubcardQuery>>(command)) {
                keep(subcardRequestsSeen, query->info.request);
                query->info.stSubcardInfoArry = subcards;
            }
            return std::nullopt;
        });
    // The device's parameter and its selected interface go unanswered.
    if (services & Selections)
        for (std::uint32_t number : {msg::DeviceParam, msg::SelectedInterface})
            commands.setResponder(number, [](const kpf::IMessage&) { return std::optional<Bytes>(); });
    // Every assessment is carried out and raises no code.
    if (services & Assessment)
        commands.setResponder(msg::Assess, [](const kpf::IMessage&) { return std::optional<Bytes>(Bytes{1}); });
    // The payload is the vector object, readable while the command lasts.
    if (services & ThumbWrite)
        commands.setResponder(msg::WriteThumb, [this](const kpf::IMessage& command) {
            if (command.size() == VectorObjectSize && command.data() != nullptr)
                keep(thumbWritten, *static_cast<const std::vector<s_InterfaceThumbTiming>*>(command.data()));
            return thumbWriteReply;
        });
    if (services & TimingCheck)
        for (std::uint32_t number : {msg::ThumbCheck, msg::DetailCheck})
            commands.setResponder(number, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
                if (auto* query = host::payloadAddress<QueryInfo<s_TimigCheckQuery>>(command))
                    answerChecks(query->info);
                return std::nullopt;
            });
    // The reference write is an event: read its list while the send lasts.
    host.recorder().setHook([this](const host::SentMessage& sent, const void* data) {
        if (sent.number == msg::WriteReference && sent.size == VectorObjectSize && data != nullptr)
            keep(referenceWritten, *static_cast<const std::vector<s_InterfacePresetTiming>*>(data));
        if (onSent)
            onSent(sent, data);
    });
}

std::optional<Bytes> DeviceStandIn::answerInterfaces(const kpf::IMessage& command)
{
    if (interfaceAnswerNulled) {
        // A lent payload is the asker's pointer variable itself.
        const host::Variation now = m_host->variation();
        if (command.size() == 8 && (now == host::Variation::LentPayloads || now == host::Variation::AnswerElsewhere))
            std::memset(const_cast<void*>(command.data()), 0, 8);
        return std::nullopt;
    }
    auto* query = m_host->answerEnvelope<QueryInfo<s_InterfaceDetailInfo>>(command, true);
    if (query == nullptr)
        return std::nullopt;
    if (!readFilter) {
        query->info.stInterfaceListArry = interfaces;
        return std::nullopt;
    }
    // A filter must empty the map before its key goes in.
    const Parameters params = readFilter(query->filter);
    keep(interfaceFiltersSeen, params);
    const auto wanted = params.find("interfaceId");
    for (const s_InterfaceList& entry : interfaces)
        if (wanted == params.end() || wanted->second == std::to_string(entry.interfaceId))
            query->info.stInterfaceListArry.push_back(entry);
    return std::nullopt;
}

void DeviceStandIn::answerChecks(s_TimigCheckQuery& query)
{
    if (keeping) {
        std::lock_guard<std::mutex> lock(m_mutex);
        thumbChecksSeen = query.stThumbCheckArry;
    }
    if (passingFrameRates.empty()) {
        query.stCheckResultArry = checkResults;
        return;
    }
    for (const s_ThumbTimigCheck& check : query.stThumbCheckArry) {
        s_TimigCheckResult result;
        result.interfaceId = check.interfaceId;
        result.maxFrameRate = *std::max_element(passingFrameRates.begin(), passingFrameRates.end());
        result.frameRates = passingFrameRates;
        query.stCheckResultArry.push_back(result);
    }
}

void DeviceStandIn::forget()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto clear = [](auto&... lists) { (lists.clear(), ...); };
    clear(thumbChecksSeen, interfaceFiltersSeen, screenFiltersSeen, subcardRequestsSeen, thumbWritten,
          referenceWritten);
}

} // namespace test
} // namespace edidvm
