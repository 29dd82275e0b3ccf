// SPDX-License-Identifier: MIT
#pragma once

// Every number the output EDID view model handles or sends, by name. The
// names are those of the message reference (docs/messages.md) and of the
// simulator's trace.

#include <cstdint>

namespace LCD {
namespace MessageId {

// Delivered into the component.
constexpr std::uint32_t SetCurrentInterface = 0xFC021009u;
constexpr std::uint32_t SdiInterface = 0xFC031007u;
constexpr std::uint32_t InterfaceType = 0xFC051016u;
constexpr std::uint32_t RefreshTiming = 0xFC00060Au;
constexpr std::uint32_t SelectedInterfaceTiming = 0xFC00060Bu;
constexpr std::uint32_t ThumbCheckRequest = 0xFC000605u;
constexpr std::uint32_t DetailCheckRequest = 0xFC000606u;
constexpr std::uint32_t ThumbChoice = 0xFC00060Cu;
constexpr std::uint32_t ReferenceChoice = 0xFC00060Du;
constexpr std::uint32_t PublishReference = 0xFC070606u;
constexpr std::uint32_t ChangedReferenceTimings = 0xFC081005u;
constexpr std::uint32_t ChangedThumbTimings = 0xFC081006u;
constexpr std::uint32_t InUseAsked = 0xFC000617u;
constexpr std::uint32_t InUseAsked2 = 0xFC030204u;
constexpr std::uint32_t InUseAsked3 = 0xFC08021Eu;
constexpr std::uint32_t BoxAnswer = 0xFC000620u;

// Sent by the component.
constexpr std::uint32_t InterfaceDetail = 0xFC050111u;
constexpr std::uint32_t DetailTiming = 0xFC020607u;
constexpr std::uint32_t ThumbTiming = 0xFC020608u;
constexpr std::uint32_t SelectedInterface = 0xFC08100Au;
constexpr std::uint32_t AdoptedInterface = 0xFC001009u;
constexpr std::uint32_t TimingNotice = 0xFC030606u;
constexpr std::uint32_t ThumbCheck = 0xFC051000u;
constexpr std::uint32_t DetailCheck = 0xFC051001u;
constexpr std::uint32_t ThumbCheckResults = 0xFC020603u;
constexpr std::uint32_t DetailCheckResults = 0xFC020604u;
constexpr std::uint32_t ChangedDetail = 0xFC030601u;
constexpr std::uint32_t ChangedThumb = 0xFC030602u;
constexpr std::uint32_t Confirmation = 0xFC030605u;
constexpr std::uint32_t CommittedThumb = 0xFC020611u;
constexpr std::uint32_t InUse = 0xFC02060Eu;
constexpr std::uint32_t Screens = 0xFC050200u;
constexpr std::uint32_t Subcards = 0xFC0D1000u;
constexpr std::uint32_t DeviceParam = 0xFC000004u;
constexpr std::uint32_t Assess = 0xFC05021Fu;
constexpr std::uint32_t AssessFailed = 0xFC02022Du;
constexpr std::uint32_t PreCheck = 0xFC000626u;
constexpr std::uint32_t WriteThumb = 0xFC051008u;
constexpr std::uint32_t WritingReference = 0xFC0C0C27u;
constexpr std::uint32_t WriteReference = 0xFC051009u;
constexpr std::uint32_t ShowWaiting = 0xFC0C0C0Fu;
constexpr std::uint32_t HideWaiting = 0xFC0C0C10u;
constexpr std::uint32_t MessageBox = 0xFC0C0C12u;

} // namespace MessageId
} // namespace LCD
