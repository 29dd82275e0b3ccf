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
    m_error = m_path + ": " + what;
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
    unload();
    m_error = error;
    return false;
}

bool Host::load(const std::string& path)
{
    if (!open(path))
        return false;
    callPluginit(&m_api);
    if (!readDescription())
        return false;
    for (std::size_t index = 0; index < componentInfos().size(); ++index) {
        if (createComponent(index) == nullptr)
            return unloadKeepingError();
    }
    return true;
}

bool Host::open(const std::string& path)
{
    unload();
    m_path = path;
    m_error.clear();
    dlerror();
    m_library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_library == nullptr) {
        const char* reason = dlerror();
        return fail(std::string("cannot be loaded: ") + (reason != nullptr ? reason : "unknown reason"));
    }
    // POSIX allows converting a data pointer from dlsym to a function pointer.
    m_pluginit = reinterpret_cast<PluginitFn>(dlsym(m_library, "pluginit"));
    m_pluginfo = reinterpret_cast<PluginfoFn>(dlsym(m_library, "pluginfo"));
    if (m_pluginit == nullptr)
        return failAndUnload("has no entry point pluginit");
    if (m_pluginfo == nullptr)
        return failAndUnload("has no entry point pluginfo");
    return true;
}

bool Host::readDescription()
{
    if (m_pluginfo == nullptr)
        return fail("is not open");
    m_info = m_pluginfo();
    if (m_info == nullptr)
        return failAndUnload("pluginfo returned no description");
    if (m_info->components == nullptr || m_info->components[0] == nullptr)
        return failAndUnload("describes no component");
    return true;
}

void Host::callPluginit(kpf::IHostApi* api)
{
    if (m_pluginit != nullptr)
        m_pluginit(api);
}

std::vector<kpf::ComponentInfo*> Host::componentInfos() const
{
    std::vector<kpf::ComponentInfo*> infos;
    if (m_info == nullptr || m_info->components == nullptr)
        return infos;
    for (kpf::ComponentInfo** entry = m_info->components; *entry != nullptr; ++entry)
        infos.push_back(*entry);
    return infos;
}

kpf::IMessageHandler* Host::createComponent(std::size_t index)
{
    const std::vector<kpf::ComponentInfo*> infos = componentInfos();
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
    m_components.push_back({info, object, handler});
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
    while (!m_components.empty()) {
        const Component component = m_components.back();
        m_components.pop_back();
        m_subscriptions.forget(component.handler);
        component.info->deletor(component.object);
    }
    m_info = nullptr;
    m_pluginit = nullptr;
    m_pluginfo = nullptr;
    if (m_library != nullptr) {
        dlclose(m_library);
        m_library = nullptr;
    }
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
