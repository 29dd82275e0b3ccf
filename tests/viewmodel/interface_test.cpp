// Current interface, timing retrieval and timing checks, through the real library.

#include "viewmodel/viewmodelfixture.h"

#include <gmock/gmock.h>

#include <limits>

namespace edidvm {
namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t SetCurrent = 0xFC021009u;
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
    QueryInfo<s_TimigCheckQuery>* addresses[] = {&envelope, nullptr};
    const unsigned char zeros[1000] = {};
    device.interfaces = {makeInterface(0)};
    const std::tuple<std::uint32_t, const void*, int, const char*> handlers[] = {
        {SetCurrent, zeros, 840, "set current interface info error"},
        {0xFC000605u, addresses, 8, "msg data is null."},
        {0xFC000606u, addresses, 8, "msg data is null."},
        {0xFC00060Cu, zeros, 40, "req does not matches."},
        {0xFC00060Du, zeros, 68, "req does not matches."},
        {0xFC081005u, zeros, 24, "resp does not matches."},
        {0xFC081006u, zeros, 24, "resp does not matches."},
        {0xFC000620u, zeros, 556, "Msg does not matches."},
    };
    for (const auto& [number, data, size, warning] : handlers) {
        SCOPED_TRACE(::testing::Message() << std::hex << number);
        reset();
        for (const auto& [bytes, length] :
             {std::pair<const void*, int>{data, size - 1}, {data, size + 1}, {nullptr, size}})
            host.event(number, bytes, length);
        EXPECT_EQ(warnings(), Trace(3, warning));
        EXPECT_THAT(sent(), IsEmpty());
    }
    // Nor a null envelope address.
    reset();
    host.event(0xFC000605u, addresses + 1, 8);
    host.event(0xFC000606u, addresses + 1, 8);
    EXPECT_EQ(warnings(), Trace(2, "msg data is null."));
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_EQ(host.command(0xFC051016u, nullptr, 0), bytesOf<std::int32_t>(0)) << "no interface was set";
    // Category, file, line and function, in every build type.
    host.event(SetCurrent, nullptr, 0);
    const LoggedMessage logged = capture.messages().at(2);
    EXPECT_EQ(std::make_tuple(logged.type, logged.category, logged.file),
              std::make_tuple(QtWarningMsg, std::string("default"), std::string("outputedidviewmodel.cpp")));
    EXPECT_GT(logged.line, 0);
    EXPECT_THAT(logged.function, HasSubstr("Model::OutputEDIDViewModel::setCurrentInterfaceInfo(const kpf::IMessage"));
}

TEST_P(InterfaceTest, AThumbCheckWhoseFirstTimingIsZeroStopsWithOneWarning)
{
    device.interfaces = {makeInterface(0)};
    // Only the first thumb check is tested: product in 32 bits, refresh truncated.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::tuple<const char*, std::vector<s_ThumbTimigCheck>, bool> cases[] = {
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
    for (const auto& [name, checks, rejected] : cases) {
        SCOPED_TRACE(name);
        reset();
        requestChecks(checks);
        EXPECT_EQ(warnings(), rejected ? Trace{"timing is 0."} : Trace{});
        EXPECT_EQ(device.thumbChecksSeen.size(), rejected ? 0u : checks.size());
    }
}

TEST_P(InterfaceTest, ResultsGoOutWholeOrForTheCurrentInterfaceOfType4Or8JudgedInSinglePrecisionAfterTheEvent)
{
    device.interfaces = {makeInterface(1, 0, 4), makeInterface(2, 1, 4)}; // both at 60 Hz
    setCurrent(device.interfaces[0]);
    for (std::int32_t type : {4, 8, 6, 0}) {
        SCOPED_TRACE(type);
        // The type is read from the fresh list, not from the cached record.
        device.interfaces[0].stAuxiliaryInfo.interfaceType = type;
        const bool forwarded = type == 4 || type == 8;
        device.checkResults = {result(1, 1, {6000}), result(2, 2, {5000}), result(1, 3, {5000})};
        reset();
        request(true);
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace({"if1#1 if2#2 if1#3", "if1#1 if1#3"}) : Trace{"if1#1 if2#2 if1#3"});
        // Judged whether forwarded or not.
        EXPECT_THAT(warnings(), ElementsAre(ThumbFrameWarning, DetailFrameWarning));
        // Nothing left for the current interface: an empty list, if any.
        device.checkResults = {result(2, 2, {5000})};
        reset();
        request(false);
        EXPECT_EQ(resultsSent(), forwarded ? Trace{""} : Trace{});
        EXPECT_THAT(warnings(), IsEmpty());
    }

    device.interfaces[0].stAuxiliaryInfo.interfaceType = 4;
    const std::tuple<float, std::vector<std::int32_t>, bool> cases[] = {
        {59.94f, {5994}, true},        {60.0f, {5994, 6000}, true}, {60.0f, {5994}, false},
        {59.94f, {5993, 5995}, false}, {60.0f, {}, false},
    };
    std::vector<std::size_t> warningsAtEvent;
    const auto listener = [&](const kpf::IMessage&) { warningsAtEvent.push_back(warnings().size()); };
    host.events().addListener(listener, 0xFC020603u);
    host.events().addListener(listener, 0xFC020604u);
    for (const auto& [refresh, rates, holds] : cases) {
        SCOPED_TRACE(::testing::Message() << refresh << " against " << ::testing::PrintToString(rates));
        device.interfaces[0].stThumbTiming.refresh = refresh;
        device.checkResults = {result(1, 1, rates)};
        reset();
        warningsAtEvent.clear();
        request(true);
        request(false);
        EXPECT_EQ(warnings(), holds ? Trace{} : Trace({ThumbFrameWarning, DetailFrameWarning}));
        EXPECT_THAT(warningsAtEvent, ElementsAre(0u, holds ? 0u : 1u)) << "each warning after its event";
    }

    // The response's own (third) fetch lacks interface 1: no frame to compare.
    for (bool thumb : {true, false}) {
        SCOPED_TRACE(thumb ? "thumb" : "detail");
        host.commands().setResponder(0xFC050111u, [this, count = 0](const kpf::IMessage& command) mutable {
            if (auto* query = host::payloadAddress<QueryInfo<s_InterfaceDetailInfo>>(command))
                if (++count != 3)
                    query->info.stInterfaceListArry = device.interfaces;
            return std::optional<Bytes>();
        });
        reset();
        request(thumb);
        EXPECT_EQ(resultEvents.size(), thumb ? 1u : 0u);
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
