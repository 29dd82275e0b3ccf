// SPDX-License-Identifier: MIT
// The handlers' payload checks and the two timing checks, through the real
// library, on every host variation that copies, lends or answers elsewhere.

#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <cstring>

#include <functional>
#include <limits>

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const char ThumbFrameWarning[] = "check array not find cur frame";
const char DetailFrameWarning[] = "not find frame in check array";

// A check as the page sends it: the view model fills in the interface and its check parameters.
s_ThumbTimigCheck thumbCheck(std::int32_t width, std::int32_t height, float refresh, std::int32_t tag = 0)
{
    return {55, tag, {7, refresh, width, height, 8, 9, 10}, 999, 998};
}

s_TimigCheckResult result(std::int32_t interfaceId, std::uint32_t mark, std::vector<std::int32_t> frameRates)
{
    return {interfaceId, mark, 0.0f, 0.0f, 0, 0, {}, std::move(frameRates)};
}

class InterfaceTest : public ViewModelTest
{
protected:
    // Interfaces 1 (current) and 2, both of type 4 at 60 Hz.
    void twoInterfaces()
    {
        device.interfaces = {makeInterface(1, 0, 4), makeInterface(2, 1, 4)};
        setCurrent(device.interfaces[0]);
        reset();
    }

    void request(bool thumb)
    {
        if (thumb)
            requestChecks({thumbCheck(1920, 1080, 60.0f)});
        else
            requestChecks({}, {s_DetailTimigCheck{}});
    }

    // One text per result event, "if1#1 if2#2": tells results apart.
    Trace resultsSent()
    {
        Trace texts;
        for (const auto& event : resultEvents) {
            texts.emplace_back();
            for (const s_TimigCheckResult& r : event.second)
                texts.back() += (texts.back().empty() ? "if" : " if") + std::to_string(r.interfaceId) + "#" +
                                std::to_string(r.resWord1);
        }
        return texts;
    }
};

// Every handler that reads its payload wants the exact size and data: one
// byte short or too many, or no data, is refused with the handler's warning.
TEST_P(InterfaceTest, MalformedPayloadsAreRefusedWithTheirHandlersWarning)
{
    // The check requests carry a usable envelope's address, the rest zeros.
    QueryInfo<s_TimigCheckQuery> envelope;
    envelope.info.stThumbCheckArry = {thumbCheck(1920, 1080, 60.0f)};
    envelope.info.stDetailCheckArry = {s_DetailTimigCheck{}};
    QueryInfo<s_TimigCheckQuery>* address = &envelope;
    // One byte too many must be readable too: the address, then zeros.
    unsigned char addressBytes[sizeof address + 1] = {};
    std::memcpy(addressBytes, &address, sizeof address);
    const unsigned char zeros[1000] = {};
    device.interfaces = {makeInterface(0)};
    struct Handler
    {
        const char* name;
        std::uint32_t number;
        const void* data;
        int size;
        const char* warning;
    };
    const Handler handlers[] = {
        {"current interface", msg::SetCurrentInterface, zeros, 840, "set current interface info error"},
        {"SDI record", msg::SdiInterface, zeros, 16, "command does not correct."},
        {"thumb check", msg::ThumbCheckRequest, addressBytes, 8, "msg data is null."},
        {"detail check", msg::DetailCheckRequest, addressBytes, 8, "msg data is null."},
        {"thumb choice", msg::ThumbChoice, zeros, 40, "req does not matches."},
        {"reference choice", msg::ReferenceChoice, zeros, 68, "req does not matches."},
        {"changed reference timings", msg::ChangedReferenceTimings, zeros, 24, "resp does not matches."},
        {"changed thumb timings", msg::ChangedThumbTimings, zeros, 24, "resp does not matches."},
        {"box answer", msg::BoxAnswer, zeros, 556, "Msg does not matches."},
    };
    for (const Handler& handler : handlers) {
        for (const int extra : {-1, 1, 0}) { // bytes too many; 0: no data
            SCOPED_TRACE(std::string(handler.name) + (extra == 0 ? ", no data" : ", size " + std::to_string(extra)));
            reset();
            host.event(handler.number, extra != 0 ? handler.data : nullptr, handler.size + extra);
            EXPECT_EQ(warnings(), Trace{handler.warning});
            EXPECT_THAT(sent(), IsEmpty());
        }
    }
    EXPECT_EQ(host.command(msg::InterfaceType, nullptr, 0), bytesOf<std::int32_t>(0)) << "no interface was set";
}

