// SPDX-License-Identifier: MIT
#include "viewmodel/outputedidviewmodel.h"

#include "framework/api.h"
#include "framework/configservices.h"
#include "framework/idispatchers.h"
#include "framework/ihostapi.h"
#include "framework/imessage.h"
#include "framework/wire.h"
#include "message/log.h"
#include "protomodel/configrecords.h"
#include "protomodel/constants.h"
#include "protomodel/messageids.h"
#include "protomodel/queryinfo.h"

#include <QDebug>
#include <QObject>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace msg = LCD::MessageId;

namespace Model {

using namespace LCD::ProtoModel::Interface;
using LCD::GlobalMessageHander::QueryInfo;
using LCD::ProtoModel::Screen::s_AssessResult;
using LCD::ProtoModel::Screen::s_ScreenDetail;
using LCD::ProtoModel::Screen::s_ScreenThumbTiming;
using LCD::ProtoModel::Screen::s_TimingAssessQuery;
using LCD::ProtoModel::Subcard::s_SubcardQuery;

namespace {

constexpr int BandwidthBoxId = 14;
constexpr int ThumbConfirmationBoxId = 35;
constexpr int ReferenceConfirmationBoxId = 36;
constexpr int InformationBoxType = 4;
constexpr int QuestionBoxType = 2;
// The tag of the one check a thumb commit has judged.
constexpr int CommitCheckTag = 3;

const char ReentryWarning[] = "handler re-entered on a thread that holds the view model's lock; ignored";
const char OvertakenWarning[] = "a later commit of this kind has already been written; this one is dropped";

template <typename T>
int sizeOf()
{
    return static_cast<int>(sizeof(T));
}

// A host may hand out the payload only once: read data() once and use the
// address tested, except where a second read is itself the check.
template <typename Record>
const Record* payload(const kpf::IMessage* msg)
{
    return static_cast<const Record*>(msg->data());
}

// The envelope address that an 8-byte payload carries.
template <typename Envelope>
Envelope* envelopeAt(const void* data)
{
    Envelope* envelope = nullptr;
    std::memcpy(&envelope, data, sizeof envelope);
    return envelope;
}

const s_InterfaceList* findInterface(const std::vector<s_InterfaceList>& list, std::int32_t interfaceId)
{
    const auto found = std::find_if(list.begin(), list.end(), [interfaceId](const s_InterfaceList& entry) {
        return entry.interfaceId == interfaceId;
    });
    return found == list.end() ? nullptr : &*found;
}

s_InterfaceTimingNotice noticeFor(const s_InterfaceList& interface)
{
    s_InterfaceTimingNotice notice;
    notice.noticeWord0 = interface.ifWord92;
    notice.noticeWord1 = interface.ifWord158;
    notice.noticeWord3 = interface.stThumbTiming.param4;
    return notice;
}

// The refresh truncated toward zero; 0 where the conversion is undefined.
std::int32_t truncatedRefresh(float refresh)
{
    if (!std::isfinite(refresh) || refresh >= 2147483648.0f || refresh < -2147483648.0f)
        return 0;
    return static_cast<std::int32_t>(refresh);
}

// width x height x refresh wraps in 32 bits, as on the device.
bool isZeroTiming(const s_ThumbTimingInfo& timing)
{
    const std::uint32_t product = static_cast<std::uint32_t>(timing.width) * static_cast<std::uint32_t>(timing.height) *
                                  static_cast<std::uint32_t>(truncatedRefresh(timing.refresh));
    return product == 0;
}

// Exact, in single precision: 59.94f * 100.0f is 5994.0f.
bool holdsFrame(const s_TimigCheckResult& result, float refresh)
{
    const float wanted = refresh * 100.0f;
    return std::any_of(result.frameRates.begin(), result.frameRates.end(),
                       [wanted](std::int32_t rate) { return static_cast<float>(rate) == wanted; });
}

// Without the current interface there is no frame rate to compare.
bool anyMissesFrame(const s_TimigCheckResultArry& results, const s_InterfaceList* current)
{
    if (current == nullptr)
        return false;
    const float refresh = current->stThumbTiming.refresh;
    return std::any_of(results.begin(), results.end(),
                       [refresh](const s_TimigCheckResult& result) { return !holdsFrame(result, refresh); });
}

// Every check carries the current interface, whatever the page put in.
template <typename Check>
void stampChecks(std::vector<Check>& checks, std::int32_t interfaceId, const s_InterfaceList& current)
{
    for (Check& check : checks) {
        check.interfaceId = interfaceId;
        check.checkParam0 = current.checkParam0;
        check.checkParam1 = current.checkParam1;
    }
}

bool forwardsDetailResults(const s_InterfaceList* current)
{
    return current != nullptr &&
           (current->stAuxiliaryInfo.interfaceType == 4 || current->stAuxiliaryInfo.interfaceType == 8);
}

// What tells the thumb check from the detail check.
template <typename Check>
struct CheckKind;

template <>
struct CheckKind<s_ThumbTimigCheck>
{
    static constexpr auto list = &s_TimigCheckQuery::stThumbCheckArry;
    static constexpr std::uint32_t command = msg::ThumbCheck;
    static constexpr bool refusesZeroTiming = true;
    static constexpr char noChecksWarning[] = "stThumbCheckArry is empty.";
    static constexpr char noSourceWarning[] = "Not find interface source. interfaceid:";
    static constexpr auto extraChecks = &OutputEDIDViewModel::getSDIInterfaceCheckArray;
    static constexpr auto respond = &OutputEDIDViewModel::setThumbTimingCheckResp;
};

template <>
struct CheckKind<s_DetailTimigCheck>
{
    static constexpr auto list = &s_TimigCheckQuery::stDetailCheckArry;
    static constexpr std::uint32_t command = msg::DetailCheck;
    static constexpr bool refusesZeroTiming = false;
    static constexpr char noChecksWarning[] = "stDetailCheckArry is empty.";
    static constexpr char noSourceWarning[] = "Not find input source. interfaceid:";
    static constexpr auto extraChecks = &OutputEDIDViewModel::getSDIInterfaceDetailCheckArray;
    static constexpr auto respond = &OutputEDIDViewModel::setDetailTimingCheckResp;
};

} // namespace

OutputEDIDViewModel::StateLock::StateLock(OutputEDIDViewModel& model) : m_model(model)
{
    m_model.m_mutex.lock();
    m_model.m_mutexOwner.store(std::this_thread::get_id());
}

OutputEDIDViewModel::StateLock::~StateLock()
{
    m_model.m_mutexOwner.store(std::thread::id());
    m_model.m_mutex.unlock();
}

bool OutputEDIDViewModel::reentered(const QMessageLogContext& handler) const
{
    if (!heldByThisThread())
        return false;
    EDIDVM_WARNING_IN(handler) << ReentryWarning;
    return true;
}

OutputEDIDViewModel::OutputEDIDViewModel()
{
    m_name = "outputedidviewmodel";
}

OutputEDIDViewModel::~OutputEDIDViewModel() = default;

int OutputEDIDViewModel::onInit()
{
    using VM = OutputEDIDViewModel;
    registerEvent(kpf::wireInt(msg::PublishReference), bind<&VM::onPutInterfaceRefTiming>());
    registerEvent(kpf::wireInt(msg::BoxAnswer), bind<&VM::setInterfaceEdidData>());
    registerEvent(kpf::wireInt(msg::SetCurrentInterface), bind<&VM::setCurrentInterfaceInfo>());
    registerEvent(kpf::wireInt(msg::RefreshTiming), bind<&VM::getCurinterfaceTiming>());
    registerEvent(kpf::wireInt(msg::SelectedInterfaceTiming), bind<&VM::getInterfaceThumbfTiming>());
    registerEvent(kpf::wireInt(msg::ThumbCheckRequest), bind<&VM::setThumbTimingCheck>());
    registerEvent(kpf::wireInt(msg::DetailCheckRequest), bind<&VM::setDetailTimingCheck>());
    registerEvent(kpf::wireInt(msg::ThumbChoice), bind<&VM::putInterfaceThumbTiming>());
    registerEvent(kpf::wireInt(msg::ReferenceChoice), bind<&VM::putInterfaceRefTiming>());
    registerEvent(kpf::wireInt(msg::InUseAsked), bind<&VM::getCurConnecterUsedByScreen>());
    registerEvent(kpf::wireInt(msg::SdiInterface), bind<&VM::curSDIInterfaceInfo>());
    registerCommand(kpf::wireInt(msg::InterfaceType), bind<&VM::curInterfaceType>());
    registerEvent(kpf::wireInt(msg::ChangedReferenceTimings), bind<&VM::changeInterfaceTimimg>());
    registerEvent(kpf::wireInt(msg::ChangedThumbTimings), bind<&VM::changeInterfaceThumbTimimg>());
    registerEvent(kpf::wireInt(msg::InUseAsked2), bind<&VM::getCurConnecterUsedByScreen>());
    registerEvent(kpf::wireInt(msg::InUseAsked3), bind<&VM::getCurConnecterUsedByScreen>());
    return 0;
}

void OutputEDIDViewModel::adoptInterface(const s_InterfaceList& interface)
{
    m_curInterfaceInfo = interface;
    m_curInterfaceId.store(interface.interfaceId);
    m_curInterfaceType.store(interface.stAuxiliaryInfo.interfaceType);
}

template <typename Timing>
OutputEDIDViewModel::Commit<Timing> OutputEDIDViewModel::startCommit(CommitQueue<Timing>& commits,
                                                                     const std::vector<Timing>& stored)
{
    std::lock_guard<std::mutex> lock(m_choiceMutex);
    return {++commits.started, stored};
}

template <typename Timing>
void OutputEDIDViewModel::writeInTurn(CommitQueue<Timing>& commits, std::uint64_t sequence, std::vector<Timing> choice,
                                      const QMessageLogContext& commit)
{
    bool overtaken = false;
    {
        std::lock_guard<std::mutex> lock(m_choiceMutex);
        overtaken = commits.written > sequence;
    }
    if (overtaken) {
        EDIDVM_WARNING_IN(commit) << OvertakenWarning;
        return;
    }
    showWaitingDialog(true);
    {
        // The showing was a send: a later commit may have written meanwhile.
        // Checked and queued in one hold, so no copy waits behind a newer one
        // already written.
        std::lock_guard<std::mutex> lock(m_choiceMutex);
        overtaken = commits.written > sequence;
        if (!overtaken) {
            commits.waiting.emplace(sequence, std::move(choice));
            if (commits.writing)
                return; // that writer writes this copy too, and hides its indicator
            commits.writing = true;
        }
    }
    if (overtaken) {
        showWaitingDialog(false);
        EDIDVM_WARNING_IN(commit) << OvertakenWarning;
        return;
    }
    // Oldest first, until none waits; copies queued meanwhile are newer than
    // any written.
    std::unique_lock<std::mutex> lock(m_choiceMutex);
    while (!commits.waiting.empty()) {
        const auto oldest = commits.waiting.begin();
        commits.written = oldest->first;
        std::vector<Timing> next = std::move(oldest->second);
        commits.waiting.erase(oldest);
        lock.unlock();
        writeChoice(next);
        lock.lock();
    }
    commits.writing = false;
}

QByteArray OutputEDIDViewModel::fitText(const QByteArray& utf8, int fieldSize)
{
    if (fieldSize <= 0)
        return QByteArray();
    int length = std::min(utf8.size(), fieldSize - 1);
    // Step back over continuation bytes of a character cut in two.
    while (length > 0 && length < utf8.size() && (static_cast<unsigned char>(utf8[length]) & 0xC0) == 0x80)
        --length;
    return utf8.left(length);
}

void OutputEDIDViewModel::showWaitingDialog(bool show)
{
    if (!show) {
        sendEvent(kpf::wireInt(msg::HideWaiting), 0, nullptr);
        return;
    }
    const QByteArray text = QObject::tr("Loading...").toUtf8();
    // constData() is NUL-terminated; the NUL travels too.
    sendEvent(kpf::wireInt(msg::ShowWaiting), text.size() + 1, text.constData());
}

void OutputEDIDViewModel::showBandWidthOverMessageBox()
{
    s_MessageBoxRequest box;
    box.boxId = BandwidthBoxId;
    box.boxType = InformationBoxType;
    box.flag1 = 1;
    const QByteArray text =
        fitText(QObject::tr("Bandwidth limit exceeded. Please adjust the frame rate or advanced parameters and retry.")
                    .toUtf8(),
                sizeof box.text);
    std::memcpy(box.text, text.constData(), static_cast<std::size_t>(text.size()));
    sendEvent(kpf::wireInt(msg::MessageBox), sizeOf<s_MessageBoxRequest>(), &box);
}

OutputEDIDViewModel::s_InterfaceDetailInfo OutputEDIDViewModel::getInterfaceDetail()
{
    QueryInfo<s_InterfaceDetailInfo> query;
    QueryInfo<s_InterfaceDetailInfo>* pointer = &query;
    sendCommand(kpf::wireInt(msg::InterfaceDetail), sizeof pointer, &pointer, 0, nullptr);
    if (pointer == nullptr) {
        EDIDVM_WARNING() << "get interface detail fail.";
        return s_InterfaceDetailInfo();
    }
    s_InterfaceDetailInfo detail;
    detail.detailWords0 = pointer->info.detailWords0;
    // Our own envelope dies with this function, so its list may be taken; an
    // envelope the answering side keeps is only read.
    if (pointer == &query)
        detail.stInterfaceListArry = std::move(query.info.stInterfaceListArry);
    else
        detail.stInterfaceListArry = pointer->info.stInterfaceListArry;
    return detail;
}

bool OutputEDIDViewModel::getCurInterfaceMap(std::map<std::string, std::string>& params)
{
    params.clear();
    params["interfaceId"] = std::to_string(m_curInterfaceId.load());
    return true;
}

bool OutputEDIDViewModel::getScreenMap(std::map<std::string, std::string>& params)
{
    params.clear();
    params["screenType"] = std::to_string(2);
    return true;
}

OutputEDIDViewModel::s_InterfaceList OutputEDIDViewModel::getSDIInterfaceDetail(const s_InterfaceDetailInfo& info)
{
    if (info.stInterfaceListArry.empty()) {
        EDIDVM_WARNING() << "interface list is empty";
        return s_InterfaceList();
    }
    if (const s_InterfaceList* found = findInterface(info.stInterfaceListArry, m_curSDIInterfaceInfo.interfaceId))
        return *found;
    EDIDVM_WARNING() << "find not sdi interface info ";
    return s_InterfaceList();
}

kpf::IMessage* OutputEDIDViewModel::setCurrentInterfaceInfo(const kpf::IMessage* msg)
{
    const auto* record = payload<s_InterfaceList>(msg);
    if (record == nullptr || msg->size() != sizeOf<s_InterfaceList>()) {
        EDIDVM_WARNING() << "set current interface info error";
        return nullptr;
    }
    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    StateLock lock(*this);
    adoptInterface(*record);
    s_TimingDetailInfo detail = m_curInterfaceInfo.stTimingDetail;
    sendEvent(kpf::wireInt(msg::DetailTiming), sizeOf<s_TimingDetailInfo>(), &detail);
    sendEvent(kpf::wireInt(msg::ThumbTiming), sizeOf<s_ThumbTimingInfo>(), &m_curInterfaceInfo.stThumbTiming);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::curSDIInterfaceInfo(const kpf::IMessage* msg)
{
    const void* data = msg->size() == sizeOf<s_SDIInterfaceInfo>() ? msg->data() : nullptr;
    if (data == nullptr) {
        EDIDVM_WARNING() << "command does not correct.";
        return nullptr;
    }
    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    StateLock lock(*this);
    std::memcpy(&m_curSDIInterfaceInfo, data, sizeof m_curSDIInterfaceInfo);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::curInterfaceType(const kpf::IMessage* msg)
{
    // Looked up on every call, not taken from the base.
    kpf::IHostApi* api = kpf::api::get().hostApi;
    auto* center =
        api != nullptr ? static_cast<kpf::IMessageCenter*>(api->findService("kpf_default_messagecenter")) : nullptr;
    if (center == nullptr) {
        EDIDVM_WARNING() << "service kpf_default_messagecenter is missing, no reply";
        return nullptr;
    }
    const std::int32_t type = m_curInterfaceType.load();
    return center->createMessage(msg->number(), m_name.c_str(), sizeof type, &type, 0);
}

kpf::IMessage* OutputEDIDViewModel::getCurinterfaceTiming(const kpf::IMessage* /*msg*/)
{
    s_InterfaceDetailInfo detail = getInterfaceDetail();
    std::vector<s_InterfaceList>& list = detail.stInterfaceListArry;
    if (list.empty())
        return nullptr;

    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    StateLock lock(*this);
    const s_InterfaceList* found = findInterface(list, m_curInterfaceInfo.interfaceId);
    adoptInterface(found != nullptr ? *found : list.front());
    sendEvent(kpf::wireInt(msg::DetailTiming), sizeOf<s_TimingDetailInfo>(), &m_curInterfaceInfo.stTimingDetail);
    sendEvent(kpf::wireInt(msg::ThumbTiming), sizeOf<s_ThumbTimingInfo>(), &m_curInterfaceInfo.stThumbTiming);
    const s_InterfaceTimingNotice notice = noticeFor(m_curInterfaceInfo);
    sendEvent(kpf::wireInt(msg::TimingNotice), sizeOf<s_InterfaceTimingNotice>(), &notice);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::getInterfaceThumbfTiming(const kpf::IMessage* /*msg*/)
{
    s_InterfaceDetailInfo detail = getInterfaceDetail();
    std::vector<s_InterfaceList>& list = detail.stInterfaceListArry;
    if (list.empty()) {
        EDIDVM_WARNING() << "inferface info error";
        return nullptr;
    }
    std::sort(list.begin(), list.end(),
              [](const s_InterfaceList& a, const s_InterfaceList& b) { return a.connectorId < b.connectorId; });

    std::int32_t selected = -1;
    sendCommand(kpf::wireInt(msg::SelectedInterface), 0, nullptr, sizeof selected, &selected);

    const s_InterfaceList* chosen = findInterface(list, selected);
    if (chosen == nullptr) {
        const auto usable = std::find_if(list.begin(), list.end(), [](const s_InterfaceList& entry) {
            return entry.stAuxiliaryInfo.interfaceType == 4 && entry.stAuxiliaryInfo.interfaceStatus != 2;
        });
        chosen = usable != list.end() ? &*usable : &list.front();
    }
    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    {
        StateLock lock(*this);
        adoptInterface(*chosen);
    }

    // Built from the local entry, which is what was just adopted, so the
    // sends below need no lock.
    s_ThumbTimingInfo thumb = chosen->stThumbTiming;
    thumb.param6 = chosen->ifWord92;
    const s_InterfaceTimingNotice notice = noticeFor(*chosen);
    std::int32_t adopted = chosen->interfaceId;
    sendCommand(kpf::wireInt(msg::AdoptedInterface), sizeof adopted, &adopted, 0, nullptr);
    sendEvent(kpf::wireInt(msg::ThumbTiming), sizeOf<s_ThumbTimingInfo>(), &thumb);
    sendEvent(kpf::wireInt(msg::TimingNotice), sizeOf<s_InterfaceTimingNotice>(), &notice);
    return nullptr;
}

template <typename Check>
kpf::IMessage* OutputEDIDViewModel::checkTimings(const kpf::IMessage* msg, const QMessageLogContext& handler)
{
    using Kind = CheckKind<Check>;
    const void* data = msg->size() == sizeof(void*) ? msg->data() : nullptr;
    if (data == nullptr) {
        EDIDVM_WARNING_IN(handler) << "msg data is null.";
        return nullptr;
    }
    const auto* request = envelopeAt<const QueryInfo<s_TimigCheckQuery>>(data);
    if (request == nullptr) {
        EDIDVM_WARNING_IN(handler) << "msg data is null.";
        return nullptr;
    }
    std::vector<Check> checks = request->info.*Kind::list;
    if (checks.empty()) {
        EDIDVM_WARNING_IN(handler) << Kind::noChecksWarning;
        return nullptr;
    }
    if constexpr (Kind::refusesZeroTiming) {
        // Only the first check decides.
        if (isZeroTiming(checks.front().stThumbTiming)) {
            EDIDVM_WARNING_IN(handler) << "timing is 0.";
            return nullptr;
        }
    }

    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    if (reentered(handler))
        return nullptr;
    // Declared before the lock, so it is destroyed after the unlock.
    QueryInfo<s_TimigCheckQuery> query;
    StateLock lock(*this);
    const s_InterfaceList* current = findInterface(detail.stInterfaceListArry, m_curInterfaceInfo.interfaceId);
    if (current == nullptr) {
        EDIDVM_WARNING_IN(handler) << Kind::noSourceWarning << m_curInterfaceInfo.interfaceId;
        return nullptr;
    }
    stampChecks(checks, m_curInterfaceInfo.interfaceId, *current);
    std::vector<Check> extra = (this->*Kind::extraChecks)(checks);
    checks.insert(checks.end(), extra.begin(), extra.end());

    query.info.*Kind::list = std::move(checks);
    QueryInfo<s_TimigCheckQuery>* pointer = &query;
    sendCommand(kpf::wireInt(Kind::command), sizeof pointer, &pointer, 0, nullptr);
    (this->*Kind::respond)(query.info.stCheckResultArry);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::setThumbTimingCheck(const kpf::IMessage* msg)
{
    return checkTimings<s_ThumbTimigCheck>(msg, EDIDVM_CONTEXT());
}

kpf::IMessage* OutputEDIDViewModel::setDetailTimingCheck(const kpf::IMessage* msg)
{
    return checkTimings<s_DetailTimigCheck>(msg, EDIDVM_CONTEXT());
}

void OutputEDIDViewModel::setThumbTimingCheckResp(s_TimigCheckResultArry results)
{
    if (results.empty())
        return;
    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    const s_InterfaceList* current = findInterface(detail.stInterfaceListArry, m_curInterfaceInfo.interfaceId);
    const bool missingFrame = anyMissesFrame(results, current);
    // The vector object itself travels; the page reads it during delivery.
    sendEvent(kpf::wireInt(msg::ThumbCheckResults), sizeof results, &results);
    if (missingFrame)
        EDIDVM_WARNING() << "check array not find cur frame";
}

void OutputEDIDViewModel::setDetailTimingCheckResp(s_TimigCheckResultArry results)
{
    if (results.empty())
        return;
    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    const std::int32_t currentId = m_curInterfaceInfo.interfaceId;
    const s_InterfaceList* current = findInterface(detail.stInterfaceListArry, currentId);
    results.erase(
        std::remove_if(results.begin(), results.end(),
                       [currentId](const s_TimigCheckResult& result) { return result.interfaceId != currentId; }),
        results.end());
    const bool forward = forwardsDetailResults(current);
    if (results.empty()) {
        if (forward)
            sendEvent(kpf::wireInt(msg::DetailCheckResults), sizeof results, &results);
        return;
    }
    const bool missingFrame = anyMissesFrame(results, current);
    if (forward)
        sendEvent(kpf::wireInt(msg::DetailCheckResults), sizeof results, &results);
    if (missingFrame)
        EDIDVM_WARNING() << "not find frame in check array";
}

std::vector<OutputEDIDViewModel::s_ThumbTimigCheck>
OutputEDIDViewModel::getSDIInterfaceCheckArray(const std::vector<s_ThumbTimigCheck>& /*checks*/)
{
    // Nothing to add in this system, but the interface list is fetched all
    // the same: other components see the query.
    getInterfaceDetail();
    return {};
}

std::vector<OutputEDIDViewModel::s_DetailTimigCheck>
OutputEDIDViewModel::getSDIInterfaceDetailCheckArray(const std::vector<s_DetailTimigCheck>& /*checks*/)
{
    getInterfaceDetail();
    return {};
}

std::vector<OutputEDIDViewModel::s_ThumbTimigCheck>
OutputEDIDViewModel::putTagNameTothumbCheckArry(s_ThumbTimigCheck check)
{
    std::vector<s_ThumbTimigCheck> expanded;
    for (const auto& row : LCD::Constants::g_mapThumbTagName.toStdMap()) {
        check.tagName = row.second;
        expanded.push_back(check);
    }
    return expanded;
}

std::vector<OutputEDIDViewModel::s_DetailTimigCheck>
OutputEDIDViewModel::putTagNameToDetailCheckArry(s_DetailTimigCheck check)
{
    std::vector<s_DetailTimigCheck> expanded;
    for (const auto& row : LCD::Constants::g_mapDetailTimingTagName.toStdMap()) {
        check.tagName = row.second;
        expanded.push_back(check);
    }
    return expanded;
}

kpf::IMessage* OutputEDIDViewModel::putInterfaceThumbTiming(const kpf::IMessage* msg)
{
    if (msg->size() != sizeOf<s_InterfaceThumbTiming>() || msg->data() == nullptr) {
        EDIDVM_WARNING() << "req does not matches.";
        return nullptr;
    }
    const auto* pstThumbTiming = payload<s_InterfaceThumbTiming>(msg);
    if (pstThumbTiming == nullptr) {
        EDIDVM_WARNING() << "The pstThumbTiming is null.";
        return nullptr;
    }
    s_InterfaceThumbTiming choice = *pstThumbTiming;
    choice.interfaceId = m_curInterfaceId.load();
    {
        std::lock_guard<std::mutex> lock(m_choiceMutex);
        m_interfaceTimingArry.assign(1, choice);
    }

    QList<s_ScreenDetailInfo> screens;
    if (!relatedConnUsedByScreen(choice, screens)) {
        setInterfaceThumingEdidToModel();
        return nullptr;
    }
    const s_ThumbTimingInfo& timing = choice.stThumbTiming;
    if (assessEachScreen(screens, timing.refresh, timing.width, timing.height))
        showConfirmation(ThumbConfirmationBoxId, screens);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::putInterfaceRefTiming(const kpf::IMessage* msg)
{
    if (msg->size() != sizeOf<s_InterfacePresetTiming>() || msg->data() == nullptr) {
        EDIDVM_WARNING() << "req does not matches.";
        return nullptr;
    }
    const auto* pstTimingDetail = payload<s_InterfacePresetTiming>(msg);
    if (pstTimingDetail == nullptr) {
        EDIDVM_WARNING() << "The pstTimingDetail is null.";
        return nullptr;
    }
    s_InterfacePresetTiming choice = *pstTimingDetail;
    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    {
        StateLock lock(*this);
        choice.interfaceId = m_curInterfaceInfo.interfaceId;
    }
    {
        std::lock_guard<std::mutex> lock(m_choiceMutex);
        m_interfaceRefTimingArry.assign(1, choice);
    }

    // The impact depends only on the id and the resolution.
    s_InterfaceThumbTiming asThumb;
    asThumb.interfaceId = choice.interfaceId;
    asThumb.stThumbTiming.width = choice.stTimingDetail.width;
    asThumb.stThumbTiming.height = choice.stTimingDetail.height;
    QList<s_ScreenDetailInfo> screens;
    if (!relatedConnUsedByScreen(asThumb, screens)) {
        setInterfaceDetailEdidToModel();
        return nullptr;
    }
    const s_TimingDetailInfo& timing = choice.stTimingDetail;
    if (assessEachScreen(screens, timing.refresh, timing.width, timing.height))
        showConfirmation(ReferenceConfirmationBoxId, screens);
    return nullptr;
}

bool OutputEDIDViewModel::assessEachScreen(const QList<s_ScreenDetailInfo>& screens, float refresh, std::int32_t width,
                                           std::int32_t height)
{
    for (const s_ScreenDetailInfo& screen : screens) {
        s_ScreenThumbTiming timing;
        timing.screenId = screen.screenId;
        timing.stThumbTiming.refresh = refresh;
        timing.stThumbTiming.width = width;
        timing.stThumbTiming.height = height;
        if (!setThumbTimingAssess(s_ScreenThumbTimingArry{timing})) {
            getCurinterfaceTiming(nullptr);
            return false;
        }
    }
    return true;
}

void OutputEDIDViewModel::showConfirmation(std::int32_t boxId, const QList<s_ScreenDetailInfo>& screens)
{
    QString names;
    for (int i = 0; i < screens.size(); ++i) {
        if (i > 0)
            names += QLatin1Char(' ');
        names += QObject::tr("screen %1").arg(screens.at(i).screenIndex + 1);
    }
    const QString text =
        QObject::tr("This action will change the resolutions of the following screens: %1, Do you want to continue?")
            .arg(names);

    s_MessageBoxRequest box;
    box.boxId = boxId;
    const QByteArray utf8 = fitText(text.toUtf8(), sizeof box.text);
    std::memcpy(box.text, utf8.constData(), static_cast<std::size_t>(utf8.size()));
    box.boxType = QuestionBoxType;
    sendEvent(kpf::wireInt(msg::Confirmation), sizeOf<s_MessageBoxRequest>(), &box);
}

kpf::IMessage* OutputEDIDViewModel::onPutInterfaceRefTiming(const kpf::IMessage* /*msg*/)
{
    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    StateLock lock(*this);
    const std::int32_t currentId = m_curInterfaceInfo.interfaceId;
    s_ThumbTimingInfo timing;
    {
        std::lock_guard<std::mutex> choiceLock(m_choiceMutex);
        const auto found = std::find_if(
            m_interfaceRefTimingArry.begin(), m_interfaceRefTimingArry.end(),
            [currentId](const s_InterfacePresetTiming& choice) { return choice.interfaceId == currentId; });
        if (found == m_interfaceRefTimingArry.end())
            return nullptr;
        timing.refresh = found->stTimingDetail.refresh;
        timing.width = found->stTimingDetail.width;
        timing.height = found->stTimingDetail.height;
    }
    sendEvent(kpf::wireInt(msg::CommittedThumb), sizeOf<s_ThumbTimingInfo>(), &timing);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::changeInterfaceTimimg(const kpf::IMessage* msg)
{
    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    StateLock lock(*this);
    if (msg->size() != sizeOf<std::vector<s_InterfacePresetTiming>>() || msg->data() == nullptr) {
        EDIDVM_WARNING() << "resp does not matches.";
        return nullptr;
    }
    const auto* timings = payload<std::vector<s_InterfacePresetTiming>>(msg);
    if (timings == nullptr)
        return nullptr;
    const std::int32_t currentId = m_curInterfaceInfo.interfaceId;
    const auto found = std::find_if(timings->begin(), timings->end(), [currentId](const s_InterfacePresetTiming& t) {
        return t.interfaceId == currentId;
    });
    if (found == timings->end()) {
        EDIDVM_WARNING() << qPrintable(QStringLiteral("could not find interfaceId(%1)'s timing info.").arg(currentId));
        return nullptr;
    }
    m_curInterfaceInfo.stTimingDetail = found->stTimingDetail;
    const s_TimingDetailInfo& detail = m_curInterfaceInfo.stTimingDetail;
    EDIDVM_WARNING() << "Receive change interface timimg info:" << currentId << ",width: " << detail.width
                     << ",height:" << detail.height << ",refresh:" << detail.refresh;
    sendEvent(kpf::wireInt(msg::ChangedDetail), sizeOf<s_TimingDetailInfo>(), &m_curInterfaceInfo.stTimingDetail);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::changeInterfaceThumbTimimg(const kpf::IMessage* msg)
{
    if (msg->size() != sizeOf<std::vector<s_InterfaceThumbTiming>>() || msg->data() == nullptr) {
        EDIDVM_WARNING() << "resp does not matches.";
        return nullptr;
    }
    const auto* timings = payload<std::vector<s_InterfaceThumbTiming>>(msg);
    if (timings == nullptr)
        return nullptr;
    if (reentered(EDIDVM_CONTEXT()))
        return nullptr;
    std::int32_t currentId = 0;
    {
        StateLock lock(*this);
        currentId = m_curInterfaceInfo.interfaceId;
    }
    const auto found = std::find_if(timings->begin(), timings->end(), [currentId](const s_InterfaceThumbTiming& t) {
        return t.interfaceId == currentId;
    });
    if (found == timings->end()) {
        EDIDVM_WARNING() << qPrintable(QStringLiteral("could not find interfaceId(%1)'s timing info.").arg(currentId));
        return nullptr;
    }
    s_InterfaceTimingNotice notice;
    notice.noticeWord0 = found->stThumbTiming.param6;
    notice.noticeWord1 = found->tailParam0;
    notice.noticeWord3 = found->stThumbTiming.param4;
    // Copied before the first send: the list is the sender's.
    const s_ThumbTimingInfo timing = found->stThumbTiming;
    sendEvent(kpf::wireInt(msg::TimingNotice), sizeOf<s_InterfaceTimingNotice>(), &notice);
    sendEvent(kpf::wireInt(msg::ChangedThumb), sizeOf<s_ThumbTimingInfo>(), &timing);
    return nullptr;
}

bool OutputEDIDViewModel::relatedConnUsedByScreen(s_InterfaceThumbTiming timing, QList<s_ScreenDetailInfo>& screens)
{
    const std::int32_t id = timing.interfaceId;
    // Looked up on every call, never kept.
    kpf::IHostApi* api = kpf::api::get().hostApi;
    auto* subcardService =
        api != nullptr ? static_cast<SubcardConfigManager*>(api->findService("subcardconfigmanager")) : nullptr;
    auto* deviceService =
        api != nullptr ? static_cast<DeviceConfigManager*>(api->findService("deviceconfigmanager")) : nullptr;
    if (subcardService == nullptr || deviceService == nullptr) {
        EDIDVM_WARNING() << "Not find the pSubcardCfgMgr or pDeviceCfgMgr";
        return false;
    }

    QueryInfo<s_ScreenDetail> screenQuery;
    screenQuery.filter = [this](std::map<std::string, std::string>& params) { return getScreenMap(params); };
    QueryInfo<s_ScreenDetail>* screenPointer = &screenQuery;
    sendCommand(kpf::wireInt(msg::Screens), sizeof screenPointer, &screenPointer, 0, nullptr);

    QueryInfo<s_InterfaceDetailInfo> interfaceQuery;
    QueryInfo<s_InterfaceDetailInfo>* interfacePointer = &interfaceQuery;
    sendCommand(kpf::wireInt(msg::InterfaceDetail), sizeof interfacePointer, &interfacePointer, 0, nullptr);

    QueryInfo<s_SubcardQuery> subcardQuery;
    subcardQuery.info.request = 1;
    QueryInfo<s_SubcardQuery>* subcardPointer = &subcardQuery;
    sendCommand(kpf::wireInt(msg::Subcards), sizeof subcardPointer, &subcardPointer, 0, nullptr);

    std::int32_t deviceParam = -1;
    sendCommand(kpf::wireInt(msg::DeviceParam), 0, nullptr, sizeof deviceParam, &deviceParam);

    const std::vector<s_InterfaceList>& interfaces = interfaceQuery.info.stInterfaceListArry;
    const auto target = std::find_if(interfaces.begin(), interfaces.end(), [&timing, id](const s_InterfaceList& entry) {
        return entry.interfaceId == id && (entry.stThumbTiming.width != timing.stThumbTiming.width ||
                                           entry.stThumbTiming.height != timing.stThumbTiming.height);
    });
    if (target == interfaces.end()) {
        EDIDVM_WARNING() << "Not find the interface: id:" << id;
        return false;
    }

    const std::int32_t subcardValue = deviceService->subcardOfSlot(target->slotId);
    const auto& subcards = subcardQuery.info.stSubcardInfoArry;
    const auto subcard = std::find_if(subcards.begin(), subcards.end(),
                                      [&target](const auto& entry) { return entry.slotId == target->slotId; });
    if (subcard == subcards.end()) {
        EDIDVM_WARNING() << "Not find the subcard: slotId:" << target->slotId;
        return false;
    }
    const auto connector =
        std::find_if(subcard->stConnectorArry.begin(), subcard->stConnectorArry.end(),
                     [&target](const auto& entry) { return entry.connectorId == target->connectorId; });
    if (connector == subcard->stConnectorArry.end())
        return false;

    const std::vector<int> related =
        subcardService->relatedConnectors(subcardValue, connector->connectorKey, deviceParam);
    for (const s_ScreenDetailInfo& screen : screenQuery.info.stScreenDetailInfoArry) {
        // Every output counts: a screen fed twice is listed twice.
        for (const auto& output : screen.stOutputDetailArry) {
            const s_InterfaceList* feeding = findInterface(interfaces, output.interfaceId);
            if (feeding == nullptr)
                continue;
            const bool tied = std::find(related.begin(), related.end(), feeding->connectorId) != related.end();
            if (tied && !feeding->stAuxiliaryInfo.usedByScreen.empty())
                screens.append(screen);
        }
    }
    return !screens.isEmpty();
}

bool OutputEDIDViewModel::setThumbTimingAssess(s_ScreenThumbTimingArry timings)
{
    QueryInfo<s_TimingAssessQuery> query;
    query.info.stScreenThumbTimingArry = std::move(timings);
    QueryInfo<s_TimingAssessQuery>* pointer = &query;
    std::uint8_t carriedOut = 0;
    sendCommand(kpf::wireInt(msg::Assess), sizeof pointer, &pointer, sizeof carriedOut, &carriedOut);
    if (carriedOut == 0) {
        EDIDVM_WARNING() << "Fail to assess interface timing.";
        return false;
    }
    for (const s_AssessResult& result : query.info.stAssessResultArry) {
        if (result.code != 0) {
            std::int32_t code = result.code;
            postEvent(kpf::wireInt(msg::AssessFailed), sizeof code, &code);
            return false;
        }
    }
    return true;
}

kpf::IMessage* OutputEDIDViewModel::getCurConnecterUsedByScreen(const kpf::IMessage* /*msg*/)
{
    QueryInfo<s_InterfaceDetailInfo> query;
    query.filter = [this](std::map<std::string, std::string>& params) { return getCurInterfaceMap(params); };
    QueryInfo<s_InterfaceDetailInfo>* pointer = &query;
    sendCommand(kpf::wireInt(msg::InterfaceDetail), sizeof pointer, &pointer, 0, nullptr);
    const auto& list = query.info.stInterfaceListArry;
    if (list.empty())
        return nullptr;
    const std::uint8_t used = list.front().stAuxiliaryInfo.usedByScreen.empty() ? 0 : 1;
    sendEvent(kpf::wireInt(msg::InUse), sizeof used, &used);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::setInterfaceEdidData(const kpf::IMessage* msg)
{
    const void* data = msg->size() == sizeOf<s_MessageBoxRequest>() ? msg->data() : nullptr;
    if (data == nullptr) {
        EDIDVM_WARNING() << "Msg does not matches.";
        return nullptr;
    }
    s_MessageBoxRequest answer;
    std::memcpy(&answer, data, sizeof answer);
    const bool known = answer.boxId == ThumbConfirmationBoxId || answer.boxId == ReferenceConfirmationBoxId;
    if (!known) {
        EDIDVM_WARNING() << "Msg type is not correct";
        return nullptr;
    }
    if (answer.result == 0)
        getCurinterfaceTiming(nullptr);
    else if (answer.boxId == ThumbConfirmationBoxId)
        setInterfaceThumingEdidToModel();
    else
        setInterfaceDetailEdidToModel();
    return nullptr;
}

void OutputEDIDViewModel::setInterfaceThumingEdidToModel()
{
    // The commit works on its own copy: the 24-byte payload of the write is
    // that vector, read by the receiver during the command.
    auto [sequence, choice] = startCommit(m_thumbCommits, m_interfaceTimingArry);
    if (choice.empty()) {
        EDIDVM_WARNING() << "m_interfaceTimingArry is empty";
        return;
    }
    // The current interface is read at each step that needs it, after the
    // sends before it: any of them may have made another one current.
    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    const std::int32_t currentId = m_curInterfaceId.load();
    const s_InterfaceList* current = findInterface(detail.stInterfaceListArry, currentId);
    if (current == nullptr) {
        EDIDVM_WARNING() << "Not find input source. interfaceid:" << currentId;
        return;
    }

    s_ThumbTimigCheck check;
    check.interfaceId = currentId;
    check.tagName = CommitCheckTag;
    check.stThumbTiming = choice.front().stThumbTiming;
    check.checkParam0 = current->checkParam0;
    check.checkParam1 = current->checkParam1;
    sendEvent(kpf::wireInt(msg::PreCheck), sizeOf<s_ThumbTimigCheck>(), &check);

    QueryInfo<s_TimigCheckQuery> query;
    query.info.stThumbCheckArry.push_back(check);
    QueryInfo<s_TimigCheckQuery>* pointer = &query;
    sendCommand(kpf::wireInt(msg::ThumbCheck), sizeof pointer, &pointer, 0, nullptr);
    const std::int32_t judgedId = m_curInterfaceId.load();
    for (const s_TimigCheckResult& result : query.info.stCheckResultArry) {
        if (result.interfaceId != judgedId)
            continue;
        // Whole hertz: 5994 allows 59 Hz but not 59.94. The frame rate is
        // that of the check made for this interface, if there is one.
        const float maxRefresh = static_cast<float>(result.maxFrameRate / 100);
        const bool tooFast = check.interfaceId == judgedId && maxRefresh < check.stThumbTiming.refresh;
        if (result.overBandwidth != 0 || result.bandwidthNeeded > result.bandwidthLimit || tooFast) {
            showBandWidthOverMessageBox();
            return;
        }
    }
    writeInTurn(m_thumbCommits, sequence, std::move(choice), EDIDVM_CONTEXT());
}

void OutputEDIDViewModel::writeChoice(std::vector<s_InterfaceThumbTiming>& choice)
{
    std::uint8_t answer = 0;
    sendCommand(kpf::wireInt(msg::WriteThumb), sizeof choice, &choice, sizeof answer, &answer);
    showWaitingDialog(false);
    if (answer != 0) {
        getCurinterfaceTiming(nullptr);
        return;
    }
    const std::int32_t shownId = m_curInterfaceId.load();
    const auto committed = std::find_if(choice.begin(), choice.end(), [shownId](const s_InterfaceThumbTiming& timing) {
        return timing.interfaceId == shownId;
    });
    if (committed != choice.end())
        sendEvent(kpf::wireInt(msg::CommittedThumb), sizeOf<s_ThumbTimingInfo>(), &committed->stThumbTiming);
}

void OutputEDIDViewModel::setInterfaceDetailEdidToModel()
{
    auto [sequence, choice] = startCommit(m_referenceCommits, m_interfaceRefTimingArry);
    if (choice.empty()) {
        EDIDVM_WARNING() << "m_interfaceRefTimingArry is empty";
        return;
    }
    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    const std::int32_t currentId = m_curInterfaceId.load();
    if (findInterface(detail.stInterfaceListArry, currentId) == nullptr) {
        EDIDVM_WARNING() << "Not find input source. interfaceid:" << currentId;
        return;
    }

    // The stored timing is not part of the query: the service judges the
    // interface as it stands.
    QueryInfo<s_TimigCheckQuery> query;
    QueryInfo<s_TimigCheckQuery>* pointer = &query;
    sendCommand(kpf::wireInt(msg::DetailCheck), sizeof pointer, &pointer, 0, nullptr);
    const std::int32_t judgedId = m_curInterfaceId.load();
    for (const s_TimigCheckResult& result : query.info.stCheckResultArry) {
        if (result.interfaceId == judgedId &&
            (result.overBandwidth != 0 || result.bandwidthNeeded > result.bandwidthLimit)) {
            showBandWidthOverMessageBox();
            return;
        }
    }
    writeInTurn(m_referenceCommits, sequence, std::move(choice), EDIDVM_CONTEXT());
}

void OutputEDIDViewModel::writeChoice(std::vector<s_InterfacePresetTiming>& choice)
{
    const std::int32_t writing = 1;
    sendEvent(kpf::wireInt(msg::WritingReference), sizeof writing, &writing);
    sendEvent(kpf::wireInt(msg::WriteReference), sizeof choice, &choice);
    showWaitingDialog(false);
}

} // namespace Model
