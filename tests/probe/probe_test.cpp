// SPDX-License-Identifier: MIT
// The probe beside the library on our host: on each way the host can behave
// its report, a file the simulator plays, lists what the host did, bad input
// is reported as seen, and it sends only its own numbers and the read-only queries.

#include "common/warningcapture.h"
#include "host/host.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/messageids.h"
#include "sim/player.h"
#include "sim/scenario.h"
#include "tests/support/devicestandin.h"
#include "viewmodel/viewmodelrecords.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace edidvm {
namespace test {
namespace {

using host::Variation;
using namespace LCD::ProtoModel;

// Both components' names start so.
const char ProbeSender[] = "outputedidviewmodelprobe";
// The probe's numbers (0xE0D1xxxx) and the queries the view model reads with.
const std::set<std::uint32_t> Queries = {0xFC050111u, 0xFC050200u, 0xFC0D1000u, 0xFC000004u, 0xFC08100Au};

struct Row
{
    const char* name;
    Variation variation;
    std::function<void(host::Host&)> setup;    // before loading
    std::vector<std::string> variations;       // exactly, in the report's order
    std::vector<std::string> outside;          // each the start of one entry, exactly as many
    std::map<std::string, std::string> fields; // path in the report: its text's start
};

// One delivery of `size` zero bytes (or of `record`) nested in every send.
void interject(host::Host& host, std::uint32_t number, int size, std::shared_ptr<const void> record = nullptr)
{
    host::Interjection interjection;
    host::Delivery& made = interjection.deliveries.emplace_back();
    made.number = number;
    made.payload.assign(static_cast<std::size_t>(size), 0);
    made.record = std::move(record);
    host.setInterjection(std::move(interjection));
}

const Row rows[] = {
    {"default", Variation::Default, nullptr, {"default"}, {}, {}},
    {"lent_payloads", Variation::LentPayloads, nullptr, {"lent-payloads"}, {}, {}},
    {"answer_elsewhere", Variation::AnswerElsewhere, nullptr, {"lent-payloads", "answer-elsewhere"}, {}, {}},
    {"unstable_data", Variation::UnstableData, nullptr, {"unstable-data"}, {}, {{"capture/state", "not started"}}},
    // The SDI interface's event: a 16-byte record the library only stores.
    {"nested_deliveries",
     Variation::NestedDeliveries,
     [](host::Host& host) { interject(host, 0xFC031007u, 16); },
     {"nested-deliveries"},
     {},
     {}},
    {"moving_current",
     Variation::MovingCurrent,
     [](host::Host& host) {
         interject(host, 0xFC021009u, sizeof(Interface::s_InterfaceList),
                   std::make_shared<const Interface::s_InterfaceList>());
     },
     {"moving-current"},
     {},
     {}},
    // Outside the contract: a posted event delivered at once.
    {"post_at_once",
     Variation::Default,
     [](host::Host& host) { host.events().setPostDeliversAtOnce(true); },
     {"default"},
     {"postEvent delivered before it returned, on the posting thread (100 of 100 tries)"},
     {}},
    // Bad input: services missing, so subscriptions fail; nobody answers the
    // queries but one, with the wrong size.
    {"bad_input",
     Variation::Default,
     [](host::Host& host) {
         host.api().removeService("eventdispatcher");
         host.api().removeService("deviceconfigmanager");
         host.commands().removeResponder(0xFC050111u);
         host.commands().setResponder(0xFC08100Au, [](const kpf::IMessage&) { return host::Bytes(12); });
     },
     {},
     {},
     {{"services/eventdispatcher/says", "not seen over 3 tries"},
      {"services/commanddispatcher/says", "seen 3 of 3 tries"},
      {"subscriptions/0/result", "-1"},
      {"ownMessages/sendEvent/note", "not tried: the eventdispatcher was not found"},
      {"queries/interfaces/tries/2/says", "no answer: nobody received the command"},
      {"queries/deviceParam/tries/0/says", "no answer"},
      {"queries/selectedInterface/tries/0/says", "size 12, expected 4"},
      {"configServices/deviceconfigmanager/says", "not called: the service was not found"},
      {"nestedDeliveries/currentInterfaceAfterCommandAnswered", "not measured: "},
      {"problems/0", "service eventdispatcher not seen over 3 tries"},
      {"problems/1", "service deviceconfigmanager not seen over 3 tries"}}},
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

QJsonValue at(QJsonValue value, const std::string& path)
{
    for (const QString& key : QString::fromStdString(path).split('/')) {
        bool index = false;
        const int i = key.toInt(&index);
        value = index ? value.toArray().at(i) : value.toObject().value(key);
    }
    return value;
}

// Pumps our host's queue, as its event loop would, until the report's
// field at path has the value (by default until the probe says it has
// finished); bounded, since the probe must get there by itself.
QJsonObject awaitReport(host::Host& host, const QString& dir, const std::string& path = "report/probe/state",
                        const QJsonValue& value = "finished")
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    while (std::chrono::steady_clock::now() < deadline) {
        host.pump();
        const QStringList files = QDir(dir).entryList({"probe-*.json"}, QDir::Files);
        if (files.size() == 1) {
            QFile file(QDir(dir).filePath(files.front()));
            if (file.open(QIODevice::ReadOnly)) {
                const QJsonObject report = QJsonDocument::fromJson(file.readAll()).object();
                if (at(report, path) == value)
                    return report;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return {};
}

class ProbeTest : public ::testing::TestWithParam<Row>
{
protected:
    void SetUp() override
    {
        Interface::s_InterfaceList interface;
        interface.interfaceId = 3;
        interface.slotId = 2;
        interface.connectorId = 1;
        device.interfaces = {interface};
        device.screens.resize(1);
        Subcard::s_SubcardInfo subcard;
        subcard.slotId = 2;
        subcard.stConnectorArry = {{1, {}, 7, {}}};
        device.subcards = {subcard};
    }

    // Loads the library, then the probe beside it, and starts both.
    void startWithReportsIn(const QString& path)
    {
        qputenv("EDIDVM_PROBE_DIR", path.toLocal8Bit());
        ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
        ASSERT_TRUE(host.loadAlso(EDIDVM_PROBE_PATH)) << host.error();
        ASSERT_EQ(host.components().size(), 3u);
        host.startAll();
    }

    DeviceStandIn device; // outlives the host, which routes to it
    host::Host host;
};

TEST_P(ProbeTest, ReportsWhatTheHostDidAndSendsOnlyReadOnlyQueries)
{
    const Row& row = GetParam();
    const QString dir = QStringLiteral(EDIDVM_TEST_DIR "/probe-reports/") + row.name;
    QDir(dir).removeRecursively();
    host.setVariation(row.variation);
    device.install(host);
    if (row.setup)
        row.setup(host);
    startWithReportsIn(dir);
    const QJsonObject report = awaitReport(host, dir);
    ASSERT_FALSE(report.isEmpty()) << "the probe wrote no finished report in time";

    std::vector<std::string> variations, outside;
    for (const QJsonValue& entry : at(report, "report/variations").toArray())
        variations.push_back(entry["name"].toString().toStdString());
    for (const QJsonValue& entry : at(report, "report/outside").toArray())
        outside.push_back(entry.toString().toStdString());
    EXPECT_EQ(variations, row.variations) << QJsonDocument(report).toJson().toStdString();
    ASSERT_EQ(outside.size(), row.outside.size())
        << QJsonDocument(at(report, "report/outside").toArray()).toJson().toStdString();
    for (std::size_t i = 0; i < outside.size(); ++i)
        EXPECT_EQ(outside[i].rfind(row.outside[i], 0), 0u) << outside[i];
    for (const auto& field : row.fields)
        EXPECT_EQ(at(report, "report/" + field.first).toVariant().toString().toStdString().rfind(field.second, 0), 0u)
            << field.first;
    EXPECT_EQ(host.keptEnvelopesChanged(), "");
    EXPECT_NO_THROW(
        sim::loadScenario(QDir(dir).filePath(QDir(dir).entryList({"probe-*.json"}).value(0)).toStdString()));

    std::set<std::uint32_t> queried;
    for (const host::SentMessage& sent : host.recorder().messages()) {
        if (sent.sender.rfind(ProbeSender, 0) != 0) // the witness too
            continue;
        const bool own = (sent.number & 0xFFFF0000u) == 0xE0D10000u;
        EXPECT_TRUE(own || (Queries.count(sent.number) != 0 && sent.kind == host::SentKind::Command))
            << std::hex << sent.number;
        if (!own)
            queried.insert(sent.number);
    }
    EXPECT_EQ(queried, Queries);
    host.unload();
}

// What the view model puts out, as the trace shows it.
struct Output
{
    std::uint32_t number;
    host::SentKind kind;
    sim::Fields fields;
    bool operator==(const Output& o) const { return number == o.number && kind == o.kind && fields == o.fields; }
};
void PrintTo(const Output& output, std::ostream* out)
{
    *out << std::hex << output.number << " " << output.fields.dump();
}

void keepOutputs(std::vector<Output>& outputs, const host::SentMessage& sent, const void* data)
{
    const sim::MessageInfo* info = sim::findMessage(sent.number);
    if (sent.sender == "outputedidviewmodel")
        outputs.push_back({sent.number, sent.kind, info ? sim::decodePayload(*info, data, sent.size) : sim::Fields()});
}

// A short flow of the page's into the library beside the probe, then the
// captured file played on a fresh host: the library puts out the same, on
// every host our host plays and on one that posts at once.
class CaptureTest : public ProbeTest
{
};

TEST_P(CaptureTest, CapturesAFlowThatPlaysBackAlike)
{
    const Row& row = GetParam();
    namespace msg = LCD::MessageId;
    const QString dir = QStringLiteral(EDIDVM_TEST_DIR "/probe-captures/") + row.name;
    QDir(dir).removeRecursively();
    device.interfaces[0].stAuxiliaryInfo.usedByScreen = "1";
    device.interfaces[0].stThumbTiming = {0, 60.0f, 1920, 1080, 0, 0, 0};
    device.interfaces[0].stTimingDetail.width = 1920;
    device.interfaces[0].stTimingDetail.height = 1080;
    device.interfaces[0].stTimingDetail.refresh = 60.0f;
    device.screens[0].screenId = 10;
    device.screens[0].stOutputDetailArry.resize(1);
    device.screens[0].stOutputDetailArry[0].interfaceId = 3;
    device.thumbWriteReply = host::Bytes{0};
    host.deviceConfig().setAnswer([](std::int32_t) { return 21; });
    host.subcardConfig().setAnswer([](std::int32_t subcard, std::int32_t key, std::int32_t) {
        return subcard == 21 && key == 7 ? std::vector<int>{1} : std::vector<int>();
    });
    std::vector<Output> original, played;
    Model::s_MessageBoxRequest box;
    device.onSent = [&](const host::SentMessage& sent, const void* data) {
        keepOutputs(original, sent, data);
        if (sent.number == msg::Confirmation && sent.size == sizeof box)
            std::memcpy(&box, data, sizeof box);
    };
    host.setVariation(row.variation);
    device.install(host);
    startWithReportsIn(dir);
    ASSERT_FALSE(awaitReport(host, dir, "report/capture/state", "capturing").isEmpty());
    original.clear();
    const Interface::s_InterfaceList current = device.interfaces[0];
    host.event(msg::SetCurrentInterface, &current, sizeof current);
    host.event(msg::RefreshTiming, nullptr, 0);
    const Interface::s_InterfaceThumbTiming choice{0, {0, 60.0f, 1280, 720, 0, 0, 0}, 0, 0};
    host.event(msg::ThumbChoice, &choice, sizeof choice);
    box.result = 1;
    host.event(msg::BoxAnswer, &box, sizeof box);
    const QJsonObject report = awaitReport(host, dir, "report/capture/steps", 4);
    ASSERT_FALSE(report.isEmpty()) << "the probe captured no four steps in time";
    host.unload();
    std::vector<std::string> steps;
    for (const QJsonValue& step : report["steps"].toArray())
        steps.push_back(step["do"].toString().toStdString());
    EXPECT_EQ(steps, (std::vector<std::string>{"current", "refresh", "chooseThumb", "answer"}));

    const QString file = QDir(dir).filePath(QDir(dir).entryList({"probe-*.json"}).value(0));
    const sim::Scenario scenario = sim::loadScenario(file.toStdString());
    host::Host replay;
    ASSERT_TRUE(replay.load(EDIDVM_PLUGIN_PATH)) << replay.error();
    std::FILE* sink = std::fopen("/dev/null", "w");
    {
        sim::Trace trace(sink, false, false);
        sim::Player player(replay, scenario, trace);
        player.addObserver(
            [&played](const host::SentMessage& sent, const void* data) { keepOutputs(played, sent, data); });
        EXPECT_EQ(player.run(), 0);
    }
    std::fclose(sink);
    // At least the refresh: where data() works once the choice and the answer
    // are refused unread (their handlers test data() before they read it).
    EXPECT_GE(original.size(), 6u);
    EXPECT_EQ(played, original);
}

INSTANTIATE_TEST_SUITE_P(Hosts, ProbeTest, ::testing::ValuesIn(rows),
                         [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });
INSTANTIATE_TEST_SUITE_P(Hosts, CaptureTest, ::testing::Values(rows[0], rows[1], rows[2], rows[4], rows[5], rows[6]),
                         [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

TEST_F(ProbeTest, AReportThatCannotBeWrittenIsLoggedOnceNamingItsPath)
{
    WarningCapture warnings;
    const QString blocker = QStringLiteral(EDIDVM_TEST_DIR "/probe-not-a-dir");
    QFile(blocker).open(QIODevice::WriteOnly);
    device.install(host);
    startWithReportsIn(blocker + "/reports");
    const auto logged = [&warnings] {
        int count = 0;
        for (const std::string& text : warnings.texts())
            count += text.find("report cannot be written to") != std::string::npos &&
                     text.find("probe-not-a-dir/reports/probe-") != std::string::npos;
        return count;
    };
    // Each step rewrites the report: still one warning 200 steps after the first.
    for (int i = 0, after = 0; i < 2200 && after < 200; ++i) {
        host.pump();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        after += logged() > 0;
    }
    host.unload();
    EXPECT_EQ(logged(), 1);
}

} // namespace
} // namespace test
} // namespace edidvm
