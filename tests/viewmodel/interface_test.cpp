// Current interface, timing retrieval and timing checks, through the real library.

#include "protomodel/messageids.h"
#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <limits>

namespace msg = LCD::MessageId;

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t SetCurrent = msg::SetCurrentInterface;
const char ThumbFrameWarning[] = "check array not find cur frame";
const char DetailFrameWarning[] = "not find frame in check array";

// A check as the page sends it: the view model fills in the interface and its check parameters.
s_ThumbTimigCheck thumbCheck(std::int32_t width, std::int32_t height, float refresh, std::int32_t tag = 0)
{
    return {55, tag, {7, refresh, width, height, 8, 9, 10}, 999, 998};
}

s_DetailTimigCheck detailCheck(std::int32_t tag)
{
    s_DetailTimigCheck check{55, tag, {}, 999, 998};
    check.stTimingDetail.height = 1080 + tag;
    return check;
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
            requestChecks({}, {detailCheck(0)});
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
    envelope.info.stDetailCheckArry = {detailCheck(0)};
    QueryInfo<s_TimigCheckQuery>* address = &envelope;
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
        {"current interface", SetCurrent, zeros, 840, "set current interface info error"},
        {"thumb check", msg::ThumbCheckRequest, &address, 8, "msg data is null."},
        {"detail check", msg::DetailCheckRequest, &address, 8, "msg data is null."},
        {"thumb choice", msg::ThumbChoice, zeros, 40, "req does not matches."},
        {"reference choice", msg::ReferenceChoice, zeros, 68, "req does not matches."},
        {"changed reference timings", msg::ChangedReferenceTimings, zeros, 24, "resp does not matches."},
        {"changed thumb timings", msg::ChangedThumbTimings, zeros, 24, "resp does not matches."},
        {"box answer", msg::BoxAnswer, zeros, 556, "Msg does not matches."},
    };
    struct Fault
    {
        const char* name;
        int extraBytes;
        bool noData;
    };
    const Fault faults[] = {{"one byte short", -1, false}, {"one byte too many", 1, false}, {"no data", 0, true}};
    for (const Handler& handler : handlers) {
        for (const Fault& fault : faults) {
            SCOPED_TRACE(std::string(handler.name) + ", " + fault.name);
            reset();
            host.event(handler.number, fault.noData ? nullptr : handler.data, handler.size + fault.extraBytes);
            EXPECT_EQ(warnings(), Trace{handler.warning});
            EXPECT_THAT(sent(), IsEmpty());
        }
    }
    EXPECT_EQ(host.command(msg::InterfaceType, nullptr, 0), bytesOf<std::int32_t>(0)) << "no interface was set";
}

// Category, file, line and function, in every build type.
TEST_P(InterfaceTest, AWarningCarriesItsWholeContext)
{
    host.event(SetCurrent, nullptr, 0);
    ASSERT_EQ(capture.messages().size(), 1u);
    const LoggedMessage logged = capture.messages().front();
    EXPECT_EQ(logged.type, QtWarningMsg);
    EXPECT_EQ(logged.category, "default");
    EXPECT_EQ(logged.file, "outputedidviewmodel.cpp");
    EXPECT_GT(logged.line, 0);
    EXPECT_THAT(logged.function, HasSubstr("Model::OutputEDIDViewModel::setCurrentInterfaceInfo(const kpf::IMessage"));
}

TEST_P(InterfaceTest, AThumbCheckWhoseFirstTimingIsZeroStopsWithOneWarning)
{
    device.interfaces = {makeInterface(0)};
    // Only the first thumb check is tested: product in 32 bits, refresh truncated.
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

// Results 2 and 3 miss the current interface's 60 Hz: judged on every type.
TEST_P(InterfaceTest, ThumbResultsGoOutWholeOnEveryInterfaceType)
{
    twoInterfaces();
    for (std::int32_t type : {4, 8, 6, 0}) {
        SCOPED_TRACE(type);
        device.interfaces[0].stAuxiliaryInfo.interfaceType = type;
        device.checkResults = {result(1, 1, {6000}), result(2, 2, {5000}), result(1, 3, {5000})};
        reset();
        request(true);
        EXPECT_EQ(resultsSent(), Trace{"if1#1 if2#2 if1#3"});
        EXPECT_THAT(warnings(), ElementsAre(ThumbFrameWarning));
    }
}

// Result 3 misses the current interface's 60 Hz: judged on every type.
TEST_P(InterfaceTest, DetailResultsGoOutForTheCurrentInterfaceOnlyOnType4Or8)
{
    twoInterfaces();
    for (std::int32_t type : {4, 8, 6, 0}) {
        SCOPED_TRACE(type);
        // The type is read from the fresh list, not from the cached record.
        device.interfaces[0].stAuxiliaryInfo.interfaceType = type;
        const bool forwarded = type == 4 || type == 8;
        device.checkResults = {result(1, 1, {6000}), result(2, 2, {5000}), result(1, 3, {5000})};
        reset();
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace{"if1#1 if1#3"} : Trace{});
        EXPECT_THAT(warnings(), ElementsAre(DetailFrameWarning));
        // Nothing left for the current interface: an empty list, if any.
        device.checkResults = {result(2, 2, {5000})};
        reset();
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace{""} : Trace{});
        EXPECT_THAT(warnings(), IsEmpty());
    }
}

TEST_P(InterfaceTest, FrameRatesAreComparedInSinglePrecision)
{
    twoInterfaces();
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
        request(true);
        request(false);
        EXPECT_EQ(warnings(), c.holds ? Trace{} : Trace({ThumbFrameWarning, DetailFrameWarning}));
    }
}

TEST_P(InterfaceTest, EachFrameWarningIsLoggedAfterItsResultEvent)
{
    twoInterfaces();
    device.checkResults = {result(1, 1, {5000})};
    std::vector<std::size_t> warningsAtEvent;
    const auto listener = [&](const kpf::IMessage&) { warningsAtEvent.push_back(warnings().size()); };
    host.events().addListener(listener, msg::ThumbCheckResults);
    host.events().addListener(listener, msg::DetailCheckResults);
    request(true);
    request(false);
    EXPECT_THAT(warningsAtEvent, ElementsAre(0u, 1u));
    EXPECT_THAT(warnings(), ElementsAre(ThumbFrameWarning, DetailFrameWarning));
}

// The response's own (third) fetch lacks interface 1: no frame to compare.
TEST_P(InterfaceTest, WithoutTheCurrentInterfaceInTheResponsesFetchNoFrameIsJudged)
{
    twoInterfaces();
    device.checkResults = {result(1, 1, {5000})};
    for (bool thumb : {true, false}) {
        SCOPED_TRACE(thumb ? "thumb" : "detail");
        host.commands().setResponder(msg::InterfaceDetail, [this, count = 0](const kpf::IMessage& command) mutable {
            if (auto* query = host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command))
                if (++count != 3)
                    query->info.stInterfaceListArry = device.interfaces;
            return std::optional<Bytes>();
        });
        reset();
        request(thumb);
        EXPECT_EQ(resultsSent().size(), thumb ? 1u : 0u);
        EXPECT_THAT(warnings(), IsEmpty());
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
