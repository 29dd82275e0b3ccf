// SPDX-License-Identifier: MIT
// edidsim: plays scenarios against the output EDID view model on our host
// (the default), decodes EDIDs ("decode") or opens the desktop page ("page").

#include "edidsim/commands.h"

#include <string>

#ifndef EDIDVM_DEFAULT_PLUGIN
#define EDIDVM_DEFAULT_PLUGIN "liboutputedidviewmodel.so"
#endif
#ifndef EDIDVM_DEFAULT_SCENARIO
#define EDIDVM_DEFAULT_SCENARIO "scenarios/default.json"
#endif
#ifndef EDIDVM_BUILD_TRANSLATIONS
#define EDIDVM_BUILD_TRANSLATIONS "."
#endif
// Relative to the installed program's directory.
#ifndef EDIDVM_INSTALLED_PLUGIN
#define EDIDVM_INSTALLED_PLUGIN "../lib/liboutputedidviewmodel.so"
#endif
#ifndef EDIDVM_INSTALLED_TRANSLATIONS
#define EDIDVM_INSTALLED_TRANSLATIONS "../share/outputedidviewmodel/translations"
#endif
#ifndef EDIDVM_INSTALLED_SCENARIO
#define EDIDVM_INSTALLED_SCENARIO "../share/edidsim/scenarios/default.json"
#endif

int main(int argc, char** argv)
{
    using namespace edidvm::edidsim;
    const std::string subcommand = argc > 1 ? argv[1] : "";
    if (subcommand == "decode")
        return decodeCommand(argc - 1, argv + 1);
    const Defaults defaults{ownFile(EDIDVM_DEFAULT_PLUGIN, EDIDVM_INSTALLED_PLUGIN),
                            ownFile(EDIDVM_DEFAULT_SCENARIO, EDIDVM_INSTALLED_SCENARIO),
                            ownFile(EDIDVM_BUILD_TRANSLATIONS, EDIDVM_INSTALLED_TRANSLATIONS)};
    if (subcommand == "page")
        return pageCommand(argc - 1, argv + 1, defaults);
    return runCommand(argc, argv, defaults);
}
