// SPDX-License-Identifier: MIT
// libFuzzer harness: one Model::OutputEDIDViewModel on our in-process host
// per input, fed messages decoded from the input while the components it
// queries answer from the input too. fuzz/README.md gives the input layout.
// Payloads that carry addresses are always real objects built here.

#include "framework/api.h"
#include "framework/wire.h"
#include "host/host.h"
#include "protomodel/configrecords.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"
#include "sim/messages.h"
#include "viewmodel/outputedidviewmodel.h"

#include <QtGlobal>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace msg = LCD::MessageId;

using namespace LCD::ProtoModel::Interface;
using namespace LCD::ProtoModel::Screen;
using namespace LCD::ProtoModel::Subcard;
using edidvm::host::Bytes;
using LCD::GlobalMessageHander::QueryInfo;

namespace {

// Sequential little-endian reader; past the end every read yields 0.
struct Reader
{
    const std::uint8_t* p = nullptr;
    std::size_t n = 0;

    std::uint32_t word(int bytes)
    {
        std::uint32_t v = 0;
        for (int i = 0; i < bytes && n > 0; ++i, --n)
            v |= std::uint32_t(*p++) << (8 * i);
        return v;
    }
    std::uint8_t u8() { return std::uint8_t(word(1)); }
    std::uint32_t u32() { return word(4); }
    std::int32_t i32() { return std::int32_t(word(4)); }
    // Ids and keys are one signed byte, so lists collide and duplicate.
    std::int32_t small() { return std::int8_t(u8()); }
    float real()
    {
        const std::uint32_t bits = u32();
        float f;
        std::memcpy(&f, &bits, sizeof f);
        return f;
    }
    // Up to 47 bytes: both inline and heap-held strings.
    std::string text()
    {
        std::string s(u8() % 48, '\0');
        for (char& c : s)
            c = char(u8());
        return s;
    }
    Reader take(std::size_t len)
    {
        const Reader part{p, std::min(len, n)};
        p += part.n;
        n -= part.n;
        return part;
    }
    template <typename T, typename Read>
    std::vector<T> list(unsigned bound, Read read)
    {
        std::vector<T> items(u8() % bound);
        for (T& item : items)
            item = read(*this);
        return items;
    }
};

[[noreturn]] void fail(const char* what, std::uint32_t number)
{
    std::fprintf(stderr, "edidvm-fuzz: %s (0x%08X)\n", what, number);
    std::abort();
}

// Braced lists read their fields left to right.
s_ThumbTimingInfo readThumb(Reader& r)
{
    return {0, r.real(), r.i32(), r.i32(), r.u32(), 0, r.u32()};
}
s_TimingDetailInfo readDetail(Reader& r)
{
    return {0, r.real(), r.i32(), 0, 0, 0, 0, r.i32(), 0, 0, 0, 0, 0, r.u32()};
}
s_InterfaceList readInterface(Reader& r)
{
    s_InterfaceList e;
    std::int32_t* smalls[] = {&e.interfaceId, &e.slotId, &e.connectorId, &e.stAuxiliaryInfo.interfaceType,
                              &e.stAuxiliaryInfo.interfaceStatus};
    for (std::int32_t* field : smalls)
        *field = r.small();
    for (std::string* field : {&e.stAuxiliaryInfo.usedByScreen, &e.stAuxiliaryInfo.auxText18, &e.ifText42})
        *field = r.text();
    e.stThumbTiming = readThumb(r);
    e.stTimingDetail = readDetail(r);
    e.ifWord92 = r.u32();
    e.checkParam0 = r.small();
    e.checkParam1 = r.small();
    return e;
}
s_TimigCheckResult readVerdict(Reader& r)
{
    s_TimigCheckResult v;
    v.interfaceId = r.small();
    v.bandwidthLimit = r.i32();
    v.bandwidthNeeded = r.i32();
    v.frameRates = r.list<std::int32_t>(4, [](Reader& in) { return in.i32(); });
    v.maxFrameRate = r.i32();
    v.overBandwidth = r.small();
    return v;
}

// What the stand-ins answer, in the order the input gives it.
struct World
{
    std::vector<s_InterfaceList> interfaces;
    std::vector<s_ScreenDetailInfo> screens;
    std::vector<s_SubcardInfo> subcards;
    s_TimigCheckResultArry verdicts;
    std::vector<s_AssessResult> assessments;
    std::int32_t selected = 0, deviceParam = 0, slotOffset = 0;
    std::uint8_t carriedOut = 0, writeAnswer = 0;
    std::vector<int> related;

