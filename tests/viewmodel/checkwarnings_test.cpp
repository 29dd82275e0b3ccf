// SPDX-License-Identifier: MIT
// Every warning the two check handlers log, text and function exactly: the
// simulator's traces show the function, so it is behaviour too.

#include "protomodel/messageids.h"
#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <functional>

namespace msg = LCD::MessageId;

namespace edidvm {
namespace test {
namespace {

constexpr std::uint32_t ThumbCheck = msg::ThumbCheckRequest;
constexpr std::uint32_t DetailCheck = msg::DetailCheckRequest;

const std::string ThumbHandler = "kpf::IMessage* Model::OutputEDIDViewModel::setThumbTimingCheck(const kpf::IMessage*)";
const std::string DetailHandler =
    "kpf::IMessage* Model::OutputEDIDViewModel::setDetailTimingCheck(const kpf::IMessage*)";
const std::string ThumbResponse = "void Model::OutputEDIDViewModel::setThumbTimingCheckResp(s_TimigCheckResultArry)";
const std::string DetailResponse = "void Model::OutputEDIDViewModel::setDetailTimingCheckResp(s_TimigCheckResultArry)";
const std::string InterfaceQuery =
    "Model::OutputEDIDViewModel::s_InterfaceDetailInfo Model::OutputEDIDViewModel::getInterfaceDetail()";
const std::string Reentry = "handler re-entered on a thread that holds the view model's lock; ignored";

struct Warning
{
    std::string text, function;
    bool operator==(const Warning& other) const { return text == other.text && function == other.function; }
};

void PrintTo(const Warning& warning, std::ostream* out)
{
    *out << '"' << warning.text << "\" in " << warning.function;
}

class CheckWarningTest : public ViewModelTest
{
protected:
    // Interface 7, current and listed, at 60 Hz; its result allows 60 Hz. The
    // detail check's timing is all zeros: only the thumb check refuses that.
    void baseline()
    {
        host.setVariation(host::Variation::Default);
        device.interfaceAnswerNulled = false;
        device.interfaces = {makeInterface(7)};
        setCurrent(device.interfaces[0]);
        device.checkResults = {{7, 0, 0.0f, 0.0f, 0, 0, {}, {6000}}};
        envelope.info.stThumbCheckArry = {{0, 0, {0, 60.0f, 1920, 1080, 0, 0, 0}, 0, 0}};
        envelope.info.stDetailCheckArry = {{}};
        address = &envelope;
        data = &address;
        size = sizeof address;
        nested = false;
        reset();
    }

    // The page's request, the envelope's address; nested, it is delivered
    // inside setCurrent, which holds the lock across its events.
    void request(std::uint32_t number)
    {
        if (!nested) {
            host.event(number, data, size);
            return;
        }
        host::Delivery delivery;
        delivery.number = number;
        delivery.payload = bytesOf(address);
        host::Interjection interjection;
        interjection.deliveries = {delivery};
        interjection.during = {msg::DetailTiming};
        interjection.times = 1;
        host.setVariation(host::Variation::NestedDeliveries);
        host.setInterjection(std::move(interjection));
        setCurrent(device.interfaces[0]);
    }

    std::vector<Warning> logged()
    {
        std::vector<Warning> warnings;
        for (const LoggedMessage& message : capture.messages())
            warnings.push_back({message.text, message.function});
        return warnings;
    }

    QueryInfo<s_TimigCheckQuery> envelope;
    QueryInfo<s_TimigCheckQuery>* address = nullptr;
    const void* data = nullptr;
    int size = 0;
    bool nested = false;
};

TEST_F(CheckWarningTest, EachRoadThatStopsACheckLogsItsWarningsInTheirOwnFunctions)
{
    struct Road
    {
        const char* name;
        std::uint32_t number;
        std::function<void()> arrange;
        std::vector<Warning> expected;
    };
    const auto shortPayload = [this] { size = 7; };
    const auto noData = [this] { data = nullptr; };
    const auto nullEnvelope = [this] { address = nullptr; };
    const auto noThumbChecks = [this] { envelope.info.stThumbCheckArry.clear(); };
    const auto noDetailChecks = [this] { envelope.info.stDetailCheckArry.clear(); };
    const auto zeroTiming = [this] { envelope.info.stThumbCheckArry[0].stThumbTiming.width = 0; };
    const auto unlisted = [this] { device.interfaces[0].interfaceId = 8; };
    const auto queryFails = [this] {
        host.setVariation(host::Variation::LentPayloads);
        device.interfaceAnswerNulled = true;
    };
    const auto reentered = [this] { nested = true; };
    const auto frameMissing = [this] { device.checkResults[0].frameRates = {5000}; };
    const Warning thumbNull = {"msg data is null.", ThumbHandler};
    const Warning detailNull = {"msg data is null.", DetailHandler};
    const Warning queryFailed = {"get interface detail fail.", InterfaceQuery};
    const Road roads[] = {
        {"thumb, payload one byte short", ThumbCheck, shortPayload, {thumbNull}},
        {"thumb, no data", ThumbCheck, noData, {thumbNull}},
        {"thumb, null envelope", ThumbCheck, nullEnvelope, {thumbNull}},
        {"thumb, no checks", ThumbCheck, noThumbChecks, {{"stThumbCheckArry is empty.", ThumbHandler}}},
        {"thumb, zero timing", ThumbCheck, zeroTiming, {{"timing is 0.", ThumbHandler}}},
        {"thumb, current interface not listed",
         ThumbCheck,
         unlisted,
         {{"Not find interface source. interfaceid: 7", ThumbHandler}}},
        {"thumb, interface query failed",
         ThumbCheck,
         queryFails,
         {queryFailed, {"Not find interface source. interfaceid: 7", ThumbHandler}}},
        {"thumb, re-entered", ThumbCheck, reentered, {{Reentry, ThumbHandler}}},
        {"thumb, results miss the frame",
         ThumbCheck,
         frameMissing,
         {{"check array not find cur frame", ThumbResponse}}},
        {"detail, payload one byte short", DetailCheck, shortPayload, {detailNull}},
        {"detail, no data", DetailCheck, noData, {detailNull}},
        {"detail, null envelope", DetailCheck, nullEnvelope, {detailNull}},
        {"detail, no checks", DetailCheck, noDetailChecks, {{"stDetailCheckArry is empty.", DetailHandler}}},
        {"detail, current interface not listed",
         DetailCheck,
         unlisted,
         {{"Not find input source. interfaceid: 7", DetailHandler}}},
        {"detail, interface query failed",
         DetailCheck,
         queryFails,
         {queryFailed, {"Not find input source. interfaceid: 7", DetailHandler}}},
        {"detail, re-entered", DetailCheck, reentered, {{Reentry, DetailHandler}}},
        {"detail, results miss the frame",
         DetailCheck,
         frameMissing,
         {{"not find frame in check array", DetailResponse}}},
    };
    for (const Road& road : roads) {
        SCOPED_TRACE(road.name);
        baseline();
        road.arrange();
        request(road.number);
        EXPECT_EQ(logged(), road.expected);
    }
}

} // namespace
} // namespace test
} // namespace edidvm
