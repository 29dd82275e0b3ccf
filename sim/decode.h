// SPDX-License-Identifier: MIT
#pragma once

// Records shown as trace fields. Carried words appear only when non-zero, so
// a line shows what a scenario set and what the component changed.

#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/screenrecords.h"
#include "sim/messages.h"
#include "viewmodel/viewmodelrecords.h"

#include <string>
#include <vector>

namespace edidvm {
namespace sim {

// A carried 32-bit word of a timing record, by the name scenarios and the
// trace give it.
template <typename Record>
struct Word
{
    const char* name;
    std::uint32_t Record::*field;
};
extern const std::vector<Word<LCD::ProtoModel::Interface::s_ThumbTimingInfo>> ThumbWords;
extern const std::vector<Word<LCD::ProtoModel::Interface::s_TimingDetailInfo>> DetailWords;

// "1920x1080@60.00"
std::string timingText(std::int32_t width, std::int32_t height, double refresh);

Fields fieldsOf(const LCD::ProtoModel::Interface::s_ThumbTimingInfo& timing);
Fields fieldsOf(const LCD::ProtoModel::Interface::s_TimingDetailInfo& timing);
Fields fieldsOf(const LCD::ProtoModel::Interface::s_InterfaceList& entry);
Fields fieldsOf(const LCD::ProtoModel::Interface::s_InterfaceThumbTiming& choice);
Fields fieldsOf(const LCD::ProtoModel::Interface::s_InterfacePresetTiming& choice);
Fields fieldsOf(const LCD::ProtoModel::Interface::s_ThumbTimigCheck& check);
Fields fieldsOf(const LCD::ProtoModel::Interface::s_DetailTimigCheck& check);
Fields fieldsOf(const LCD::ProtoModel::Interface::s_TimigCheckResult& verdict);
Fields fieldsOf(const LCD::ProtoModel::Screen::s_ScreenThumbTiming& timing);
Fields fieldsOf(const Model::s_InterfaceTimingNotice& notice);
// A request shows its id, type and text; an answer its id and the user's choice.
Fields boxFields(const Model::s_MessageBoxRequest& box, bool answer);

// Every key fieldsOf can show for a kind of record: its carried words set.
void setEveryWord(LCD::ProtoModel::Interface::s_ThumbTimingInfo& timing);
void setEveryWord(LCD::ProtoModel::Interface::s_TimingDetailInfo& timing);
void setEveryWord(LCD::ProtoModel::Interface::s_InterfaceThumbTiming& choice);
void setEveryWord(LCD::ProtoModel::Interface::s_InterfacePresetTiming& choice);
void setEveryWord(LCD::ProtoModel::Interface::s_ThumbTimigCheck& check);
void setEveryWord(LCD::ProtoModel::Interface::s_DetailTimigCheck& check);
void setEveryWord(LCD::ProtoModel::Screen::s_ScreenThumbTiming& timing);
// A verdict's list of frame rates holds one, so its elements have a shape.
void setEveryWord(LCD::ProtoModel::Interface::s_TimigCheckResult& verdict);
template <typename T>
void setEveryWord(T&)
{}
template <typename T>
Fields everyFieldOf()
{
    T record{};
    setEveryWord(record);
    return fieldsOf(record);
}

template <typename T>
Fields listOf(const std::vector<T>& items)
{
    Fields list = Fields::array();
    for (const T& item : items)
        list.push_back(fieldsOf(item));
    return list;
}

} // namespace sim
} // namespace edidvm
