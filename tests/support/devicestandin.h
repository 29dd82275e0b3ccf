// SPDX-License-Identifier: MIT
#pragma once

// The device's side of what the view model asks, as the tests and the
// benchmarks stand it in on our host: it answers the commands from its own
// fields and keeps what it saw.

#include "framework/imessage.h"
#include "host/hostobjects.h"
#include "host/recorder.h"
#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/queryinfo.h"
#include "protomodel/screenrecords.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace edidvm {
namespace host {
class Host;
}

namespace test {

using Parameters = std::map<std::string, std::string>;

class DeviceStandIn
{
public:
    // The services it can answer, each on its command numbers.
    enum Service : unsigned {
        InterfaceQuery = 1u << 0, // 0xFC050111
        ScreenQuery = 1u << 1,    // 0xFC050200
        SubcardQuery = 1u << 2,   // 0xFC0D1000
        Selections = 1u << 3,     // 0xFC000004, 0xFC08100A: received, no reply
        Assessment = 1u << 4,     // 0xFC05021F: carried out, raising no code
        ThumbWrite = 1u << 5,     // 0xFC051008
        TimingCheck = 1u << 6,    // 0xFC051000 (thumbs), 0xFC051001 (details)
        AllServices = (1u << 7) - 1,
    };

    // Answers the services on host, and takes its recorder hook to see the
    // reference writes; again to put back a responder a caller removed. The
    // stand-in must outlive every send the host routes to it.
    void install(host::Host& host, unsigned services = AllServices);
    // Forgets what it saw.
    void forget();

    // Reads a query's filter as the device does. Empty: filters are neither
    // read nor kept, and the interface query is answered with the whole list.
    std::function<Parameters(const LCD::GlobalMessageHander::QueryFilter& filter)> readFilter = readPlainly;
    static Parameters readPlainly(const LCD::GlobalMessageHander::QueryFilter& filter);

    // What it answers. The interface query honours "interfaceId"; under
    // AnswerElsewhere it answers in an envelope of the host's.
    std::vector<LCD::ProtoModel::Interface::s_InterfaceList> interfaces;
    std::vector<LCD::ProtoModel::Screen::s_ScreenDetailInfo> screens;
    std::vector<LCD::ProtoModel::Subcard::s_SubcardInfo> subcards;
    LCD::ProtoModel::Interface::s_TimigCheckResultArry checkResults;
    // Not empty: every thumb check passes at these frame rates (hundredths
    // of a Hz), the highest its maximum, instead of checkResults.
    std::vector<std::int32_t> passingFrameRates;
    std::optional<host::Bytes> thumbWriteReply; // empty: no reply
    bool interfaceAnswerNulled = false;         // 0xFC050111 nulls a lent pointer variable
    // Off: nothing seen is kept (long runs, benchmarks).
    bool keeping = true;
    // Sees every message a component sends while the host records, after
    // the stand-in has.
    host::Recorder::Hook onSent;

    // What it saw, written under a lock on whichever thread sends: read it
    // once the sends are done.
    std::vector<LCD::ProtoModel::Interface::s_ThumbTimigCheck> thumbChecksSeen; // the last check's thumbs
    std::vector<Parameters> interfaceFiltersSeen;
    std::vector<Parameters> screenFiltersSeen;
    std::vector<std::int32_t> subcardRequestsSeen;
    std::vector<std::vector<LCD::ProtoModel::Interface::s_InterfaceThumbTiming>> thumbWritten;
    std::vector<std::vector<LCD::ProtoModel::Interface::s_InterfacePresetTiming>> referenceWritten;

private:
    std::optional<host::Bytes> answerInterfaces(const kpf::IMessage& command);
    void answerChecks(LCD::ProtoModel::Interface::s_TimigCheckQuery& query);
    template <typename List, typename Item>
    void keep(List& seen, Item&& item)
    {
        if (keeping) {
            std::lock_guard<std::mutex> lock(m_mutex);
            seen.push_back(std::forward<Item>(item));
        }
    }

    host::Host* m_host = nullptr;
    std::mutex m_mutex;
};

} // namespace test
} // namespace edidvm
