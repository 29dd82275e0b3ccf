// SPDX-License-Identifier: MIT
#include "host/host.h"

#include "framework/imessagehandler.h"
#include "framework/wire.h"

#include <dlfcn.h>

#include <memory>

namespace edidvm {
namespace host {

namespace {
const char HostSender[] = "host";

// The entry points' types, as the plug-in defines them.
using PluginitFn = void (*)(kpf::IHostApi*);
using PluginfoFn = const kpf::PluginInfo* (*)();
} // namespace

Host::Host()
    : m_center(m_store), m_commands(m_store, m_recorder, m_subscriptions),
      m_events(m_store, m_recorder, m_subscriptions)
{
    m_api.setService("kpf_default_messagecenter", static_cast<kpf::IMessageCenter*>(&m_center));
    m_api.setService("commanddispatcher", static_cast<kpf::ICommandDispatcher*>(&m_commands));
    m_api.setService("eventdispatcher", static_cast<kpf::IEventDispatcher*>(&m_events));
    m_api.setService("deviceconfigmanager", static_cast<DeviceConfigManager*>(&m_deviceConfig));
    m_api.setService("subcardconfigmanager", static_cast<SubcardConfigManager*>(&m_subcardConfig));
    const SendHook hook = [this](const HostMessage& sent, SendStage stage) { onSend(sent, stage); };
    m_commands.setSendHook(hook);
    m_events.setSendHook(hook);
}

Host::~Host()
{
    unload();
}

bool Host::fail(const std::string& what)
{
    m_error = m_loading + ": " + what;
    return false;
}

bool Host::failAndUnload(const std::string& what)
{
    fail(what);
    return unloadKeepingError();
}

bool Host::unloadKeepingError()
{
    const std::string error = m_error;
    unloadLast();
    m_error = error;
    return false;
}

bool Host::load(const std::string& path)
{
    return open(path) && startUp();
}

bool Host::loadAlso(const std::string& path)
{
    return openAlso(path) && startUp();
}

bool Host::startUp()
{
    callPluginit(&m_api);
    if (!readDescription())
        return false;
    const std::size_t library = m_libraries.size() - 1;
    for (std::size_t index = 0; index < componentInfos(library).size(); ++index) {
        if (createComponent(index) == nullptr)
            return unloadKeepingError();
    }
    return true;
}

bool Host::open(const std::string& path)
{
    unload();
    return openAlso(path);
}

bool Host::openAlso(const std::string& path)
{
    m_loading = path;
    m_error.clear();
    dlerror();
    Library library;
    library.path = path;
    library.handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library.handle == nullptr) {
        const char* reason = dlerror();
        return fail(std::string("cannot be loaded: ") + (reason != nullptr ? reason : "unknown reason"));
    }
    // POSIX allows converting a data pointer from dlsym to a function pointer.
    library.pluginit = reinterpret_cast<PluginitFn>(dlsym(library.handle, "pluginit"));
    library.pluginfo = reinterpret_cast<PluginfoFn>(dlsym(library.handle, "pluginfo"));
    m_libraries.push_back(library);
    if (library.pluginit == nullptr)
        return failAndUnload("has no entry point pluginit");
    if (library.pluginfo == nullptr)
        return failAndUnload("has no entry point pluginfo");
    return true;
}

bool Host::readDescription()
{
    if (m_libraries.empty())
        return fail("is not open");
    Library& library = m_libraries.back();
    library.info = library.pluginfo();
    if (library.info == nullptr)
        return failAndUnload("pluginfo returned no description");
    if (library.info->components == nullptr || library.info->components[0] == nullptr)
        return failAndUnload("describes no component");
    return true;
}

void Host::callPluginit(kpf::IHostApi* api)
{
    if (!m_libraries.empty())
        m_libraries.back().pluginit(api);
}

const kpf::PluginInfo* Host::pluginInfo(std::size_t library) const
{
    return library < m_libraries.size() ? m_libraries[library].info : nullptr;
}

std::vector<kpf::ComponentInfo*> Host::componentInfos(std::size_t library) const
{
    std::vector<kpf::ComponentInfo*> infos;
    const kpf::PluginInfo* info = pluginInfo(library);
    if (info == nullptr || info->components == nullptr)
        return infos;
    for (kpf::ComponentInfo** entry = info->components; *entry != nullptr; ++entry)
        infos.push_back(*entry);
    return infos;
}

const std::string& Host::path(std::size_t library) const
{
    static const std::string none;
    return library < m_libraries.size() ? m_libraries[library].path : none;
}

kpf::IMessageHandler* Host::createComponent(std::size_t index)
{
    if (m_libraries.empty()) {
        fail("is not open");
        return nullptr;
    }
    const std::size_t library = m_libraries.size() - 1;
    const std::vector<kpf::ComponentInfo*> infos = componentInfos(library);
    if (index >= infos.size()) {
        fail("has no component " + std::to_string(index));
        return nullptr;
    }
    kpf::ComponentInfo* info = infos[index];
    const std::string name = std::string("component ") + (info->id != nullptr ? info->id : "(no id)") + ": ";
    if (!info->creator || !info->deletor || !info->getMessageHandler) {
        fail(name + "an operation is missing");
        return nullptr;
    }
    void* object = info->creator();
    if (object == nullptr) {
        fail(name + "creator returned null");
        return nullptr;
    }
    kpf::IMessageHandler* handler = info->getMessageHandler(object);
    if (handler == nullptr) {
        info->deletor(object);
        fail(name + "getMessageHandler returned null");
        return nullptr;
    }
    m_components.push_back({library, info, object, handler});
    return handler;
}

std::vector<kpf::IMessageHandler*> Host::components() const
{
    std::vector<kpf::IMessageHandler*> handlers;
    for (const Component& component : m_components)
        handlers.push_back(component.handler);
    return handlers;
}

void Host::start(kpf::IMessageHandler* component)
{
    Subscriptions::StartScope scope(component);
    deliver(component, kpf::MessageKindEvent, kpf::wireWord(kpf::MessageStart), 0, nullptr);
}

void Host::startAll()
{
    for (const Component& component : m_components)
        start(component.handler);
}

void Host::unload()
{
    m_events.dropQueue();
    // A kept envelope may hold a filter made by the library's code.
    dropKeptEnvelopes();
    while (!m_libraries.empty())
        unloadLast();
}

void Host::unloadLast()
{
    if (m_libraries.empty())
        return;
    const std::size_t library = m_libraries.size() - 1;
    while (!m_components.empty() && m_components.back().library == library) {
        const Component component = m_components.back();
        m_components.pop_back();
        m_subscriptions.forget(component.handler);
        component.info->deletor(component.object);
    }
    dlclose(m_libraries.back().handle);
    m_libraries.pop_back();
}

std::optional<Bytes> Host::takeReply(const kpf::IMessage* reply)
{
    if (reply == nullptr)
        return std::nullopt;
    std::unique_ptr<HostMessage> owned = m_store.take(reply);
    if (!owned)
        return std::nullopt;
    return owned->bytes();
}

void Host::setVariation(Variation variation)
{
    m_interjector.setVariation(variation);
    m_commands.setPayloadMode(m_interjector.sendMode());
    m_events.setPayloadMode(m_interjector.sendMode());
    // A component's message delivered into another component is a delivered
    // message too.
    const bool unstable = m_interjector.deliveryMode() == PayloadMode::Unstable;
    m_commands.setUnstableDeliveries(unstable);
    m_events.setUnstableDeliveries(unstable);
}

void Host::onSend(const HostMessage& sent, SendStage stage)
{
    m_interjector.onSend(sent, stage, [this](int kind, std::uint32_t number, int size, const void* data) {
        for (kpf::IMessageHandler* component : components())
            deliver(component, kind, number, size, data);
    });
}

std::optional<Bytes> Host::command(std::uint32_t number, const void* data, int size)
{
    const HostMessage message(kpf::MessageKindCommand, kpf::wireInt(number), size, data, HostSender,
                              m_interjector.deliveryMode());
    bool received = false;
    std::unique_ptr<HostResponse> response = m_commands.route(message, &received);
    if (!response)
        return std::nullopt;
    return response->payload();
}

void Host::event(std::uint32_t number, const void* data, int size)
{
    const HostMessage message(kpf::MessageKindEvent, kpf::wireInt(number), size, data, HostSender,
                              m_interjector.deliveryMode());
    m_events.dispatch(message);
}

std::optional<Bytes> Host::deliver(kpf::IMessageHandler* component, int kind, std::uint32_t number, int size,
                                   const void* data)
{
    const HostMessage message(kind, kpf::wireInt(number), size, data, HostSender, m_interjector.deliveryMode());
    return takeReply(component->handleMessage(&message));
}

} // namespace host
} // namespace edidvm
