// SPDX-License-Identifier: MIT
#include "edidsim/commands.h"

#include "edid/edid.h"
#include "sim/edidreport.h"
#include "sim/exitstatus.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace edidvm::edidsim {

int decodeCommand(int argc, char** argv)
{
    CLI::App app("Prints every mode the EDID decoder reads from each file (binary, or edid-decode's hex dump).",
                 "edidsim decode");
    std::vector<std::string> files;
    bool json = false;
    bool strict = false;
    app.add_option("file", files, "EDID files: regular files of at most 32 KiB (256 blocks) binary, 128 KiB a hex dump")
        ->required();
    app.add_flag("--json", json, "print one JSON object a file (JSON Lines)");
    app.add_flag("--strict", strict,
                 "refuse a damaged block, a bad checksum or extension count instead of warning and decoding the rest");
    app.footer("Exit status: 0 every file decoded, 2 a file refused or a bad command line.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? sim::Passed : sim::BadInput;
    }
    int status = 0;
    for (const std::string& file : files) {
        try {
            const edid::Edid edid = edid::loadEdidFile(file, strict ? edid::Checks::Strict : edid::Checks::Lenient);
            for (const std::string& warning : edid.warnings)
                std::fprintf(stderr, "edidsim: %s: warning: %s\n", file.c_str(), warning.c_str());
            const std::string report = json ? sim::edidJsonLine(file, edid) + "\n" : sim::edidText(file, edid);
            std::fwrite(report.data(), 1, report.size(), stdout);
        } catch (const edid::EdidError& error) {
            std::fprintf(stderr, "edidsim: %s\n", error.what());
            status = sim::BadInput;
        }
        std::fflush(stdout);
    }
    return status;
}

} // namespace edidvm::edidsim
