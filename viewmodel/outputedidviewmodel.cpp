#include "viewmodel/outputedidviewmodel.h"

#include "framework/api.h"
#include "framework/idispatchers.h"
#include "framework/ihostapi.h"
#include "framework/imessage.h"
#include "framework/wire.h"
#include "message/log.h"
#include "protomodel/constants.h"
#include "protomodel/queryinfo.h"

#include <QDebug>
#include <QObject>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Model {

using namespace LCD::ProtoModel::Interface;
using LCD::GlobalMessageHander::QueryInfo;

namespace {

// Messages handled.
constexpr std::uint32_t EvSetCurrentInterface = 0xFC021009u;
constexpr std::uint32_t EvSDIInterface = 0xFC031007u;
constexpr std::uint32_t CmdInterfaceType = 0xFC051016u;
constexpr std::uint32_t EvGetCurrentTiming = 0xFC00060Au;
constexpr std::uint32_t EvGetThumbTiming = 0xFC00060Bu;
constexpr std::uint32_t EvThumbCheck = 0xFC000605u;
constexpr std::uint32_t EvDetailCheck = 0xFC000606u;

// Messages sent.
constexpr std::uint32_t CmdInterfaceDetail = 0xFC050111u;
constexpr std::uint32_t CmdSelectedInterface = 0xFC08100Au;
constexpr std::uint32_t CmdAdoptedInterface = 0xFC001009u;
constexpr std::uint32_t CmdThumbCheck = 0xFC051000u;
constexpr std::uint32_t CmdDetailCheck = 0xFC051001u;
constexpr std::uint32_t EvDetailTiming = 0xFC020607u;
constexpr std::uint32_t EvThumbTiming = 0xFC020608u;
constexpr std::uint32_t EvTimingNotice = 0xFC030606u;
constexpr std::uint32_t EvThumbCheckResults = 0xFC020603u;
constexpr std::uint32_t EvDetailCheckResults = 0xFC020604u;
constexpr std::uint32_t EvShowWaiting = 0xFC0C0C0Fu;
constexpr std::uint32_t EvHideWaiting = 0xFC0C0C10u;
constexpr std::uint32_t EvMessageBox = 0xFC0C0C12u;

constexpr int BandwidthBoxId = 14;
constexpr int InformationBoxType = 4;

const char ReentryWarning[] = "handler re-entered on a thread that holds the view model's lock; ignored";

template <typename T>
int sizeOf()
{
    return static_cast<int>(sizeof(T));
}

template <typename Record>
const Record* payload(const kpf::IMessage* msg)
{
    return static_cast<const Record*>(msg->data());
}

// The envelope address that an 8-byte payload carries.
template <typename Envelope>
Envelope* envelopeIn(const kpf::IMessage* msg)
{
    Envelope* envelope = nullptr;
    std::memcpy(&envelope, msg->data(), sizeof envelope);
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

bool forwardsDetailResults(const s_InterfaceList* current)
{
    return current != nullptr &&
           (current->stAuxiliaryInfo.interfaceType == 4 || current->stAuxiliaryInfo.interfaceType == 8);
}

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

OutputEDIDViewModel::OutputEDIDViewModel()
{
    m_name = "outputedidviewmodel";
}

OutputEDIDViewModel::~OutputEDIDViewModel() = default;

int OutputEDIDViewModel::onInit()
{
    using VM = OutputEDIDViewModel;
    registerEvent(kpf::wireInt(EvSetCurrentInterface), bind<&VM::setCurrentInterfaceInfo>());
    registerEvent(kpf::wireInt(EvGetCurrentTiming), bind<&VM::getCurinterfaceTiming>());
    registerEvent(kpf::wireInt(EvGetThumbTiming), bind<&VM::getInterfaceThumbfTiming>());
    registerEvent(kpf::wireInt(EvThumbCheck), bind<&VM::setThumbTimingCheck>());
    registerEvent(kpf::wireInt(EvDetailCheck), bind<&VM::setDetailTimingCheck>());
    registerEvent(kpf::wireInt(EvSDIInterface), bind<&VM::curSDIInterfaceInfo>());
    registerCommand(kpf::wireInt(CmdInterfaceType), bind<&VM::curInterfaceType>());
    return 0;
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
        sendEvent(kpf::wireInt(EvHideWaiting), 0, nullptr);
        return;
    }
    const QByteArray text = QObject::tr("Loading...").toUtf8();
    // constData() is NUL-terminated; the NUL travels too.
    sendEvent(kpf::wireInt(EvShowWaiting), text.size() + 1, text.constData());
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
    sendEvent(kpf::wireInt(EvMessageBox), sizeOf<s_MessageBoxRequest>(), &box);
}

OutputEDIDViewModel::s_InterfaceDetailInfo OutputEDIDViewModel::getInterfaceDetail()
{
    QueryInfo<s_InterfaceDetailInfo> query;
    QueryInfo<s_InterfaceDetailInfo>* pointer = &query;
    sendCommand(kpf::wireInt(CmdInterfaceDetail), sizeof pointer, &pointer, 0, nullptr);
    if (pointer == nullptr) {
        EDIDVM_WARNING() << "get interface detail fail.";
        return s_InterfaceDetailInfo();
    }
    s_InterfaceDetailInfo detail;
    detail.detailWords0 = pointer->info.detailWords0;
    // The envelope dies with this function: take its list instead of copying.
    detail.stInterfaceListArry = std::move(pointer->info.stInterfaceListArry);
    return detail;
}

bool OutputEDIDViewModel::getCurInterfaceMap(std::map<std::string, std::string>& params)
{
    params.clear();
    params["interfaceId"] = std::to_string(m_curInterfaceInfo.interfaceId);
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
    if (heldByThisThread()) {
        EDIDVM_WARNING() << ReentryWarning;
        return nullptr;
    }
    if (msg->data() == nullptr || msg->size() != sizeOf<s_InterfaceList>()) {
        EDIDVM_WARNING() << "set current interface info error";
        return nullptr;
    }
    StateLock lock(*this);
    m_curInterfaceInfo = *payload<s_InterfaceList>(msg);
    s_TimingDetailInfo detail = m_curInterfaceInfo.stTimingDetail;
    sendEvent(kpf::wireInt(EvDetailTiming), sizeOf<s_TimingDetailInfo>(), &detail);
    sendEvent(kpf::wireInt(EvThumbTiming), sizeOf<s_ThumbTimingInfo>(), &m_curInterfaceInfo.stThumbTiming);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::curSDIInterfaceInfo(const kpf::IMessage* msg)
{
    if (heldByThisThread()) {
        EDIDVM_WARNING() << ReentryWarning;
        return nullptr;
    }
    if (msg->size() != sizeOf<s_SDIInterfaceInfo>() || msg->data() == nullptr) {
        EDIDVM_WARNING() << "command does not correct.";
        return nullptr;
    }
    StateLock lock(*this);
    std::memcpy(&m_curSDIInterfaceInfo, msg->data(), sizeof m_curSDIInterfaceInfo);
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
    return center->createMessage(msg->number(), m_name.c_str(), sizeof(std::int32_t),
                                 &m_curInterfaceInfo.stAuxiliaryInfo.interfaceType, 0);
}

kpf::IMessage* OutputEDIDViewModel::getCurinterfaceTiming(const kpf::IMessage* /*msg*/)
{
    if (heldByThisThread()) {
        EDIDVM_WARNING() << ReentryWarning;
        return nullptr;
    }
    s_InterfaceDetailInfo detail = getInterfaceDetail();
    std::vector<s_InterfaceList>& list = detail.stInterfaceListArry;
    if (list.empty())
        return nullptr;

    StateLock lock(*this);
    const s_InterfaceList* found = findInterface(list, m_curInterfaceInfo.interfaceId);
    m_curInterfaceInfo = found != nullptr ? *found : list.front();
    sendEvent(kpf::wireInt(EvDetailTiming), sizeOf<s_TimingDetailInfo>(), &m_curInterfaceInfo.stTimingDetail);
    sendEvent(kpf::wireInt(EvThumbTiming), sizeOf<s_ThumbTimingInfo>(), &m_curInterfaceInfo.stThumbTiming);
    const s_InterfaceTimingNotice notice = noticeFor(m_curInterfaceInfo);
    sendEvent(kpf::wireInt(EvTimingNotice), sizeOf<s_InterfaceTimingNotice>(), &notice);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::getInterfaceThumbfTiming(const kpf::IMessage* /*msg*/)
{
    if (heldByThisThread()) {
        EDIDVM_WARNING() << ReentryWarning;
        return nullptr;
    }
    s_InterfaceDetailInfo detail = getInterfaceDetail();
    std::vector<s_InterfaceList>& list = detail.stInterfaceListArry;
    if (list.empty()) {
        EDIDVM_WARNING() << "inferface info error";
        return nullptr;
    }
    std::sort(list.begin(), list.end(),
              [](const s_InterfaceList& a, const s_InterfaceList& b) { return a.connectorId < b.connectorId; });

    std::int32_t selected = -1;
    sendCommand(kpf::wireInt(CmdSelectedInterface), 0, nullptr, sizeof selected, &selected);

    const s_InterfaceList* chosen = findInterface(list, selected);
    if (chosen == nullptr) {
        const auto usable = std::find_if(list.begin(), list.end(), [](const s_InterfaceList& entry) {
            return entry.stAuxiliaryInfo.interfaceType == 4 && entry.stAuxiliaryInfo.interfaceStatus != 2;
        });
        chosen = usable != list.end() ? &*usable : &list.front();
    }
    {
        StateLock lock(*this);
        m_curInterfaceInfo = *chosen;
    }

    // Built from the local entry, which is what was just adopted, so the
    // sends below need no lock.
    s_ThumbTimingInfo thumb = chosen->stThumbTiming;
    thumb.param6 = chosen->ifWord92;
    const s_InterfaceTimingNotice notice = noticeFor(*chosen);
    std::int32_t adopted = chosen->interfaceId;
    sendCommand(kpf::wireInt(CmdAdoptedInterface), sizeof adopted, &adopted, 0, nullptr);
    sendEvent(kpf::wireInt(EvThumbTiming), sizeOf<s_ThumbTimingInfo>(), &thumb);
    sendEvent(kpf::wireInt(EvTimingNotice), sizeOf<s_InterfaceTimingNotice>(), &notice);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::setThumbTimingCheck(const kpf::IMessage* msg)
{
    if (heldByThisThread()) {
        EDIDVM_WARNING() << ReentryWarning;
        return nullptr;
    }
    if (msg->size() != sizeof(void*) || msg->data() == nullptr) {
        EDIDVM_WARNING() << "msg data is null.";
        return nullptr;
    }
    const auto* request = envelopeIn<const QueryInfo<s_TimigCheckQuery>>(msg);
    if (request == nullptr) {
        EDIDVM_WARNING() << "msg data is null.";
        return nullptr;
    }
    std::vector<s_ThumbTimigCheck> checks = request->info.stThumbCheckArry;
    if (checks.empty()) {
        EDIDVM_WARNING() << "stThumbCheckArry is empty.";
        return nullptr;
    }
    // Only the first check decides.
    if (isZeroTiming(checks.front().stThumbTiming)) {
        EDIDVM_WARNING() << "timing is 0.";
        return nullptr;
    }

    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    StateLock lock(*this);
    const s_InterfaceList* current = findInterface(detail.stInterfaceListArry, m_curInterfaceInfo.interfaceId);
    if (current == nullptr) {
        EDIDVM_WARNING() << "Not find interface source. interfaceid:" << m_curInterfaceInfo.interfaceId;
        return nullptr;
    }
    for (s_ThumbTimigCheck& check : checks) {
        check.interfaceId = m_curInterfaceInfo.interfaceId;
        check.checkParam0 = current->checkParam0;
        check.checkParam1 = current->checkParam1;
    }
    std::vector<s_ThumbTimigCheck> extra = getSDIInterfaceCheckArray(checks);
    checks.insert(checks.end(), extra.begin(), extra.end());

    QueryInfo<s_TimigCheckQuery> query;
    query.info.stThumbCheckArry = std::move(checks);
    QueryInfo<s_TimigCheckQuery>* pointer = &query;
    sendCommand(kpf::wireInt(CmdThumbCheck), sizeof pointer, &pointer, 0, nullptr);
    setThumbTimingCheckResp(query.info.stCheckResultArry);
    return nullptr;
}

kpf::IMessage* OutputEDIDViewModel::setDetailTimingCheck(const kpf::IMessage* msg)
{
    if (heldByThisThread()) {
        EDIDVM_WARNING() << ReentryWarning;
        return nullptr;
    }
    if (msg->size() != sizeof(void*) || msg->data() == nullptr) {
        EDIDVM_WARNING() << "msg data is null.";
        return nullptr;
    }
    const auto* request = envelopeIn<const QueryInfo<s_TimigCheckQuery>>(msg);
    if (request == nullptr) {
        EDIDVM_WARNING() << "msg data is null.";
        return nullptr;
    }
    std::vector<s_DetailTimigCheck> checks = request->info.stDetailCheckArry;
    if (checks.empty()) {
        EDIDVM_WARNING() << "stDetailCheckArry is empty.";
        return nullptr;
    }

    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    StateLock lock(*this);
    const s_InterfaceList* current = findInterface(detail.stInterfaceListArry, m_curInterfaceInfo.interfaceId);
    if (current == nullptr) {
        EDIDVM_WARNING() << "Not find input source. interfaceid:" << m_curInterfaceInfo.interfaceId;
        return nullptr;
    }
    for (s_DetailTimigCheck& check : checks) {
        check.interfaceId = m_curInterfaceInfo.interfaceId;
        check.checkParam0 = current->checkParam0;
        check.checkParam1 = current->checkParam1;
    }
    std::vector<s_DetailTimigCheck> extra = getSDIInterfaceDetailCheckArray(checks);
    checks.insert(checks.end(), extra.begin(), extra.end());

    QueryInfo<s_TimigCheckQuery> query;
    query.info.stDetailCheckArry = std::move(checks);
    QueryInfo<s_TimigCheckQuery>* pointer = &query;
    sendCommand(kpf::wireInt(CmdDetailCheck), sizeof pointer, &pointer, 0, nullptr);
    setDetailTimingCheckResp(query.info.stCheckResultArry);
    return nullptr;
}

void OutputEDIDViewModel::setThumbTimingCheckResp(s_TimigCheckResultArry results)
{
    if (results.empty())
        return;
    const s_InterfaceDetailInfo detail = getInterfaceDetail();
    const s_InterfaceList* current = findInterface(detail.stInterfaceListArry, m_curInterfaceInfo.interfaceId);
    // Without the current interface there is no frame rate to compare.
    bool missingFrame = false;
    if (current != nullptr) {
        const float refresh = current->stThumbTiming.refresh;
        missingFrame = std::any_of(results.begin(), results.end(), [refresh](const s_TimigCheckResult& result) {
            return !holdsFrame(result, refresh);
        });
    }
    // The vector object itself travels; the page reads it during delivery.
    sendEvent(kpf::wireInt(EvThumbCheckResults), sizeof results, &results);
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
            sendEvent(kpf::wireInt(EvDetailCheckResults), sizeof results, &results);
        return;
    }
    bool missingFrame = false;
    if (current != nullptr) {
        const float refresh = current->stThumbTiming.refresh;
        missingFrame = std::any_of(results.begin(), results.end(), [refresh](const s_TimigCheckResult& result) {
            return !holdsFrame(result, refresh);
        });
    }
    if (forward)
        sendEvent(kpf::wireInt(EvDetailCheckResults), sizeof results, &results);
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

} // namespace Model
