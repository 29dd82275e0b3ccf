#pragma once

// Runs the built library on our host, with stand-ins for the components the
// view model talks to: the interface list, the device's selected interface
// and the timing-check service answer from the fixture's fields.

#include "common/warningcapture.h"
#include "framework/wire.h"
#include "host/host.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/queryinfo.h"
#include "viewmodel/viewmodelrecords.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace edidvm {
namespace test {

using namespace LCD::ProtoModel::Interface;
using host::Bytes;
using host::SentKind;
using host::SentMessage;
using LCD::GlobalMessageHander::QueryInfo;
using namespace LCD::ProtoModel::Screen;
using namespace LCD::ProtoModel::Subcard;
using Parameters = std::map<std::string, std::string>;

// An interface with recognisable timing words.
inline s_InterfaceList makeInterface(std::int32_t id, std::int32_t connector = 0, std::int32_t type = 0,
                                     std::int32_t status = 0)
{
    s_InterfaceList record;
    record.interfaceId = id;
    record.connectorId = connector;
    record.stAuxiliaryInfo.interfaceType = type;
    record.stAuxiliaryInfo.interfaceStatus = status;
    record.stThumbTiming = {std::uint32_t(100 + id), 60.0f, 1920, 1080, std::uint32_t(400 + id), 5, 600};
    record.stTimingDetail.width = 1920;
    record.stTimingDetail.height = 1080;
    record.stTimingDetail.refresh = 60.0f;
    record.stTimingDetail.param13 = std::uint32_t(1300 + id);
    record.ifWord92 = std::uint32_t(9200 + id);
    record.ifWord158 = std::uint32_t(15800 + id);
    record.checkParam0 = 70 + id;
    record.checkParam1 = 80 + id;
    return record;
}

template <typename Record>
Bytes bytesOf(const Record& record)
{
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

template <typename Record>
Record recordFrom(const SentMessage& message)
{
    Record record{};
    EXPECT_EQ(message.bytes.size(), sizeof record);
    std::memcpy(&record, message.bytes.data(), std::min(sizeof record, message.bytes.size()));
    return record;
}

class ViewModelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
        component = host.components().at(0);

        // The interface list honours the "interfaceId" filter, as the
        // device-configuration side does.
        host.commands().setResponder(0xFC050111u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            auto* query = host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command);
            if (query == nullptr)
                return std::nullopt;
            Parameters params;
            if (query->filter)
                query->filter(params);
            interfaceFiltersSeen.push_back(params);
            for (const s_InterfaceList& entry : interfaces) {
                const auto wanted = params.find("interfaceId");
                if (wanted == params.end() || wanted->second == std::to_string(entry.interfaceId))
                    query->info.stInterfaceListArry.push_back(entry);
            }
            return std::nullopt;
        });
        host.commands().setResponder(0xFC050200u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = host::payloadAddress<QueryInfo<s_ScreenDetail>>(command)) {
                Parameters params;
                if (query->filter)
                    query->filter(params);
                screenFiltersSeen.push_back(params);
                query->info.stScreenDetailInfoArry = screens;
            }
            return std::nullopt;
        });
        host.commands().setResponder(0xFC0D1000u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = host::payloadAddress<QueryInfo<s_SubcardQuery>>(command)) {
                subcardRequestsSeen.push_back(query->info.request);
                query->info.stSubcardInfoArry = subcards;
            }
            return std::nullopt;
        });
        host.commands().setResponder(0xFC000004u,
                                     [this](const kpf::IMessage&) -> std::optional<Bytes> { return deviceParamReply; });
        // One answer per assessment, in order; past the list, accepted.
        host.commands().setResponder(0xFC05021Fu, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            auto* query = host::payloadAddress<QueryInfo<s_TimingAssessQuery>>(command);
            if (query == nullptr)
                return std::nullopt;
            assessedTimings.push_back(query->info.stScreenThumbTimingArry);
            const std::size_t call = assessedTimings.size() - 1;
            const Assessment answer = call < assessments.size() ? assessments[call] : Assessment();
            query->info.stAssessResultArry = answer.results;
            return answer.carriedOut;
        });
        host.commands().setResponder(0xFC051008u, [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            // The payload is the vector object itself; its elements are the
            // sender's and readable while the command lasts.
            if (command.size() == 24 && command.data() != nullptr)
                thumbWritten.push_back(*static_cast<const std::vector<s_InterfaceThumbTiming>*>(command.data()));
            return writeAnswer;
        });
        host.commands().setResponder(0xFC08100Au,
                                     [this](const kpf::IMessage&) -> std::optional<Bytes> { return selectedReply; });
        const auto checkService = [this](const kpf::IMessage& command) -> std::optional<Bytes> {
            if (auto* query = host::payloadAddress<QueryInfo<s_TimigCheckQuery>>(command)) {
                thumbChecksSeen = query->info.stThumbCheckArry;
                detailChecksSeen = query->info.stDetailCheckArry;
                query->info.stCheckResultArry = checkResults;
            }
            return std::nullopt;
        };
        host.commands().setResponder(0xFC051000u, checkService);
        host.commands().setResponder(0xFC051001u, checkService);
        // Result lists travel as the vector object: read them while valid.
        host.recorder().setHook([this](const SentMessage& sent, const void* data) {
            if ((sent.number == 0xFC020603u || sent.number == 0xFC020604u) && sent.size == 24 && data != nullptr)
                resultEvents.push_back({sent.number, *static_cast<const s_TimigCheckResultArry*>(data)});
            if (sent.number == 0xFC051009u && sent.size == 24 && data != nullptr)
                referenceWritten.push_back(*static_cast<const std::vector<s_InterfacePresetTiming>*>(data));
        });

        host.start(component);
        host.recorder().clear();
    }

    void TearDown() override { EXPECT_EQ(host.store().liveCount(), 0u) << "a message or response leaked"; }

    // As the page or another component would send them.
    void setCurrent(const s_InterfaceList& record) { host.event(0xFC021009u, &record, sizeof record); }
    void pageEvent(std::uint32_t number) { host.event(number, nullptr, 0); }

    void requestThumbCheck(std::vector<s_ThumbTimigCheck> checks)
    {
        QueryInfo<s_TimigCheckQuery> request;
        request.info.stThumbCheckArry = std::move(checks);
        QueryInfo<s_TimigCheckQuery>* address = &request;
        host.event(0xFC000605u, &address, sizeof address);
    }

    void requestDetailCheck(std::vector<s_DetailTimigCheck> checks)
    {
        QueryInfo<s_TimigCheckQuery> request;
        request.info.stDetailCheckArry = std::move(checks);
        QueryInfo<s_TimigCheckQuery>* address = &request;
        host.event(0xFC000606u, &address, sizeof address);
    }

    std::vector<SentMessage> sent() { return host.recorder().messages(); }

    std::vector<std::uint32_t> sentNumbers()
    {
        std::vector<std::uint32_t> numbers;
        for (const SentMessage& message : sent())
            numbers.push_back(message.number);
        return numbers;
    }

    std::vector<std::string> warnings() { return capture.texts(); }

    WarningCapture capture;
    host::Host host;
    kpf::IMessageHandler* component = nullptr;

    struct Assessment
    {
        std::optional<Bytes> carriedOut = Bytes{1}; // the one-byte reply
        std::vector<s_AssessResult> results;
    };

    // What the stand-in components answer.
    std::vector<s_InterfaceList> interfaces;
    std::optional<Bytes> selectedReply; // reply to 0xFC08100A; none by default
    s_TimigCheckResultArry checkResults;
    std::vector<s_ScreenDetailInfo> screens;
    std::vector<s_SubcardInfo> subcards;
    std::optional<Bytes> deviceParamReply; // reply to 0xFC000004; none by default
    std::vector<Assessment> assessments;   // one per 0xFC05021F, in order
    std::optional<Bytes> writeAnswer;      // reply to 0xFC051008; none by default

    // What they saw.
    std::vector<s_ThumbTimigCheck> thumbChecksSeen;
    std::vector<s_DetailTimigCheck> detailChecksSeen;
    std::vector<std::pair<std::uint32_t, s_TimigCheckResultArry>> resultEvents;
    std::vector<Parameters> interfaceFiltersSeen;
    std::vector<Parameters> screenFiltersSeen;
    std::vector<std::int32_t> subcardRequestsSeen;
    std::vector<s_ScreenThumbTimingArry> assessedTimings;
    std::vector<std::vector<s_InterfaceThumbTiming>> thumbWritten;
    std::vector<std::vector<s_InterfacePresetTiming>> referenceWritten;
};

} // namespace test
} // namespace edidvm