using CheckRoadTest = InterfaceTest;

// Each road that stops a check logs its warnings in the handler's own
// function, though a shared helper logs them (the simulator's traces show
// the function): a null envelope, no checks, the current interface not
// listed or the query failing (logged where it failed first).
TEST_F(CheckRoadTest, EachRoadThatStopsACheckLogsItsWarningsInTheHandler)
{
    const char queryFailed[] = "get interface detail fail.";
    QueryInfo<s_TimigCheckQuery> envelope;
    QueryInfo<s_TimigCheckQuery>* address = nullptr;
    struct Road
    {
        const char* name;
        std::function<void()> arrange;
        Trace thumbTexts, detailTexts;
    };
    const Road roads[] = {
        {"null envelope", [&] { address = nullptr; }, {"msg data is null."}, {"msg data is null."}},
        {"no checks", [&] { envelope.info = {}; }, {"stThumbCheckArry is empty."}, {"stDetailCheckArry is empty."}},
        {"current interface not listed",
         [&] { device.interfaces[0].interfaceId = 8; },
         {"Not find interface source. interfaceid: 7"},
         {"Not find input source. interfaceid: 7"}},
        {"interface query failed",
         [&] {
             host.setVariation(host::Variation::LentPayloads);
             device.interfaceAnswerNulled = true;
         },
         {queryFailed, "Not find interface source. interfaceid: 7"},
         {queryFailed, "Not find input source. interfaceid: 7"}},
    };
    for (const Road& road : roads) {
        for (const bool thumb : {true, false}) {
            SCOPED_TRACE(std::string(road.name) + (thumb ? ", thumb" : ", detail"));
            // Interface 7, current and listed.
            host.setVariation(host::Variation::Default);
            device.interfaceAnswerNulled = false;
            device.interfaces = {makeInterface(7)};
            setCurrent(device.interfaces[0]);
            envelope.info.stThumbCheckArry = {{0, 0, {0, 60.0f, 1920, 1080, 0, 0, 0}, 0, 0}};
            envelope.info.stDetailCheckArry = {{}};
            address = &envelope;
            reset();
            road.arrange();
            host.event(thumb ? msg::ThumbCheckRequest : msg::DetailCheckRequest, &address, sizeof address);
            EXPECT_EQ(warnings(), thumb ? road.thumbTexts : road.detailTexts);
            for (const LoggedMessage& message : capture.messages()) {
                const bool inQuery = message.text == queryFailed;
                EXPECT_THAT(message.function, HasSubstr(inQuery ? "::getInterfaceDetail()"
                                                        : thumb ? "::setThumbTimingCheck(const kpf::IMessage*)"
                                                                : "::setDetailTimingCheck(const kpf::IMessage*)"));
                EXPECT_EQ(message.type, QtWarningMsg);
                EXPECT_EQ(message.category, "default");
                EXPECT_EQ(message.file, "outputedidviewmodel.cpp");
            }
        }
    }
}

