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
// Printable on one line: the descriptions end in CR LF.
std::string text(const char* value)
{
    if (value == nullptr)
        return "(null)";
    std::string out;
    for (const char* c = value; *c != '\0'; ++c) {
        if (*c == '\r')
            out += "\\r";
        else if (*c == '\n')
            out += "\\n";
        else
            out += *c;
    }
    return out;
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
    std::printf("name         %s\n", text(info->name).c_str());
    std::printf("version      %s\n", text(info->version).c_str());
    std::printf("plugin       %s\n", text(info->pluginVersion).c_str());
    std::printf("description  %s\n", text(info->description).c_str());
    for (kpf::ComponentInfo* component : host.componentInfos())
        std::printf("component    %s %s\n", text(component->id).c_str(), text(component->description).c_str());

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
