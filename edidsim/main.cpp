// SPDX-License-Identifier: MIT
// edidsim: plays scenarios against the output EDID view model on our host
// (the default), decodes EDIDs ("decode") or opens the desktop page ("page").

#include "edidsim/commands.h"
#include "sim/jsonnode.h"

#include <filesystem>
#include <string>
#include <system_error>

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

namespace edidvm {
namespace edidsim {
std::string commandsHelp()
{
    return "Commands:\n"
           "  edidsim [--plugin PATH] [--also PATH]... [--json] [--junit FILE] [--require-checks] "
           "[--host-variation NAME] [--host-profile REPORT] [SCENARIO...]\n"
           "      play scenarios (a probe's report is one) and trace every message (the default command; options "
           "above)\n"
           "  edidsim --bless [--plugin PATH] [--host-variation NAME] SCENARIO...\n"
           "      play each scenario and write what came into it as its expectations\n"
           "  edidsim --format SCENARIO...\n"
           "      rewrite each scenario file in the canonical form\n"
           "  edidsim --messages-markdown | --version | --help\n"
           "  edidsim decode [--json] [--strict] FILE...\n"
           "      print every mode the EDID decoder reads from each file (edidsim decode --help)\n"
           "  edidsim page [--plugin PATH] [--json] [--lang LANG] [--screenshots DIR [--replace]] [SCENARIO]\n"
           "      open the desktop page on the scenario's device, where it is built (edidsim page --help)\n";
}

std::string commandHint(const std::string& word)
{
    return sim::didYouMean(word, {"decode", "page"});
}
} // namespace edidsim
} // namespace edidvm

int main(int argc, char** argv)
{
    using namespace edidvm::edidsim;
    const std::string subcommand = argc > 1 ? argv[1] : "";
    if (subcommand == "decode")
        return decodeCommand(argc - 1, argv + 1);
    // "edidsim decod x.edid" would otherwise be read as a scenario file that does not exist.
    std::error_code error;
    if (!subcommand.empty() && subcommand[0] != '-' && !std::filesystem::exists(subcommand, error)) {
        const std::string hint = commandHint(subcommand);
        if (!hint.empty())
            return refuseCommandLine(argc, argv, subcommand + ": no such command or scenario file" + hint);
    }
    const Defaults defaults{ownFile(EDIDVM_DEFAULT_PLUGIN, EDIDVM_INSTALLED_PLUGIN),
                            ownFile(EDIDVM_DEFAULT_SCENARIO, EDIDVM_INSTALLED_SCENARIO),
                            ownFile(EDIDVM_BUILD_TRANSLATIONS, EDIDVM_INSTALLED_TRANSLATIONS)};
    if (subcommand == "page")
        return pageCommand(argc - 1, argv + 1, defaults);
    return runCommand(argc, argv, defaults);
}