// Only the first thumb check is tested: product in 32 bits, refresh truncated.
TEST_P(InterfaceTest, AThumbCheckWhoseFirstTimingIsZeroStopsWithOneWarning)
{
    device.interfaces = {makeInterface(0)};
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Case
    {
        const char* name;
        std::vector<s_ThumbTimigCheck> checks;
        bool rejected;
    };
    const Case cases[] = {
        {"first height 0", {thumbCheck(1920, 0, 60.0f), thumbCheck(1920, 1080, 60.0f)}, true},
        {"refresh 0.5", {thumbCheck(1920, 1080, 0.5f)}, true},
        {"NaN refresh", {thumbCheck(1920, 1080, nan)}, true},
        {"refresh beyond int", {thumbCheck(1920, 1080, 3.0e9f)}, true},
        {"refresh 2^31, odd product", {thumbCheck(1, 1, 2147483648.0f)}, true},
        {"refresh below int", {thumbCheck(1920, 1080, -3.0e9f)}, true},
        {"product wraps to 0", {thumbCheck(65536, 65536, 1.0f)}, true},
        {"second width 0", {thumbCheck(1920, 1080, 60.0f), thumbCheck(0, 1080, 60.0f, 1)}, false},
        {"refresh 1.5", {thumbCheck(1920, 1080, 1.5f)}, false},
        {"negative product", {thumbCheck(-1920, 1080, 60.0f)}, false},
        {"refresh -2^31, odd product", {thumbCheck(1, 1, -2147483648.0f)}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reset();
        requestChecks(c.checks);
        EXPECT_EQ(warnings(), c.rejected ? Trace{"timing is 0."} : Trace{});
        EXPECT_EQ(device.thumbChecksSeen.size(), c.rejected ? 0u : c.checks.size());
    }
}

// The type is read from the fresh list, not from the cached record; with no
// result for the current interface, an empty list goes out on type 4 or 8.
// Without the current interface in the response's own (third) fetch there
// is no frame to compare, and no type: thumb results go out, detail not.
TEST_P(InterfaceTest, DetailResultsGoOutForTheCurrentInterfaceOnlyOnType4Or8)
{
    twoInterfaces();
    for (std::int32_t type : {4, 8, 6}) {
        SCOPED_TRACE(type);
        device.interfaces[0].stAuxiliaryInfo.interfaceType = type;
        const bool forwarded = type == 4 || type == 8;
        device.checkResults = {result(1, 1, {6000}), result(2, 2, {5000}), result(1, 3, {6000})};
        reset();
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace{"if1#1 if1#3"} : Trace{});
        device.checkResults = {result(2, 2, {5000})};
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace({"if1#1 if1#3", ""}) : Trace{});
        EXPECT_THAT(warnings(), IsEmpty());
    }
    device.interfaces[0].stAuxiliaryInfo.interfaceType = 4;
    device.checkResults = {result(1, 1, {5000})};
    host.commands().setResponder(msg::InterfaceDetail, [this, count = 0](const kpf::IMessage& command) mutable {
        if (auto* query = host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command))
            if (++count % 3 != 0)
                query->info.stInterfaceListArry = device.interfaces;
        return std::optional<Bytes>();
    });
    reset();
    request(true);
    request(false);
    EXPECT_EQ(resultsSent(), Trace{"if1#1"});
    EXPECT_THAT(warnings(), IsEmpty());
}

// Each frame warning comes after its result event.
TEST_P(InterfaceTest, FrameRatesAreComparedInSinglePrecisionAndWarnedAfterTheResults)
{
    twoInterfaces();
    std::vector<std::size_t> warningsAtEvent;
    const auto listener = [&](const kpf::IMessage&) { warningsAtEvent.push_back(warnings().size()); };
    host.events().addListener(listener, msg::ThumbCheckResults);
    host.events().addListener(listener, msg::DetailCheckResults);
    struct Case
    {
        const char* name;
        float refresh;
        std::vector<std::int32_t> rates;
        bool holds;
    };
    const Case cases[] = {
        {"59.94 Hz as 5994", 59.94f, {5994}, true},
        {"60 Hz among others", 60.0f, {5994, 6000}, true},
        {"60 Hz not 5994", 60.0f, {5994}, false},
        {"59.94 Hz between two", 59.94f, {5993, 5995}, false},
        {"no rates", 60.0f, {}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        device.interfaces[0].stThumbTiming.refresh = c.refresh;
        device.checkResults = {result(1, 1, c.rates)};
        reset();
        warningsAtEvent.clear();
        request(true);
        request(false);
        EXPECT_EQ(warnings(), c.holds ? Trace{} : Trace({ThumbFrameWarning, DetailFrameWarning}));
        EXPECT_THAT(warningsAtEvent, ElementsAre(0u, c.holds ? 0u : 1u));
    }
}

// The same behaviour whether the host copies payloads or lends them, whether
// it answers the interface query in the asker's envelope or its own, and
// whether data() stays readable after its first call.
INSTANTIATE_TEST_SUITE_P(Hosts, InterfaceTest,
                         ::testing::Values(host::Variation::Default, host::Variation::LentPayloads,
                                           host::Variation::AnswerElsewhere, host::Variation::UnstableData),
                         variationTestName);

} // namespace
} // namespace test
} // namespace edidvm
