// SPDX-License-Identifier: MIT
// edidsim page: the page's module is loaded only now, so that every other
// subcommand starts without Qt's GUI libraries and runs where they are not
// installed.

#include "edidsim/commands.h"
#include "page/pageentry.h"
#include "sim/exitstatus.h"

#include <cstdio>
#include <string>

#include <dlfcn.h>

namespace edidvm {
namespace edidsim {

int pageCommand(int argc, char** argv, const Defaults& defaults)
{
#if defined(EDIDVM_PAGE_MODULE) && defined(EDIDVM_INSTALLED_PAGE_MODULE)
    const std::string module = ownFile(EDIDVM_PAGE_MODULE, EDIDVM_INSTALLED_PAGE_MODULE);
#else
    const std::string module;
#endif
    if (module.empty()) {
        std::fprintf(stderr, "edidsim: this build has no page (Qt Quick was not found when it was built)\n");
        return sim::BadInput;
    }
    // Never closed: Qt's libraries it brings in may keep threads and hooks
    // until the process ends.
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        std::fprintf(stderr, "edidsim: the page cannot be loaded (is the edidsim-page package installed?): %s\n",
                     reason != nullptr ? reason : module.c_str());
        return sim::BadInput;
    }
    const auto entry = reinterpret_cast<EdidsimPageEntry>(dlsym(handle, EDIDSIM_PAGE_ENTRY));
    if (entry == nullptr) {
        std::fprintf(stderr, "edidsim: %s: not the page's module (no %s)\n", module.c_str(), EDIDSIM_PAGE_ENTRY);
        return sim::BadInput;
    }
    return entry(argc, argv, defaults.plugin.c_str(), defaults.scenario.c_str(), defaults.translations.c_str());
}

} // namespace edidsim
} // namespace edidvm
