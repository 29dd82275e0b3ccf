// SPDX-License-Identifier: MIT
#pragma once

namespace kpf {

class IHostApi;

// Holder of the host API pointer, one per plug-in (hidden visibility keeps
// each library's copy its own).
struct api
{
    IHostApi* hostApi = nullptr; // null until pluginit
    void* word1 = nullptr;       // unused
    void* word2 = nullptr;       // unused

    // The record is zero-filled on first use, on whatever thread that is.
    static api& get()
    {
        static api _api;
        return _api;
    }
};

static_assert(sizeof(api) == 3 * sizeof(void*), "the api record is three words");

} // namespace kpf
