// SPDX-License-Identifier: MIT
#pragma once

// The timing-change set-up: three interfaces on one subcard, three screens,
// and the traces of the roads a change takes.

#include "viewmodel/viewmodelfixture.h"

#include <memory>
#include <tuple>

namespace edidvm {
namespace test {

inline const Trace Impact = {"C FC050200 8", "C FC050111 8", "C FC0D1000 8", "C FC000004 0"};
inline const Trace ThumbWrite = {"C FC050111 8",  "E FC000626 44", "C FC051000 8",
                                 "E FC0C0C0F 11", "C FC051008 24", "E FC0C0C10 0"};
inline const Trace Committed = {"E FC020611 28"};
inline const Trace ThumbRejected = {"C FC050111 8", "E FC000626 44", "C FC051000 8", "E FC0C0C12 556"};
inline const Trace ReferenceWrite = {"C FC050111 8", "C FC051001 8",  "E FC0C0C0F 11",
                                     "E FC0C0C27 4", "E FC051009 24", "E FC0C0C10 0"};
inline const Trace ReferenceRejected = {"C FC050111 8", "C FC051001 8", "E FC0C0C12 556"};
inline const Trace Asked = {"C FC05021F 8", "C FC05021F 8", "E FC030605 556"};

inline const char BandwidthText[] =
    "Bandwidth limit exceeded. Please adjust the frame rate or advanced parameters and retry.";
inline const char NoTarget[] = "Not find the interface: id: 3";
inline const char MissingService[] = "Not find the pSubcardCfgMgr or pDeviceCfgMgr";

inline s_InterfaceThumbTiming thumbTiming(std::int32_t width, std::int32_t height, float refresh, std::int32_t id = 3)
{
    return {id, {11, refresh, width, height, 14, 15, 16}, 17, 18};
}

inline s_InterfacePresetTiming referenceTiming(std::int32_t width, std::int32_t height, float refresh,
                                               std::int32_t id = 3)
{
    s_InterfacePresetTiming timing{id, {}, 34, 35};
    timing.stTimingDetail = {21, refresh, width, 24, 25, 26, 27, height, 29, 30, 31, 32, 33, 20};
    return timing;
}

inline s_ScreenDetailInfo screen(std::uint32_t screenId, std::uint32_t index, std::vector<std::int32_t> fedBy)
{
    s_ScreenDetailInfo record;
    record.screenId = screenId;
    record.screenIndex = index;
    for (std::int32_t interfaceId : fedBy)
        record.stOutputDetailArry.emplace_back().interfaceId = interfaceId;
    return record;
}

inline Bytes boxBytes(std::int32_t boxId, std::int32_t boxType, const std::string& text)
{
    Model::s_MessageBoxRequest box;
    box.boxId = boxId;
    box.boxType = boxType;
    std::memcpy(box.text, text.c_str(), text.size() + 1);
    return bytesOf(box);
}

inline s_TimigCheckResult verdict(std::int32_t id, std::int32_t needed, std::int32_t maxFrameRate,
                                  std::int32_t over = 0)
{
    s_TimigCheckResult result;
    std::tie(result.interfaceId, result.bandwidthNeeded, result.maxFrameRate, result.overBandwidth) =
        std::tie(id, needed, maxFrameRate, over);
    result.bandwidthLimit = 1000;
    return result;
}

// A delivery the host interjects: a record, or the bytes given.
template <typename Record>
host::Delivery event(std::uint32_t number, const Record& record)
{
    host::Delivery delivery;
    delivery.number = number;
    if constexpr (std::is_same_v<Record, Bytes>) {
        delivery.payload = record;
    } else {
        delivery.payload = bytesOf(record);
        // A record owning texts is delivered from a copy that lives as long
        // as the delivery; its bytes would point into the caller's temporary.
        if constexpr (!std::is_trivially_copyable_v<Record>)
            delivery.record = std::make_shared<const Record>(record);
    }
    return delivery;
}

inline host::Delivery bare(std::uint32_t number, int kind = kpf::MessageKindEvent)
{
    host::Delivery delivery;
    delivery.kind = kind;
    delivery.number = number;
    return delivery;
}

class TimingChangeTest : public ViewModelTest
{
protected:
    // Interface 3 (current; slot 2, connector 1), 5 (connector 2), 6 (connector
    // 5). Slot 2 is subcard 21; its connector 1 is key 77 (later ones are
    // decoys), tied to connectors 2 and 1: screens 101 (fed by 5) and 103 (fed
    // by 3) are affected, 102 (fed by 6 and by 99, which is not listed) is not.
    void SetUp() override
    {
        ViewModelTest::SetUp();
        if (!HasFatalFailure())
            baseline();
    }

    // Also restores whatever a case took away.
    void baseline()
    {
        installStandIns();
        host.api().setService("deviceconfigmanager", static_cast<DeviceConfigManager*>(&host.deviceConfig()));
        host.api().setService("subcardconfigmanager", static_cast<SubcardConfigManager*>(&host.subcardConfig()));
        device.interfaces = {makeInterface(3, 1), makeInterface(5, 2), makeInterface(6, 5)};
        for (s_InterfaceList& entry : device.interfaces)
            entry.slotId = 2;
        setCurrent(device.interfaces[0]);
        // The commit must take these from the fresh list, not the cached record.
        device.interfaces[0].checkParam0 = 500;
        device.interfaces[0].checkParam1 = -600;
        device.subcards = {{1, {}, {{1, {}, 99, {}}}},
                           {2, {}, {{4, {}, 98, {}}, {1, {}, 77, {}}, {1, {}, 66, {}}}},
                           {2, {}, {{1, {}, 55, {}}}}};
        host.deviceConfig().setAnswer([](std::int32_t slot) { return slot * 10 + 1; });
        // The device's parameter goes unanswered, so it arrives as -1.
        host.subcardConfig().setAnswer([this](std::int32_t subcard, std::int32_t key, std::int32_t deviceParam) {
            return subcard == 21 && key == 77 && deviceParam == -1 ? related : std::vector<int>{};
        });
        related = {2, 1};
        device.screens = {screen(101, 0, {5}), screen(102, 1, {99, 6}), screen(103, 2, {3})};
        reset();
    }

    // Under NestedDeliveries, or MovingCurrent; once, during the given send.
    void interjectOnce(host::Variation variation, std::vector<host::Delivery> deliveries, std::uint32_t during)
    {
        host.setVariation(variation);
        host::Interjection interjection;
        interjection.deliveries = std::move(deliveries);
        interjection.during = {during};
        interjection.times = 1;
        host.setInterjection(std::move(interjection));
    }

    void choose(const s_InterfaceThumbTiming& timing) { host.event(msg::ThumbChoice, &timing, sizeof timing); }
    void choose(const s_InterfacePresetTiming& timing) { host.event(msg::ReferenceChoice, &timing, sizeof timing); }

    void answer(std::int32_t boxId, std::uint8_t result)
    {
        Model::s_MessageBoxRequest box;
        box.boxId = boxId;
        box.result = result;
        host.event(msg::BoxAnswer, &box, sizeof box);
    }

    // The check the thumb commit announces and has judged.
    static Bytes thumbCheckBytes(const s_InterfaceThumbTiming& chosen)
    {
        return bytesOf(s_ThumbTimigCheck{3, 3, chosen.stThumbTiming, 500, -600});
    }

    std::vector<int> related;
};

} // namespace test
} // namespace edidvm
