// SPDX-License-Identifier: MIT
#pragma once

// The capture: the events the view model handles that reach the probe as
// well, read while their delivery lasts (some carry addresses into the
// sender's memory, which mean nothing later) and turned into a scenario's
// steps on the probe's own thread.

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <map>

namespace kpf {
class IMessage;
}
namespace LCD {
namespace ProtoModel {
namespace Interface {
struct s_InterfaceList;
struct s_ThumbTimingInfo;
struct s_TimingDetailInfo;
} // namespace Interface
} // namespace ProtoModel
} // namespace LCD

namespace Probe {

// The events captured: every event the view model handles.
extern const std::uint32_t CapturedNumbers[15];
bool isCaptured(std::uint32_t number);

// What one delivery held, with no address left in it.
struct CapturedEvent
{
    std::uint32_t number = 0;
    QJsonObject step; // the step in the scenario's own keys; empty when it has none
    QString bytes;    // the payload in hex, when it is plain bytes; null otherwise
    QString why;      // why neither could be read
};
// On the delivering thread, during the delivery: data() is called once.
CapturedEvent readEvent(const kpf::IMessage& message);

// The device's state as the scenario states it, and its interfaces by id
// as the file last gave them.
struct DeviceState
{
    QJsonObject json;
    std::map<int, QJsonObject> interfaces;
};

// The steps a captured event becomes, or none and why.
QJsonArray stepsOf(const CapturedEvent& event, DeviceState& device, QString* why);

// Records in the scenario's keys.
// Both timings have a size and a rate: a scenario holds no other.
bool timingsPlayable(const LCD::ProtoModel::Interface::s_InterfaceList& entry);
QJsonObject interfaceEntry(const LCD::ProtoModel::Interface::s_InterfaceList& entry);
QJsonObject thumbTiming(const LCD::ProtoModel::Interface::s_ThumbTimingInfo& timing);
QJsonObject detailTiming(const LCD::ProtoModel::Interface::s_TimingDetailInfo& timing);

} // namespace Probe
