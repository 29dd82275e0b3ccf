// The seed corpus: one valid flow per file, written in the harness's input
// layout. Each put* here mirrors a read* of fuzz_viewmodel.cpp.

#include "fuzz/input.h"

#include "protomodel/interfacerecords.h"
#include "viewmodel/viewmodelrecords.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace edidvm {
namespace fuzz {

namespace {

using namespace LCD::ProtoModel::Interface;

void putThumb(Writer& w, float refresh, int width, int height)
{
    w.real(refresh);
    w.u32(std::uint32_t(width));
    w.u32(std::uint32_t(height));
    w.u32(400); // param4
    w.u32(600); // param6
}

void putDetail(Writer& w, float refresh, int width, int height)
{
    w.real(refresh);
    w.u32(std::uint32_t(width));
    w.u32(std::uint32_t(height));
    w.u32(1300); // param13
}

void putInterface(Writer& w, int id, int connector, int type, const char* usedBy, int width, int height)
{
    for (int word : {id, 1 /* slot */, connector, type, 0 /* status */})
        w.small(word);
    w.text(usedBy);
    w.text("auxiliary text, long enough for the heap");
    w.text("N/A");
    putThumb(w, 60.0f, width, height);
    putDetail(w, 60.0f, width, height);
    w.u32(9200); // ifWord92
    w.small(70); // checkParam0
    w.small(80); // checkParam1
}

// Interface 1 (connector 2) is the one the seeds change; interface 2
// (connector 3) feeds screen 7 and is tied to it, so a new resolution on
// interface 1 affects that screen.
void putWorld(Writer& w)
{
    w.u8(2);
    putInterface(w, 1, 2, 4, "N/A", 1920, 1080);
    putInterface(w, 2, 3, 8, "screen", 1280, 720);
    w.u8(1); // screens: id, index, text, outputs
    w.u8(7);
    w.u32(0);
    w.text("wall");
    w.u8(1);
    w.small(2);
    w.u8(1); // sub-cards: slot, connectors (id, key)
    w.small(1);
    w.u8(2);
    for (int word : {2, 20, 3, 30})
        w.small(word);
    w.u8(1); // verdicts: id, limit, needed, rates, max rate, over
    w.small(1);
    w.u32(100);
    w.u32(50);
    w.u8(2);
    w.u32(6000);
    w.u32(5000);
    w.u32(6000);
    w.small(0);
    w.u8(1); // assessments
    w.small(0);
    w.small(1); // selected interface
    w.u32(0);   // device parameter
    w.small(0); // slot offset
    w.u8(1);    // assessment carried out
    w.u8(0);    // write accepted
    w.u8(1);    // related connectors
    w.small(3);
}

// A handled number with its natural kind and payload shape `form`.
Writer message(std::uint32_t number, unsigned form = 0)
{
    Writer w;
    w.u8(0);
    w.u8(unsigned(std::find(std::begin(Handled), std::end(Handled), number) - std::begin(Handled)));
    w.u8(0);
    w.u8(form);
    return w;
}

template <typename Record>
Writer record(std::uint32_t number, const Record& r)
{
    Writer w = message(number);
    w.bytes(&r, sizeof r);
    return w;
}

Writer current(int id)
{
    Writer w = message(0xFC021009u);
    putInterface(w, id, 2, 4, "N/A", 1920, 1080);
    return w;
}

Writer checks(std::uint32_t number)
{
    Writer w = message(number);
    const bool thumb = number == 0xFC000605u;
    w.u8(thumb ? 2 : 0);
    for (int i = 0; thumb && i < 2; ++i) {
        w.small(1);
        w.small(3);
        putThumb(w, i == 0 ? 60.0f : 50.0f, 1920, 1080);
    }
    w.u8(thumb ? 0 : 1);
    if (!thumb) {
        w.small(1);
        w.small(2);
        putDetail(w, 60.0f, 1920, 1080);
    }
    w.u8(0); // results the page put in: none
    return w;
}

Writer changed(std::uint32_t number)
{
    Writer w = message(number);
    w.u8(2);
    for (int id : {2, 1}) {
        w.small(id);
        if (number == 0xFC081005u)
            putDetail(w, 30.0f, 3840, 2160);
        else
            putThumb(w, 30.0f, 3840, 2160);
        w.u32(77); // tailParam0
    }
    return w;
}

s_InterfaceThumbTiming thumbChoice(int width, int height)
{
    s_InterfaceThumbTiming t;
    t.interfaceId = 1;
    t.stThumbTiming.refresh = 60.0f;
    t.stThumbTiming.width = width;
    t.stThumbTiming.height = height;
    return t;
}

s_InterfacePresetTiming referenceChoice()
{
    s_InterfacePresetTiming t;
    t.interfaceId = 1;
    t.stTimingDetail.refresh = 50.0f;
    t.stTimingDetail.width = 1280;
    t.stTimingDetail.height = 720;
    return t;
}

Writer answer(int boxId, int result)
{
    Model::s_MessageBoxRequest box;
    box.boxId = boxId;
    box.result = std::uint8_t(result);
    return record(0xFC000620u, box);
}

Writer reserved(unsigned index)
{
    Writer w;
    w.u8(11);
    w.u8(index);
    return w;
}

void writeSeed(const std::string& dir, const char* name, const std::vector<Writer>& messages,
               const std::vector<std::uint8_t>& moods = {})
{
    Writer w;
    putWorld(w);
    w.u8(unsigned(messages.size()));
    for (const Writer& m : messages) {
        w.u16(unsigned(m.out.size()));
        w.bytes(m.out);
    }
    w.bytes(moods);
    const std::string path = dir + "/" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr || std::fwrite(w.out.data(), 1, w.out.size(), file) != w.out.size() || std::fclose(file) != 0) {
        std::fprintf(stderr, "edidvm-fuzz: cannot write %s\n", path.c_str());
        std::exit(1);
    }
}

} // namespace

