// SPDX-License-Identifier: MIT
// Plug-ins that are wrong in one way each, built only for the loader's tests.
// Exactly one BROKEN_* macro is defined per build.

#include "framework/componentinfo.h"
#include "framework/ihostapi.h"

#define EXPORT __attribute__((visibility("default")))

namespace {

kpf::ComponentInfo nullCreator = {
    [] { return static_cast<void*>(nullptr); },
    [](void*) {},
    [](void* object) { return static_cast<kpf::IMessageHandler*>(object); },
    "test.nullcreator",
    "{}",
};

#if defined(BROKEN_NULL_CREATOR)
kpf::ComponentInfo* table[] = {&nullCreator, nullptr};
#else
kpf::ComponentInfo* table[] = {nullptr};
#endif

// Unused in the variants without pluginfo or with a null description.
[[maybe_unused]] const kpf::PluginInfo info = {"0.1", table, "broken", "0.1.0", "{}"};

} // namespace

extern "C" {

#if !defined(BROKEN_NO_PLUGINFO)
EXPORT const kpf::PluginInfo* pluginfo()
{
#if defined(BROKEN_NULL_INFO)
    return nullptr;
#else
    return &info;
#endif
}
#endif

#if !defined(BROKEN_NO_PLUGINIT)
EXPORT void pluginit(kpf::IHostApi*) {}
#endif
}