    explicit World(Reader& r)
    {
        interfaces = r.list<s_InterfaceList>(9, readInterface);
        screens = r.list<s_ScreenDetailInfo>(5, [](Reader& in) {
            s_ScreenDetailInfo s;
            s.screenId = in.u8();
            s.screenIndex = in.u32();
            s.stGeneral.genText0 = in.text();
            for (std::int32_t id : in.list<std::int32_t>(4, [](Reader& o) { return o.small(); }))
                s.stOutputDetailArry.emplace_back().interfaceId = id;
            return s;
        });
        subcards = r.list<s_SubcardInfo>(4, [](Reader& in) {
            s_SubcardInfo s{in.small(), {}, {}};
            s.stConnectorArry = in.list<s_SubcardConnector>(4, [](Reader& c) {
                return s_SubcardConnector{c.small(), {}, c.small(), {}};
            });
            return s;
        });
        verdicts = r.list<s_TimigCheckResult>(5, readVerdict);
        assessments = r.list<s_AssessResult>(3, [](Reader& in) { return s_AssessResult{0, in.small()}; });
        selected = r.small();
        deviceParam = r.i32();
        slotOffset = r.small();
        carriedOut = r.u8();
        writeAnswer = r.u8();
        related = r.list<int>(6, [](Reader& in) { return in.small(); });
    }
};

// How a stand-in answers this time; one byte of the input each.
enum class Mood { Normal, Empty, Doubled, WrongSize, NoReply, Reenter };

struct Run
{
    explicit Run(Reader& in) : world(in) {}

    edidvm::host::Host host;
    kpf::IMessageHandler* component = nullptr;
    World world;
    Reader moods;
    int depth = 0;
    std::size_t sink = 0; // what the stand-ins read through vector payloads

