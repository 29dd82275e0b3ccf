#pragma once

// An in-process host for one plug-in library: loads it with dlopen and drives
// it as the host framework does, and offers the services its components find
// by name. Tests and the simulator run the library on it.

#include "framework/componentinfo.h"
#include "framework/wire.h"
#include "host/commanddispatcher.h"
#include "host/configservices.h"
#include "host/eventdispatcher.h"
#include "host/hostapi.h"
#include "host/hostobjects.h"
#include "host/messagecenter.h"
#include "host/recorder.h"
#include "host/sendhook.h"
#include "host/subscriptions.h"
#include "host/variation.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace edidvm {
namespace host {

// A message the host delivers into its components on its own.
struct Delivery
{
    int kind = kpf::MessageKindEvent;
    std::uint32_t number = 0;
    Bytes payload;
    std::optional<int> size; // the size reported; the payload's when empty
    bool nullData = false;
    // A record that owns texts or lists is delivered from this object
    // instead of the payload bytes.
    std::shared_ptr<const void> record;
};

// What the nested-deliveries and moving-current variations deliver.
struct Interjection
{
    std::vector<Delivery> deliveries;
    std::vector<std::uint32_t> during; // the sends that trigger it; empty: any
    int times = -1;                    // how many sends trigger it; -1: all
    // Sees each delivery just before it is made (a trace, say).
    std::function<void(const Delivery&)> observer;
};

class Host
{
public:
    // The API object serves "kpf_default_messagecenter", "commanddispatcher",
    // "eventdispatcher", "deviceconfigmanager" and "subcardconfigmanager".
    Host();
    ~Host(); // unloads

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // The whole start-up in the framework's order: open, pluginit with our
    // API, pluginfo, create every listed component. false and error() on
    // the first failure, with nothing left loaded.
    bool load(const std::string& path);

    // The same in steps, for callers that need to come between them.
    // open: dlopen and both entry points present.
    bool open(const std::string& path);
    void callPluginit(kpf::IHostApi* api);
    // pluginfo, checked for a description with at least one component.
    bool readDescription();
    const kpf::PluginInfo* pluginInfo() const { return m_info; }
    std::vector<kpf::ComponentInfo*> componentInfos() const;
    // creator, then getMessageHandler; null and error() on failure.
    kpf::IMessageHandler* createComponent(std::size_t index);
    std::vector<kpf::IMessageHandler*> components() const;

    // Delivers the start message; the component's subscriptions made meanwhile
    // are tied to it.
    void start(kpf::IMessageHandler* component);
    void startAll();

    // deletor for every created component, newest first, then dlclose.
    void unload();
    const std::string& error() const { return m_error; }
    const std::string& path() const { return m_path; }

    // As another component would: through the dispatchers' routing, not
    // recorded as a component's send.
    std::optional<Bytes> command(std::uint32_t number, const void* data, int size);
    void event(std::uint32_t number, const void* data, int size);
    // Straight to a handler, with any kind and number; returns its reply.
    std::optional<Bytes> deliver(kpf::IMessageHandler* component, int kind, std::uint32_t number, int size,
                                 const void* data);
    int pump() { return m_events.pump(); }
    // Off: the recorder and the release log keep nothing, for long runs.
    void setTracing(bool enabled)
    {
        m_recorder.setEnabled(enabled);
        m_commands.setReleaseLog(enabled);
    }

    // Takes effect for messages created from now on.
    void setVariation(Variation variation);
    Variation variation() const { return m_variation.load(); }
    // Delivered under NestedDeliveries during each own send of a component,
    // under MovingCurrent once each own command is answered; never from
    // within an interjection, so it cannot recurse.
    void setInterjection(Interjection interjection);
    // How many sends have triggered the interjection since it was set.
    int interjections() const { return m_interjectionsMade.load(); }

    // The envelope a stand-in fills for a query command. Under
    // AnswerElsewhere, when the stand-in asks for it, that is a copy of the
    // asker's envelope that the host keeps, and the asker's pointer variable
    // (which the lent payload is) is pointed at it. Otherwise the asker's own.
    template <typename Envelope>
    Envelope* answerEnvelope(const kpf::IMessage& command, bool elsewhere);
    // Empty when every kept envelope is still as its stand-in left it;
    // otherwise says which one the asker changed.
    std::string keptEnvelopesChanged() const;
    void dropKeptEnvelopes();

    HostApi& api() { return m_api; }
    CommandDispatcher& commands() { return m_commands; }
    EventDispatcher& events() { return m_events; }
    MessageCenter& messageCenter() { return m_center; }
    Recorder& recorder() { return m_recorder; }
    ObjectStore& store() { return m_store; }
    Subscriptions& subscriptions() { return m_subscriptions; }
    HostDeviceConfigManager& deviceConfig() { return m_deviceConfig; }
    HostSubcardConfigManager& subcardConfig() { return m_subcardConfig; }

private:
    struct Component
    {
        kpf::ComponentInfo* info;
        void* object;
        kpf::IMessageHandler* handler;
    };

    struct KeptEnvelope
    {
        std::shared_ptr<void> object;
        std::size_t size = 0;
        std::uint32_t number = 0;
        Bytes snapshot; // its bytes once the stand-in had answered
    };

    PayloadMode deliveryMode() const;
    void onSend(const HostMessage& sent, SendStage stage);
    void interject(const HostMessage& sent);
    void keep(std::shared_ptr<void> object, std::size_t size, std::uint32_t number);
    void sealKeptEnvelopes();

    bool fail(const std::string& what);
    // Unloads, keeping the error that made it necessary.
    bool failAndUnload(const std::string& what);
    bool unloadKeepingError();
    std::optional<Bytes> takeReply(const kpf::IMessage* reply);

    ObjectStore m_store;
    Recorder m_recorder;
    Subscriptions m_subscriptions;
    MessageCenter m_center;
    CommandDispatcher m_commands;
    EventDispatcher m_events;
    HostDeviceConfigManager m_deviceConfig;
    HostSubcardConfigManager m_subcardConfig;
    HostApi m_api;

    std::string m_path;
    std::string m_error;
    void* m_library = nullptr;
    void (*m_pluginit)(kpf::IHostApi*) = nullptr;
    const kpf::PluginInfo* (*m_pluginfo)() = nullptr;
    const kpf::PluginInfo* m_info = nullptr;
    std::vector<Component> m_components;

    std::atomic<Variation> m_variation{Variation::Default};
    mutable std::mutex m_variationMutex;
    Interjection m_interjection;
    int m_interjectionsLeft = -1;
    std::atomic<int> m_interjectionsMade{0};
    std::vector<KeptEnvelope> m_kept;
};

template <typename Envelope>
Envelope* Host::answerEnvelope(const kpf::IMessage& command, bool elsewhere)
{
    const void* data = command.size() == static_cast<int>(sizeof(Envelope*)) ? command.data() : nullptr;
    if (data == nullptr)
        return nullptr;
    Envelope* asker = nullptr;
    std::memcpy(&asker, data, sizeof asker);
    if (!elsewhere || asker == nullptr || variation() != Variation::AnswerElsewhere)
        return asker;
    // The asker's inputs (and its filter) go along, as a responder that
    // builds its own answer from the request would take them.
    auto kept = std::make_shared<Envelope>(*asker);
    Envelope* answer = kept.get();
    std::memcpy(const_cast<void*>(data), &answer, sizeof answer);
    keep(std::move(kept), sizeof(Envelope), static_cast<std::uint32_t>(command.number()));
    return answer;
}

} // namespace host
} // namespace edidvm
