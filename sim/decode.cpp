// SPDX-License-Identifier: MIT
#include "sim/decode.h"

#include <cstdio>
#include <cstring>

namespace edidvm {
namespace sim {

using namespace LCD::ProtoModel::Interface;

const std::vector<Word<s_ThumbTimingInfo>> ThumbWords = {{"param0", &s_ThumbTimingInfo::param0},
                                                         {"param4", &s_ThumbTimingInfo::param4},
                                                         {"param5", &s_ThumbTimingInfo::param5},
                                                         {"param6", &s_ThumbTimingInfo::param6}};
const std::vector<Word<s_TimingDetailInfo>> DetailWords = {
    {"param0", &s_TimingDetailInfo::param0},   {"param3", &s_TimingDetailInfo::param3},
    {"param4", &s_TimingDetailInfo::param4},   {"param5", &s_TimingDetailInfo::param5},
    {"param6", &s_TimingDetailInfo::param6},   {"param8", &s_TimingDetailInfo::param8},
    {"param9", &s_TimingDetailInfo::param9},   {"param10", &s_TimingDetailInfo::param10},
    {"param11", &s_TimingDetailInfo::param11}, {"param12", &s_TimingDetailInfo::param12},
    {"param13", &s_TimingDetailInfo::param13}};

namespace {
template <typename Record>
Fields timingFields(const Record& timing, const std::vector<Word<Record>>& words)
{
    Fields fields = {{"timing", timingText(timing.width, timing.height, timing.refresh)}};
    for (const Word<Record>& word : words) {
        if (timing.*word.field != 0)
            fields[word.name] = timing.*word.field;
    }
    return fields;
}

// The id first, then the record's own fields.
Fields withInterface(std::int32_t interfaceId, const Fields& fields)
{
    Fields all = {{"interface", interfaceId}};
    all.update(fields);
    return all;
}
} // namespace

std::string timingText(std::int32_t width, std::int32_t height, double refresh)
{
    char text[64];
    std::snprintf(text, sizeof text, "%dx%d@%.2f", width, height, refresh);
    return text;
}

Fields fieldsOf(const s_ThumbTimingInfo& timing)
{
    return timingFields(timing, ThumbWords);
}

Fields fieldsOf(const s_TimingDetailInfo& timing)
{
    return timingFields(timing, DetailWords);
}

Fields fieldsOf(const s_InterfaceList& entry)
{
    return {{"interface", entry.interfaceId},
            {"slot", entry.slotId},
            {"connector", entry.connectorId},
            {"type", entry.stAuxiliaryInfo.interfaceType},
            {"status", entry.stAuxiliaryInfo.interfaceStatus},
            {"usedByScreen", entry.stAuxiliaryInfo.usedByScreen},
            {"thumb", fieldsOf(entry.stThumbTiming)["timing"]},
            {"detail", fieldsOf(entry.stTimingDetail)["timing"]}};
}

Fields fieldsOf(const s_InterfaceThumbTiming& choice)
{
    return withInterface(choice.interfaceId, fieldsOf(choice.stThumbTiming));
}

Fields fieldsOf(const s_InterfacePresetTiming& choice)
{
    return withInterface(choice.interfaceId, fieldsOf(choice.stTimingDetail));
}

Fields fieldsOf(const s_ThumbTimigCheck& check)
{
    Fields fields = withInterface(check.interfaceId, {{"tag", check.tagName}});
    fields.update(fieldsOf(check.stThumbTiming));
    fields.update({{"checkParam0", check.checkParam0}, {"checkParam1", check.checkParam1}});
    return fields;
}

Fields fieldsOf(const s_DetailTimigCheck& check)
{
    Fields fields = withInterface(check.interfaceId, {{"tag", check.tagName}});
    fields.update(fieldsOf(check.stTimingDetail));
    fields.update({{"checkParam0", check.checkParam0}, {"checkParam1", check.checkParam1}});
    return fields;
}

Fields fieldsOf(const s_TimigCheckResult& verdict)
{
    return {{"interface", verdict.interfaceId},           {"bandwidthLimit", verdict.bandwidthLimit},
            {"bandwidthNeeded", verdict.bandwidthNeeded}, {"overBandwidth", verdict.overBandwidth},
            {"maxFrameRate", verdict.maxFrameRate},       {"frameRates", verdict.frameRates}};
}

Fields fieldsOf(const LCD::ProtoModel::Screen::s_ScreenThumbTiming& timing)
{
    Fields fields = {{"screen", timing.screenId}};
    fields.update(fieldsOf(timing.stThumbTiming));
    return fields;
}

Fields fieldsOf(const Model::s_InterfaceTimingNotice& notice)
{
    // The third word is never assigned by the component: not shown.
    return {{"word0", notice.noticeWord0}, {"word1", notice.noticeWord1}, {"word3", notice.noticeWord3}};
}

namespace {
template <typename Record>
void setWords(Record& timing, const std::vector<Word<Record>>& words)
{
    for (const Word<Record>& word : words)
        timing.*word.field = 1;
}
} // namespace

void setEveryWord(s_ThumbTimingInfo& timing)
{
    setWords(timing, ThumbWords);
}

void setEveryWord(s_TimingDetailInfo& timing)
{
    setWords(timing, DetailWords);
}

void setEveryWord(s_InterfaceThumbTiming& choice)
{
    setEveryWord(choice.stThumbTiming);
}

void setEveryWord(s_InterfacePresetTiming& choice)
{
    setEveryWord(choice.stTimingDetail);
}

void setEveryWord(s_ThumbTimigCheck& check)
{
    setEveryWord(check.stThumbTiming);
}

void setEveryWord(s_DetailTimigCheck& check)
{
    setEveryWord(check.stTimingDetail);
}

void setEveryWord(LCD::ProtoModel::Screen::s_ScreenThumbTiming& timing)
{
    setEveryWord(timing.stThumbTiming);
}

void setEveryWord(s_TimigCheckResult& verdict)
{
    verdict.frameRates = {1};
}

Fields boxFields(const Model::s_MessageBoxRequest& box, bool answer)
{
    if (answer)
        return {{"id", box.boxId}, {"accepted", box.result != 0}};
    return {
        {"id", box.boxId}, {"type", box.boxType}, {"text", std::string(box.text, strnlen(box.text, sizeof box.text))}};
}

} // namespace sim
} // namespace edidvm
