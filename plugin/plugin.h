// SPDX-License-Identifier: MIT
#pragma once

// The two entry points every plug-in exports, with plain C names. The host
// calls pluginit once, before it creates any component.

#include "framework/componentinfo.h"

#define EDIDVM_EXPORT __attribute__((visibility("default")))

namespace kpf {
class IHostApi;
}

extern "C" {
// The plug-in's description; the same record on every call.
EDIDVM_EXPORT const kpf::PluginInfo* pluginfo();
// Stores the host API; a later call replaces it.
EDIDVM_EXPORT void pluginit(kpf::IHostApi* api);
}
