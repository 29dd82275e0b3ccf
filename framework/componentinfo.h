// SPDX-License-Identifier: MIT
#pragma once

#include "framework/imessagehandler.h"

#include <functional>
#include <new>

namespace kpf {

// Describes one component to the host. Host and plug-in must share one
// standard library: the host invokes these function objects directly.
struct ComponentInfo
{
    std::function<void*()> creator;
    std::function<void(void*)> deletor;
    std::function<IMessageHandler*(void*)> getMessageHandler;
    const char* id = nullptr;
    const char* description = nullptr;
};

// What pluginfo returns: constant for the life of the library.
struct PluginInfo
{
    const char* version;
    ComponentInfo** components; // null-terminated
    const char* name;
    const char* pluginVersion;
    const char* description;
};

// The three operations of a component T, which must derive from
// IMessageHandler through a single chain of bases (same address).
template <typename T>
struct ComponentTmpl
{
    static void* creator()
    {
        // nothrow new: out of memory reports null; a throwing constructor
        // still releases the memory and propagates.
        return static_cast<IMessageHandler*>(new (std::nothrow) T);
    }

    static void deletor(void* object) { delete static_cast<IMessageHandler*>(object); }

    static IMessageHandler* getMessageHandler(void* object) { return static_cast<IMessageHandler*>(object); }

    // Each plug-in defines its specialisation, so that its initialisation is
    // ordered with the rest of that translation unit.
    static ComponentInfo componentInfo;
};

} // namespace kpf
