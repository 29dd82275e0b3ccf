// SPDX-License-Identifier: MIT
#pragma once

#include "message/messagehandler.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/screenrecords.h"
#include "viewmodel/viewmodelrecords.h"

#include <QByteArray>
#include <QList>
#include <QMessageLogContext>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Model {

// View model of the output-interface timing page. Not a QObject: the
// component must be one chain of bases at one address for the host.
//
// Handlers run on the delivering thread. Those that take m_mutex hold it
// across synchronous sends, so a handler reached again on the same thread
// from such a send is refused with a warning instead of deadlocking.
class OutputEDIDViewModel : public LCD::Message::MessageHandler
{
public:
    using s_InterfaceList = LCD::ProtoModel::Interface::s_InterfaceList;
    using s_InterfaceDetailInfo = LCD::ProtoModel::Interface::s_InterfaceDetailInfo;
    using s_ThumbTimigCheck = LCD::ProtoModel::Interface::s_ThumbTimigCheck;
    using s_DetailTimigCheck = LCD::ProtoModel::Interface::s_DetailTimigCheck;
    using s_TimigCheckResultArry = LCD::ProtoModel::Interface::s_TimigCheckResultArry;
    using s_InterfaceThumbTiming = LCD::ProtoModel::Interface::s_InterfaceThumbTiming;
    using s_InterfacePresetTiming = LCD::ProtoModel::Interface::s_InterfacePresetTiming;
    using s_ScreenDetailInfo = LCD::ProtoModel::Screen::s_ScreenDetailInfo;
    using s_ScreenThumbTimingArry = LCD::ProtoModel::Screen::s_ScreenThumbTimingArry;

    OutputEDIDViewModel();
    ~OutputEDIDViewModel() override;

    int onInit() override;

    // User-interface requests, as events to the page.
    void showWaitingDialog(bool show);
    void showBandWidthOverMessageBox();

    // The current interface.
    kpf::IMessage* setCurrentInterfaceInfo(const kpf::IMessage* msg);
    kpf::IMessage* curSDIInterfaceInfo(const kpf::IMessage* msg);
    kpf::IMessage* curInterfaceType(const kpf::IMessage* msg);

    // Timing retrieval. getCurinterfaceTiming(nullptr) refreshes the page.
    kpf::IMessage* getCurinterfaceTiming(const kpf::IMessage* msg);
    kpf::IMessage* getInterfaceThumbfTiming(const kpf::IMessage* msg);

    // Timing checks.
    kpf::IMessage* setThumbTimingCheck(const kpf::IMessage* msg);
    kpf::IMessage* setDetailTimingCheck(const kpf::IMessage* msg);
    void setThumbTimingCheckResp(s_TimigCheckResultArry results);
    void setDetailTimingCheckResp(s_TimigCheckResultArry results);
    std::vector<s_ThumbTimigCheck> getSDIInterfaceCheckArray(const std::vector<s_ThumbTimigCheck>& checks);
    std::vector<s_DetailTimigCheck> getSDIInterfaceDetailCheckArray(const std::vector<s_DetailTimigCheck>& checks);
    std::vector<s_ThumbTimigCheck> putTagNameTothumbCheckArry(s_ThumbTimigCheck check);
    std::vector<s_DetailTimigCheck> putTagNameToDetailCheckArry(s_DetailTimigCheck check);

    // Timing apply: the page's choice, stored, assessed and confirmed.
    kpf::IMessage* putInterfaceThumbTiming(const kpf::IMessage* msg);
    kpf::IMessage* putInterfaceRefTiming(const kpf::IMessage* msg);
    kpf::IMessage* onPutInterfaceRefTiming(const kpf::IMessage* msg);
    kpf::IMessage* changeInterfaceTimimg(const kpf::IMessage* msg);
    kpf::IMessage* changeInterfaceThumbTimimg(const kpf::IMessage* msg);

    // Screen impact and assessment.
    bool relatedConnUsedByScreen(s_InterfaceThumbTiming timing, QList<s_ScreenDetailInfo>& screens);
    bool setThumbTimingAssess(s_ScreenThumbTimingArry timings);
    kpf::IMessage* getCurConnecterUsedByScreen(const kpf::IMessage* msg);

    // The commit: the user's answer, and the two stored choices handed on
    // for writing after the bandwidth pre-check.
    kpf::IMessage* setInterfaceEdidData(const kpf::IMessage* msg);
    void setInterfaceThumingEdidToModel();
    void setInterfaceDetailEdidToModel();

    // A fresh list of every output interface; empty when the query fails.
    s_InterfaceDetailInfo getInterfaceDetail();
    // Query filters: each empties the map and puts its one key in.
    bool getCurInterfaceMap(std::map<std::string, std::string>& params);
    bool getScreenMap(std::map<std::string, std::string>& params);
    // The entry that is the current SDI interface, or a default record.
    s_InterfaceList getSDIInterfaceDetail(const s_InterfaceDetailInfo& info);

