// SPDX-License-Identifier: MIT
#pragma once

// An in-process host for plug-in libraries: loads them with dlopen and drives
// them as the host framework does, and offers the services their components
// find by name. Tests and the simulator run the library on it, alone or
// beside other plug-ins, as a device's host runs several.

#include "framework/componentinfo.h"
#include "host/commanddispatcher.h"
#include "host/configservices.h"
#include "host/eventdispatcher.h"
#include "host/hostapi.h"
#include "host/hostobjects.h"
#include "host/interjector.h"
#include "host/messagecenter.h"
#include "host/recorder.h"
#include "host/subscriptions.h"
#include "host/variation.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kpf {
class IHostApi;
class IMessage;
class IMessageHandler;
} // namespace kpf

namespace edidvm {
namespace host {

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
    // API, pluginfo, create every listed component. Unloads whatever was
    // loaded first. false and error() on the first failure, with nothing
    // left loaded.
    bool load(const std::string& path);
    // The same for one more library beside those loaded; a failure unloads
    // only the new one.
    bool loadAlso(const std::string& path);

    // The same in steps, for callers that need to come between them; each
    // acts on the library opened last. open unloads everything first.
    // open: dlopen and both entry points present.
    bool open(const std::string& path);
    void callPluginit(kpf::IHostApi* api);
    // pluginfo, checked for a description with at least one component.
    bool readDescription();
    // creator, then getMessageHandler; null and error() on failure.
    kpf::IMessageHandler* createComponent(std::size_t index);

    // The first library's description and components' descriptions.
    const kpf::PluginInfo* pluginInfo() const { return pluginInfo(0); }
    std::vector<kpf::ComponentInfo*> componentInfos() const { return componentInfos(0); }
    // Those of the library loaded at index (load order); null or empty
    // when there is none.
    std::size_t libraries() const { return m_libraries.size(); }
    const kpf::PluginInfo* pluginInfo(std::size_t library) const;
    std::vector<kpf::ComponentInfo*> componentInfos(std::size_t library) const;
    const std::string& path(std::size_t library) const;
    // Every library's components, in the order they were created.
    std::vector<kpf::IMessageHandler*> components() const;

    // Delivers the start message; the component's subscriptions made meanwhile
    // are tied to it.
    void start(kpf::IMessageHandler* component);
    void startAll();

    // deletor for every created component, newest first, then dlclose of
    // every library, newest first.
    void unload();
    const std::string& error() const { return m_error; }
    // The first library's path, or the one being loaded.
    const std::string& path() const { return m_libraries.empty() ? m_loading : m_libraries.front().path; }

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
    Variation variation() const { return m_interjector.variation(); }
    // Delivered under NestedDeliveries during each own send of a component,
    // under MovingCurrent once each own command is answered; never from
    // within an interjection, so it cannot recurse.
    void setInterjection(Interjection interjection) { m_interjector.setInterjection(std::move(interjection)); }
    // How many sends have triggered the interjection since it was set.
    int interjections() const { return m_interjector.interjections(); }

    // The envelope a stand-in fills for a query command: the asker's own,
    // or under AnswerElsewhere one the host keeps (Interjector says how).
    template <typename Envelope>
    Envelope* answerEnvelope(const kpf::IMessage& command, bool elsewhere)
    {
        return m_interjector.answerEnvelope<Envelope>(command, elsewhere);
    }
    // Empty when every kept envelope is still as its stand-in left it;
    // otherwise says which one the asker changed.
    std::string keptEnvelopesChanged() const { return m_interjector.keptEnvelopesChanged(); }
    void dropKeptEnvelopes() { m_interjector.dropKeptEnvelopes(); }

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
    struct Library
    {
        std::string path;
        void* handle = nullptr;
        void (*pluginit)(kpf::IHostApi*) = nullptr;
        const kpf::PluginInfo* (*pluginfo)() = nullptr;
        const kpf::PluginInfo* info = nullptr;
    };
    struct Component
    {
        std::size_t library;
        kpf::ComponentInfo* info;
        void* object;
        kpf::IMessageHandler* handler;
    };

    void onSend(const HostMessage& sent, SendStage stage);

    bool openAlso(const std::string& path);
    bool startUp();
    bool fail(const std::string& what);
    // Unloads the library opened last, keeping the error that made it
    // necessary.
    bool failAndUnload(const std::string& what);
    bool unloadKeepingError();
    // Its components, newest first, then the library itself.
    void unloadLast();
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

    std::string m_loading; // the path being opened, for error()
    std::string m_error;
    std::vector<Library> m_libraries;
    std::vector<Component> m_components;

    Interjector m_interjector;
};

} // namespace host
} // namespace edidvm