void writeSeeds(const char* dir)
{
    const Writer type = message(0xFC051016u);
    const auto affecting = record(0xFC00060Cu, thumbChoice(1280, 720));
    writeSeed(dir, "current-and-timings", {current(1), message(0xFC00060Au), message(0xFC00060Bu), type});
    writeSeed(dir, "sdi-interface", {record(0xFC031007u, Model::s_SDIInterfaceInfo{0, 0, 2, 0}), message(0xFC00060Bu)});
    writeSeed(dir, "thumb-check", {current(1), checks(0xFC000605u)});
    writeSeed(dir, "detail-check", {current(1), checks(0xFC000606u)});
    writeSeed(dir, "thumb-change-accepted", {current(1), affecting, answer(35, 1)});
    writeSeed(dir, "thumb-change-declined", {current(1), affecting, answer(35, 0)});
    writeSeed(dir, "thumb-change-unaffected", {current(1), record(0xFC00060Cu, thumbChoice(1920, 1080))});
    writeSeed(dir, "reference-change",
              {current(1), record(0xFC00060Du, referenceChoice()), answer(36, 1), message(0xFC070606u)});
    writeSeed(dir, "changed-timings", {current(1), changed(0xFC081005u), changed(0xFC081006u)});
    writeSeed(dir, "in-use", {current(2), message(0xFC000617u), message(0xFC030204u), message(0xFC08021Eu)});
    writeSeed(dir, "reserved-numbers", {reserved(0), reserved(1), reserved(2), reserved(3), reserved(4), type});
    // Stand-ins answering empty, doubled, one byte too long, not at all, and
    // one re-entering the component with a timing request.
    const Writer nested = message(0xFC00060Au);
    std::vector<std::uint8_t> moods = {3, 4, 5, 6, 7, std::uint8_t(nested.out.size())};
    moods.insert(moods.end(), nested.out.begin(), nested.out.end());
    writeSeed(dir, "odd-answers", {current(1), message(0xFC00060Bu), affecting}, moods);
}

} // namespace fuzz
} // namespace edidvm
