// SPDX-License-Identifier: MIT
#pragma once

// The built library on our host, with stand-ins for the components the view
// model talks to: the device answers from its fields and keeps what it saw.

#include "common/warningcapture.h"
#include "framework/wire.h"
#include "host/host.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "tests/support/devicestandin.h"
#include "viewmodel/viewmodelrecords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace edidvm {
namespace test {

namespace msg = LCD::MessageId;

using namespace LCD::ProtoModel::Interface;
using namespace LCD::ProtoModel::Screen;
using namespace LCD::ProtoModel::Subcard;
using host::Bytes;
using host::SentKind;
using host::SentMessage;
using LCD::GlobalMessageHander::QueryInfo;
using Trace = std::vector<std::string>;

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

// Records one after the other; lists of lists flattened.
template <typename Record>
Bytes bytesOfAll(const std::vector<Record>& records)
{
    Bytes all;
    for (const Record& record : records) {
        Bytes one;
        if constexpr (std::is_trivially_copyable_v<Record>)
            one = bytesOf(record);
        else
            one = bytesOfAll(record);
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

// One step per message, "C FC050111 8": kind (Q: queued event), number, size.
inline Trace trace(const std::vector<SentMessage>& messages)
{
    Trace steps;
    for (const SentMessage& message : messages) {
        const char kind = message.kind == SentKind::Command ? 'C' : message.kind == SentKind::Event ? 'E' : 'Q';
        char text[32];
        std::snprintf(text, sizeof text, "%c %08X %d", kind, static_cast<unsigned>(message.number), message.size);
        steps.push_back(text);
    }
    return steps;
}

inline Trace join(std::initializer_list<Trace> parts)
{
    Trace all;
    for (const Trace& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// For the suites that must behave the same on every host that copies or
// lends payloads, or answers queries elsewhere.
inline std::string variationTestName(const ::testing::TestParamInfo<host::Variation>& info)
{
    std::string name = host::variationName(info.param);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

// Runs as a plain or a parameterised fixture; the parameter is the host's
// variation.
class ViewModelTest : public ::testing::TestWithParam<host::Variation>
{
protected:
    void SetUp() override
    {
        const bool parameterised = ::testing::UnitTest::GetInstance()->current_test_info()->value_param() != nullptr;
        host.setVariation(parameterised ? GetParam() : host::Variation::Default);
        ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
        component = host.components().at(0);
        installStandIns();
        host.start(component);
        host.recorder().clear();
    }

    void TearDown() override
    {
        EXPECT_EQ(host.store().liveCount(), 0u) << "a message or response leaked";
        EXPECT_EQ(host.keptEnvelopesChanged(), "");
    }

    // The device answers from its fields; the page's side keeps the result
    // lists, which travel as the vector object: read them while valid.
    void installStandIns()
    {
        device.readFilter = applied;
        device.onSent = [this](const SentMessage& sent, const void* data) {
            if ((sent.number == msg::ThumbCheckResults || sent.number == msg::DetailCheckResults) && sent.size == 24 &&
                data != nullptr)
                resultEvents.push_back({sent.number, *static_cast<const s_TimigCheckResultArry*>(data)});
        };
        device.install(host);
    }

    static Parameters applied(const LCD::GlobalMessageHander::QueryFilter& filter)
    {
        Parameters params;
        if (filter) {
            params = {{"stale", "1"}};
            EXPECT_TRUE(filter(params)) << "a filter that applies says so";
        }
        return params;
    }

    // Forgets what was sent, logged and seen so far.
    void reset()
    {
        host.recorder().clear();
        capture.clear();
        device.forget();
        resultEvents.clear();
    }

    // As the page or another component would send them.
    void setCurrent(const s_InterfaceList& record) { host.event(msg::SetCurrentInterface, &record, sizeof record); }
    void pageEvent(std::uint32_t number) { host.event(number, nullptr, 0); }

    // The page's check request: the address of an envelope holding the checks.
    void requestChecks(std::vector<s_ThumbTimigCheck> thumbs, std::vector<s_DetailTimigCheck> details = {})
    {
        QueryInfo<s_TimigCheckQuery> request;
        const std::uint32_t number = thumbs.empty() ? msg::DetailCheckRequest : msg::ThumbCheckRequest;
        request.info.stThumbCheckArry = std::move(thumbs);
        request.info.stDetailCheckArry = std::move(details);
        QueryInfo<s_TimigCheckQuery>* address = &request;
        host.event(number, &address, sizeof address);
    }

    std::vector<SentMessage> sent() { return host.recorder().messages(); }

    // The payload of the n-th message sent with this number.
    Bytes payloadOf(std::uint32_t number, std::size_t occurrence = 0)
    {
        for (const SentMessage& message : sent())
            if (message.number == number && occurrence-- == 0)
                return message.bytes;
        ADD_FAILURE() << std::hex << number << " not sent";
        return {};
    }

    std::vector<std::string> warnings() { return capture.texts(); }

    WarningCapture capture;
    DeviceStandIn device; // outlives the host, which routes to it
    host::Host host;
    kpf::IMessageHandler* component = nullptr;

    // The check results the page was sent.
    std::vector<std::pair<std::uint32_t, s_TimigCheckResultArry>> resultEvents;
};

} // namespace test
} // namespace edidvm