    Mood mood()
    {
        const unsigned pick = moods.u8() % 8;
        return pick < 3 ? Mood::Normal : Mood(pick - 2);
    }
};

void deliverOne(Run& run, Reader body);

template <typename T>
std::vector<T> shaped(const std::vector<T>& list, Mood mood)
{
    std::vector<T> out;
    if (mood != Mood::Empty && mood != Mood::NoReply)
        for (int copies = mood == Mood::Doubled ? 2 : 1; copies > 0; --copies)
            out.insert(out.end(), list.begin(), list.end());
    return out;
}

// A reply of `size` bytes from `value`, one byte too long, or none.
std::optional<Bytes> reply(Mood mood, const void* value, std::size_t size)
{
    const auto* bytes = static_cast<const std::uint8_t*>(value);
    return mood == Mood::NoReply     ? std::nullopt
           : mood == Mood::WrongSize ? std::optional<Bytes>(Bytes(size + 1, 0x5A))
                                     : Bytes(bytes, bytes + size);
}

// The stand-in for command `number`: may first re-enter the component with
// a nested message taken from the mood bytes, as another component might.
template <typename Answer>
void standIn(Run& run, std::uint32_t number, Answer answer)
{
    run.host.commands().setResponder(number, [&run, answer](const kpf::IMessage& command) -> std::optional<Bytes> {
        const Mood mood = run.mood();
        if (mood == Mood::Reenter && run.depth < 2) {
            ++run.depth;
            deliverOne(run, run.moods.take(run.moods.u8()));
            --run.depth;
        }
        return answer(command, mood);
    });
}

// The data of the envelope a query carries, its filter called when asked;
// the component always sends a real envelope, anything else is a fault.
template <typename Data>
Data& envelope(Run& run, const kpf::IMessage& command, std::map<std::string, std::string>* params = nullptr)
{
    // Answered in an envelope of the host's when the host answers elsewhere.
    auto* query = run.host.answerEnvelope<QueryInfo<Data>>(command, std::is_same_v<Data, s_InterfaceDetailInfo>);
    if (query == nullptr)
        fail("query without its envelope", kpf::wireWord(command.number()));
    if (params != nullptr && query->filter)
        query->filter(*params);
    return query->info;
}

// Answers with a copy of a list of the world, shaped by the mood.
template <typename Data, typename T>
void listStandIn(Run& run, std::uint32_t number, std::vector<T> Data::*field, const std::vector<T>& list,
                 bool filtered = false)
{
    standIn(run, number, [&run, field, &list, filtered](const kpf::IMessage& c, Mood mood) -> std::optional<Bytes> {
        std::map<std::string, std::string> params;
        envelope<Data>(run, c, filtered ? &params : nullptr).*field = shaped(list, mood);
        return std::nullopt;
    });
}

void installStandIns(Run& run)
{
    World& w = run.world;
    standIn(run, msg::InterfaceDetail, [&w, &run](const kpf::IMessage& c, Mood mood) -> std::optional<Bytes> {
        std::map<std::string, std::string> params;
        auto& list = envelope<s_InterfaceDetailInfo>(run, c, &params).stInterfaceListArry;
        const auto wanted = params.find("interfaceId");
        for (const s_InterfaceList& e : shaped(w.interfaces, mood)) {
            // A doubled answer ignores the filter as well.
            if (mood == Mood::Doubled || wanted == params.end() || wanted->second == std::to_string(e.interfaceId))
                list.push_back(e);
        }
        return mood == Mood::WrongSize ? std::optional<Bytes>(Bytes(3, 0x5A)) : std::nullopt;
    });
    listStandIn(run, msg::Screens, &s_ScreenDetail::stScreenDetailInfoArry, w.screens, true);
    listStandIn(run, msg::Subcards, &s_SubcardQuery::stSubcardInfoArry, w.subcards);
    listStandIn(run, msg::ThumbCheck, &s_TimigCheckQuery::stCheckResultArry, w.verdicts);
    listStandIn(run, msg::DetailCheck, &s_TimigCheckQuery::stCheckResultArry, w.verdicts);
    standIn(run, msg::Assess, [&w, &run](const kpf::IMessage& c, Mood mood) {
        envelope<s_TimingAssessQuery>(run, c).stAssessResultArry = shaped(w.assessments, mood);
        return reply(mood, &w.carriedOut, 1);
    });
    standIn(run, msg::WriteThumb, [&run](const kpf::IMessage& c, Mood mood) {
        if (c.size() != 24 || c.data() == nullptr)
            fail("thumb write without its vector", msg::WriteThumb);
        // The vector is the sender's: read every element while it lasts.
        for (const s_InterfaceThumbTiming& t : *static_cast<const std::vector<s_InterfaceThumbTiming>*>(c.data()))
            run.sink += std::uint32_t(t.interfaceId);
        return reply(mood, &run.world.writeAnswer, 1);
    });
    standIn(run, msg::SelectedInterface, [&w](const kpf::IMessage&, Mood mood) { return reply(mood, &w.selected, 4); });
    standIn(run, msg::DeviceParam, [&w](const kpf::IMessage&, Mood mood) { return reply(mood, &w.deviceParam, 4); });

    run.host.deviceConfig().setAnswer([&w](std::int32_t slot) { return slot + w.slotOffset; });
    run.host.subcardConfig().setAnswer(
        [&run](std::int32_t, std::int32_t, std::int32_t) { return shaped(run.world.related, run.mood()); });

    // Every send keeps the length the message table gives it; vector
    // payloads are read while they are valid.
    run.host.recorder().setHook([&run](const edidvm::host::SentMessage& sent, const void* data) {
        const edidvm::sim::MessageInfo* info = edidvm::sim::findMessage(sent.number);
        if (info != nullptr && info->direction == edidvm::sim::Direction::Out && info->size >= 0 &&
            info->size != sent.size)
            fail("sent with a wrong length", sent.number);
        if ((sent.number == msg::ThumbCheckResults || sent.number == msg::DetailCheckResults) && data != nullptr)
            for (const s_TimigCheckResult& v : *static_cast<const s_TimigCheckResultArry*>(data))
                run.sink += v.frameRates.size();
        if (sent.number == msg::WriteReference && data != nullptr)
            for (const auto& t : *static_cast<const std::vector<s_InterfacePresetTiming>*>(data))
                run.sink += std::uint32_t(t.stTimingDetail.width);
    });
}

void deliver(Run& run, int kind, std::uint32_t number, int size, const void* data)
{
    const std::optional<Bytes> answer = run.host.deliver(run.component, kind, number, size, data);
    // Only the interface-type command replies, always with 4 bytes.
    const bool replies = kind == kpf::MessageKindCommand && number == msg::InterfaceType;
    if (answer && (!replies || answer->size() != 4))
        fail("unexpected reply", number);
}

using Send = std::function<void(const void* data, int size)>;
s_InterfacePresetTiming readPreset(Reader& r)
{
    return {r.small(), readDetail(r), r.u32(), 0};
}
s_InterfaceThumbTiming readThumbTiming(Reader& r)
{
    return {r.small(), readThumb(r), r.u32(), 0};
}
// A record read from the body, or a vector of up to five.
template <auto read>
void sendRecord(Reader& body, unsigned, const Send& send)
{
    const auto record = read(body);
    send(&record, sizeof record);
}
template <auto read>
void sendVector(Reader& body, unsigned, const Send& send)
{
    const auto list = body.list<decltype(read(body))>(6, read);
    send(&list, sizeof list);
}
void sendChecks(Reader& body, unsigned form, const Send& send)
{
    QueryInfo<s_TimigCheckQuery> request;
    request.info.stThumbCheckArry = body.list<s_ThumbTimigCheck>(8, [](Reader& in) {
        return s_ThumbTimigCheck{in.small(), in.small(), readThumb(in), 0, 0};
    });
    request.info.stDetailCheckArry = body.list<s_DetailTimigCheck>(8, [](Reader& in) {
        return s_DetailTimigCheck{in.small(), in.small(), readDetail(in), 0, 0};
    });
    request.info.stCheckResultArry = body.list<s_TimigCheckResult>(3, readVerdict);
    // A null envelope address is a real value too.
    QueryInfo<s_TimigCheckQuery>* address = form % 4 == 2 ? nullptr : &request;
    send(&address, sizeof address);
}

// The handled numbers, in the component's registration order. Where the
// contract puts an address, `build` sends a real object and `size` is its
// length, which raw bytes never get; otherwise `size` is the record's
// natural length (0: none).
struct Row
{
    const char* name;
    std::uint32_t number;
    int size;
    void (*build)(Reader& body, unsigned form, const Send& send);
};
const Row Rows[] = {
    {"reference publication", msg::PublishReference, 0, nullptr},
    {"box answer", msg::BoxAnswer, 556, nullptr},
    {"current interface", msg::SetCurrentInterface, int(sizeof(s_InterfaceList)), sendRecord<readInterface>},
    {"refresh", msg::RefreshTiming, 0, nullptr},
    {"selected interface timing", msg::SelectedInterfaceTiming, 0, nullptr},
    {"thumb check", msg::ThumbCheckRequest, 8, sendChecks},
    {"detail check", msg::DetailCheckRequest, 8, sendChecks},
    {"thumb choice", msg::ThumbChoice, 40, nullptr},
    {"reference choice", msg::ReferenceChoice, 68, nullptr},
    {"in-use question", msg::InUseAsked, 0, nullptr},
    {"SDI interface", msg::SdiInterface, 16, nullptr},
    {"interface type", msg::InterfaceType, 0, nullptr},
    {"changed reference timings", msg::ChangedReferenceTimings, 24, sendVector<readPreset>},
    {"changed thumb timings", msg::ChangedThumbTimings, 24, sendVector<readThumbTiming>},
    {"in-use question 2", msg::InUseAsked2, 0, nullptr},
    {"in-use question 3", msg::InUseAsked3, 0, nullptr},
};

// The number by the body's first byte modulo 16: mostly a handled one; the
// reserved ones; numbers the component only sends; other 0xFC numbers;
// numbers past the reserved filter; any.
std::uint32_t pickNumber(Reader& r)
{
    const auto among = [&r](const auto& numbers) { return numbers[r.u8() % std::size(numbers)]; };
    const std::uint32_t reserved[] = {0xFFFF0000u, 0xFFFF0001u, 0xFFFF0002u, 0xFFFFFFFEu, 0xFFFFFFFFu};
    const std::uint32_t foreign[] = {msg::InterfaceDetail, msg::ThumbCheckResults, msg::WriteThumb, msg::Confirmation};
    const unsigned choice = r.u8() % 16;
    return choice < 11    ? among(Rows).number
           : choice == 11 ? among(reserved)
           : choice == 12 ? among(foreign)
           : choice == 13 ? 0xFC000000u | (r.u32() & 0xFFFFFFu)
           : choice == 14 ? 0xFFFF0003u + r.u8()
                          : r.u32();
}

void deliverOne(Run& run, Reader body)
{
    const std::uint32_t number = pickNumber(body);
    // The natural kind, the other one, or any value.
    const unsigned kindChoice = body.u8() % 8;
    const int kind = kindChoice == 7                                       ? body.i32()
                     : (kindChoice == 6) != (number == msg::InterfaceType) ? kpf::MessageKindCommand
                                                                           : kpf::MessageKindEvent;
    const unsigned form = body.u8();
    const Send send = [&](const void* data, int size) { deliver(run, kind, number, size, data); };
    const Row* row = nullptr;
    for (const Row& candidate : Rows)
        row = candidate.number == number ? &candidate : row;
    const bool address = row != nullptr && row->build != nullptr;
    if (address && form % 4 < 3) // a real object where an address goes
        return row->build(body, form, send);

    // Raw bytes: the natural length, any length (never an address payload's
    // own), none, or null data with any size.
    int size = 0;
    const unsigned sizeChoice = (form >> 2) % 4;
    if (sizeChoice == 0 && row != nullptr && !address)
        size = row->size;
    else if (sizeChoice == 1)
        size = int(body.word(2) % 1024);
    else if (sizeChoice == 2)
        return send(nullptr, body.i32());
    if (address && size == row->size)
        ++size;
    Bytes raw(static_cast<std::size_t>(size));
    for (std::uint8_t& b : raw)
        b = body.u8();
    send(raw.data(), size);
}

void dropLog(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Rejected payloads log warnings by design; they would drown the output.
    qInstallMessageHandler(dropLog);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Reader in{data, size};
    // The input's length picks how the host hands out payloads, so the seeds
    // keep their layout: copied, lent, lent with the interface list answered
    // elsewhere, or readable only once.
    Run run(in);
    run.host.setVariation(edidvm::host::Variation(size % 4));
    std::vector<Reader> bodies(in.u8() % 25);
    for (Reader& body : bodies)
        body = in.take(in.word(2));
    run.moods = in;

    // The component finds the host's services when it is constructed: a
    // fresh host and component per input, so no state leaks between inputs.
    kpf::api::get().hostApi = &run.host.api();
    {
        Model::OutputEDIDViewModel component;
        run.component = &component;
        installStandIns(run);
        run.host.start(&component);
        for (const Reader& body : bodies) {
            deliverOne(run, body);
            run.host.events().pump(64);
        }
        run.host.events().dropQueue();
        if (run.host.store().liveCount() != 0)
            fail("a message or response was not released", 0);
        if (!run.host.keptEnvelopesChanged().empty())
            fail("the component changed an envelope that was not its own", msg::InterfaceDetail);
    }
    kpf::api::get().hostApi = nullptr;
    return 0;
}
