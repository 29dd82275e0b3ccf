// SPDX-License-Identifier: MIT
// libFuzzer target: the input is a scenario's JSON text, read and checked by
// the simulator's reader as edidsim reads a file; it is not played (the view
// model has its own harness). The reader must return a scenario or refuse
// with a ScenarioError naming the file on each of its lines; any other
// exception would end edidsim uncaught. Which references it checks is the
// scenario suite's concern.
//
// The reader takes a path, so each input is written to a file in a private
// folder that also holds links to the repository's EDID files, as the
// scenarios that seed the corpus name them ("edid/...", "bad-checksum.edid").

#include "sim/scenario.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#ifndef EDIDVM_SOURCE_DIR
#error "EDIDVM_SOURCE_DIR must name the repository"
#endif

namespace fs = std::filesystem;
using namespace edidvm::sim;

namespace {

fs::path g_folder;
std::string g_file;

[[noreturn]] void fail(const std::string& what)
{
    std::fprintf(stderr, "edidvm-fuzz-scenario: %s\n", what.c_str());
    std::abort();
}

void removeFolder()
{
    std::error_code ignored;
    fs::remove_all(g_folder, ignored); // removes the links, never their targets
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string pattern = (fs::temp_directory_path() / "edidvm-fuzz-scenario-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        fail("cannot make a private folder");
    g_folder = pattern;
    g_file = (g_folder / "fuzz.json").string();
    std::atexit(removeFolder);
    const fs::path source = EDIDVM_SOURCE_DIR;
    fs::create_directory_symlink(source / "scenarios" / "edid", g_folder / "edid");
    for (const auto& entry : fs::directory_iterator(source / "tests" / "scenarios" / "data")) {
        if (entry.path().extension() == ".edid")
            fs::create_symlink(entry.path(), g_folder / entry.path().filename());
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    {
        std::ofstream out(g_file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        if (!out)
            fail("cannot write " + g_file);
    }
    try {
        loadScenario(g_file);
    } catch (const ScenarioError& error) {
        // One line for each problem, each naming the file.
        std::istringstream lines(error.what());
        std::string line;
        do {
            std::getline(lines, line);
            if (line.rfind(g_file + ": ", 0) != 0 || line.size() == g_file.size() + 2)
                fail("an error that does not name the file and what is wrong: " + line);
        } while (lines.peek() != EOF);
    }
    return 0;
}