    // Text for a 256-byte field: at most 255 bytes, cut on a UTF-8 character
    // boundary, so the field always keeps a terminating NUL.
    static QByteArray fitText(const QByteArray& utf8, int fieldSize);

protected:
    // m_mutex with a record of the thread that holds it.
    class StateLock
    {
    public:
        explicit StateLock(OutputEDIDViewModel& model);
        ~StateLock();
        StateLock(const StateLock&) = delete;
        StateLock& operator=(const StateLock&) = delete;

    private:
        OutputEDIDViewModel& m_model;
    };

    // A plain mutex would deadlock on a second lock from its holder.
    bool heldByThisThread() const { return m_mutexOwner.load() == std::this_thread::get_id(); }
    // True when this thread holds m_mutex: the handler must return without
    // locking. The warning is logged in the handler's context
    // (EDIDVM_CONTEXT()), so it names the handler, not this helper.
    bool reentered(const QMessageLogContext& handler) const;

    // The thumb and the detail check, one body: Check chooses the list, the
    // command and the response. Every warning is logged in the handler's
    // context, so each names its own handler.
    template <typename Check>
    kpf::IMessage* checkTimings(const kpf::IMessage* msg, const QMessageLogContext& handler);

    // Replaces the current interface; the caller holds m_mutex.
    void adoptInterface(const s_InterfaceList& interface);
    // The confirmation box for the affected screens, box 35 or 36.
    void showConfirmation(std::int32_t boxId, const QList<s_ScreenDetailInfo>& screens);
    // Assesses the timing for each screen in turn, stopping at the first
    // refusal.
    bool assessEachScreen(const QList<s_ScreenDetailInfo>& screens, float refresh, std::int32_t width,
                          std::int32_t height);

    // Commits of one kind, thumb or reference, in the order they started.
    // Guarded by m_choiceMutex.
    template <typename Timing>
    struct CommitQueue
    {
        std::uint64_t started = 0; // sequence number of the latest commit started
        std::uint64_t written = 0; // of the latest commit written; 0: none yet
        bool writing = false;      // a thread is writing the waiting copies
        // Copies whose pre-check passed, by sequence number, not yet written.
        std::map<std::uint64_t, std::vector<Timing>> waiting;
    };
    // A commit's place in start order, and its copy of the stored choice.
    template <typename Timing>
    struct Commit
    {
        std::uint64_t sequence = 0;
        std::vector<Timing> choice;
    };
    // Both taken together, so that start order is the order of the choices
    // copied.
    template <typename Timing>
    Commit<Timing> startCommit(CommitQueue<Timing>& commits, const std::vector<Timing>& stored);
    // Writes the copy unless a commit of the same kind that started later
    // has written, which it checks before it shows the waiting indicator and
    // again before it queues the copy; then it logs a warning in the
    // commit's context and sends nothing more. Queued copies are written
    // oldest first by one thread at a time: this one if no write of the kind
    // is under way, otherwise the thread writing (this very thread, when
    // nested in its own write). No thread waits for another.
    template <typename Timing>
    void writeInTurn(CommitQueue<Timing>& commits, std::uint64_t sequence, std::vector<Timing> choice,
                     const QMessageLogContext& commit);
    // One write, the indicator hidden again, and what follows the write.
    void writeChoice(std::vector<s_InterfaceThumbTiming>& choice);
    void writeChoice(std::vector<s_InterfacePresetTiming>& choice);

    template <kpf::IMessage* (OutputEDIDViewModel::*Handler)(const kpf::IMessage*)>
    LCD::Message::MessageHandlerFunc bind()
    {
        // Capturing only this keeps the function object allocation-free.
        return [this](const kpf::IMessage* msg) -> const kpf::IMessage* { return (this->*Handler)(msg); };
    }

    // Guarded by m_mutex.
    s_InterfaceList m_curInterfaceInfo;
    // Guarded by m_choiceMutex, which is never held across a send.
    std::vector<s_InterfaceThumbTiming> m_interfaceTimingArry;
    std::vector<s_InterfacePresetTiming> m_interfaceRefTimingArry;
    // Guarded by m_mutex.
    s_SDIInterfaceInfo m_curSDIInterfaceInfo;
    std::mutex m_mutex;
    std::atomic<std::thread::id> m_mutexOwner{};
    // Taken inside m_mutex where both are needed, never the other way round.
    mutable std::mutex m_choiceMutex;
    CommitQueue<s_InterfaceThumbTiming> m_thumbCommits;
    CommitQueue<s_InterfacePresetTiming> m_referenceCommits;
    // Copies of fields of m_curInterfaceInfo for the readers that take no
    // lock; written together with it.
    std::atomic<std::int32_t> m_curInterfaceId{0};
    std::atomic<std::int32_t> m_curInterfaceType{0};
};

} // namespace Model
