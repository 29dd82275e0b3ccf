// Loads a plug-in library on our host, starts its components and prints what
// the host sees: the description, the component table and the registrations.

#include "framework/wire.h"
#include "host/host.h"

#include <cstdio>
#include <string>

#ifndef EDIDVM_DEFAULT_PLUGIN
#define EDIDVM_DEFAULT_PLUGIN "liboutputedidviewmodel.so"
#endif

namespace {
const char* text(const char* value)
{
    return value != nullptr ? value : "(null)";
}
} // namespace

int main(int argc, char** argv)
{
    const std::string path = argc > 1 ? argv[1] : EDIDVM_DEFAULT_PLUGIN;
    edidvm::host::Host host;
    if (!host.load(path)) {
        std::fprintf(stderr, "%s\n", host.error().c_str());
        return 1;
    }

    const kpf::PluginInfo* info = host.pluginInfo();
    std::printf("library      %s\n", path.c_str());
    std::printf("name         %s\n", text(info->name));
    std::printf("version      %s\n", text(info->version));
    std::printf("plugin       %s\n", text(info->pluginVersion));
    std::printf("description  %s\n", text(info->description));
    for (kpf::ComponentInfo* component : host.componentInfos())
        std::printf("component    %s %s\n", text(component->id), text(component->description));

    host.startAll();
    const auto calls = host.subscriptions().calls();
    std::printf("registrations %zu\n", calls.size());
    for (const auto& call : calls) {
        std::printf("  %-7s 0x%08X  %s\n", call.channel == edidvm::host::Channel::Command ? "command" : "event",
                    call.number, call.sender.c_str());
    }
    std::printf("services looked up:");
    for (const std::string& name : host.api().lookups())
        std::printf(" %s", name.c_str());
    std::printf("\n");
    return 0;
}
