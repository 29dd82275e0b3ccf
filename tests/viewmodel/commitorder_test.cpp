// SPDX-License-Identifier: MIT
// A newer choice arriving while an older commit runs: delivered nested on
// the same thread, after a command is answered, or on another thread.

#include "viewmodel/timingchangefixture.h"

#include <thread>

namespace edidvm {
namespace test {
namespace {

using host::Variation;

const char Overtaken[] = "a later commit of this kind has already been written; this one is dropped";

enum class Arrival { Nested, AfterTheAnswer, OtherThread };

using CommitOrderTest = TimingChangeTest;

TEST_F(CommitOrderTest, ACommitWritesOnlyIfNoLaterCommitOfItsKindHasWritten)
{
    // Choices 0 (older, no impact), 1 (newer, no impact), 2 (newer, needs
    // the user's confirmation, which is given at the end).
    const s_InterfaceThumbTiming thumbs[] = {thumbTiming(1920, 1080, 50.0f), thumbTiming(1920, 1080, 30.0f),
                                             thumbTiming(1280, 720, 60.0f)};
    const s_InterfacePresetTiming references[] = {
        referenceTiming(1920, 1080, 50.0f), referenceTiming(1920, 1080, 30.0f), referenceTiming(1280, 720, 60.0f)};
    const Trace preCheck = {"C FC050111 8", "E FC000626 44"};
    const Trace show = {"E FC0C0C0F 11"}, hide = {"E FC0C0C10 0"};
    const Trace writeThumb = {"C FC051008 24"}, writeReference = {"E FC0C0C27 4", "E FC051009 24"};
    // The older commit alone; it sends the part before `during` in every row.
    const Trace thumbAlone = join({Impact, ThumbWrite, Committed}), referenceAlone = join({Impact, ReferenceWrite});
    struct Row
    {
        const char* name;
        bool reference;
        int newer;          // which choice comes in
        std::string during; // the older commit's send it comes in, as traced
        Trace newerSends;   // the newer choice's
        Trace after;        // the older commit's after `during`
        std::vector<int> written;
    };
    const Row rows[] = {
        {"thumb, no impact, during the pre-check", false, 1, "C FC051000 8", thumbAlone, {}, {1}},
        {"thumb, confirmation, during the pre-check",
         false,
         2,
         "C FC051000 8",
         join({Impact, Asked}),
         join({show, writeThumb, hide, Committed}),
         {0, 2}},
        {"thumb, no impact, while the indicator shows", false, 1, "E FC0C0C0F 11", thumbAlone, hide, {1}},
        {"thumb, no impact, during the write",
         false,
         1,
         "C FC051008 24",
         join({Impact, preCheck, {"C FC051000 8"}, show}),
         join({hide, Committed, writeThumb, hide, Committed}),
         {0, 1}},
        {"reference, no impact, during the pre-check", true, 1, "C FC051001 8", referenceAlone, {}, {1}},
        {"reference, confirmation, during the pre-check",
         true,
         2,
         "C FC051001 8",
         join({Impact, Asked}),
         join({show, writeReference, hide}),
         {0, 2}},
        {"reference, no impact, during the write",
         true,
         1,
         "E FC051009 24",
         join({Impact, {"C FC050111 8", "C FC051001 8"}, show}),
         join({hide, writeReference, hide}),
         {0, 1}},
    };
    for (const Row& row : rows) {
        const std::uint32_t during = std::stoul(row.during.substr(2, 8), nullptr, 16);
        const std::uint32_t choice = row.reference ? msg::ReferenceChoice : msg::ThumbChoice;
        const auto payload = [&](int index) {
            return row.reference ? bytesOf(references[index]) : bytesOf(thumbs[index]);
        };
        for (Arrival arrival : {Arrival::Nested, Arrival::AfterTheAnswer, Arrival::OtherThread}) {
            // A host answers after its commands only.
            if (arrival == Arrival::AfterTheAnswer && row.during[0] != 'C')
                continue;
            SCOPED_TRACE(std::string(row.name) + ", arrival " + std::to_string(int(arrival)));
            baseline();
            const Bytes newer = payload(row.newer);
            bool arrived = false;
            if (arrival == Arrival::OtherThread) {
                // Seen as the older commit sends, before the send is traced.
                device.onSent = [&](const SentMessage& sent, const void*) {
                    if (sent.number == during && !arrived) {
                        arrived = true;
                        std::thread([&] { host.event(choice, newer.data(), int(newer.size())); }).join();
                    }
                };
            } else {
                interjectOnce(arrival == Arrival::Nested ? Variation::NestedDeliveries : Variation::MovingCurrent,
                              {event(choice, newer)}, during);
            }
            const Bytes older = payload(0);
            host.event(choice, older.data(), int(older.size()));
            host.setVariation(Variation::Default);
            const Trace& alone = row.reference ? referenceAlone : thumbAlone;
            const Trace before(alone.begin(), std::find(alone.begin(), alone.end(), row.during));
            const Trace triggered = {row.during};
            EXPECT_EQ(trace(sent()), arrival == Arrival::OtherThread
                                         ? join({before, row.newerSends, triggered, row.after})
                                         : join({before, triggered, row.newerSends, row.after}));
            // An older commit that writes nothing gives way with a warning.
            Trace texts = {NoTarget};
            if (row.newer == 1)
                texts.push_back(NoTarget);
            if (row.written.front() != 0)
                texts.push_back(Overtaken);
            EXPECT_EQ(warnings(), texts);
            if (row.newer == 2)
                answer(row.reference ? 36 : 35, 1);
            // The device gets the choices in order; the page is shown each
            // thumb written, so the last one shown is the last one written.
            std::vector<int> written, shown;
            const auto which = [&](const Bytes& bytes, bool timingOnly) {
                for (int index = 0; index < 3; ++index)
                    if (bytes == (timingOnly ? bytesOf(thumbs[index].stThumbTiming) : payload(index)))
                        return index;
                return -1;
            };
            for (const auto& write : device.thumbWritten)
                written.push_back(which(bytesOfAll(write), false));
            for (const auto& write : device.referenceWritten)
                written.push_back(which(bytesOfAll(write), false));
            for (const SentMessage& message : sent())
                if (message.number == msg::CommittedThumb)
                    shown.push_back(which(message.bytes, true));
            EXPECT_EQ(written, row.written);
            EXPECT_EQ(shown, row.reference ? std::vector<int>{} : row.written);
            device.onSent = nullptr;
        }
    }
}

} // namespace
} // namespace test
} // namespace edidvm
