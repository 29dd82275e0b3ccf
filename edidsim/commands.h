// SPDX-License-Identifier: MIT
#pragma once

// The program's subcommands. Each takes its own argv, whose argv[0] names
// it, and returns the program's exit status.

#include <string>
#include <vector>

namespace edidvm {
namespace sim {
struct Scenario;
} // namespace sim
} // namespace edidvm

namespace edidvm {
namespace edidsim {

// Where the program finds what the command line does not give.
struct Defaults
{
    std::string plugin;
    std::string scenario;
    std::string translations; // the directory of the .qm files
};

// The build tree's file when this is the program that build tree made;
// otherwise the installed one, found from where the program runs, so build
// trees elsewhere on the machine are never used.
std::string ownFile(const char* built, const char* installedFromProgramDir);

// Every subcommand and its options, for the end of edidsim --help.
std::string commandsHelp();
// " (did you mean \"page\"?)" for a word close to a subcommand's name.
std::string commandHint(const std::string& word);
// A bad command line: the message on standard error, or with --json among
// the arguments an error and a summary record. Returns the exit status.
int refuseCommandLine(int argc, char** argv, const std::string& message);

// The host variations a probe report lists, in its order; empty and why
// ("FILE: what is missing") when the file is not a probe report or names
// a variation our host does not know.
std::vector<std::string> readHostProfile(const std::string& file, std::string* refusal);

// edidsim [options] [SCENARIO...]: plays scenarios and prints the trace.
int runCommand(int argc, char** argv, const Defaults& defaults);
// edidsim --bless SCENARIO...: plays each scenario, read whole beforehand,
// and writes what came into the steps that did not meet their expectations
// (into every step when none is checked), in the canonical form.
int blessScenarios(const std::vector<sim::Scenario>& scenarios, const std::string& plugin);
// edidsim --format SCENARIO...: rewrites each file in the canonical form.
int formatScenarios(const std::vector<std::string>& files);
// edidsim decode FILE...: what the EDID decoder reads from each file, for a
// person or (--json) a program.
int decodeCommand(int argc, char** argv);
// edidsim page [options] [SCENARIO]: the desktop page, loaded only now.
int pageCommand(int argc, char** argv, const Defaults& defaults);

} // namespace edidsim
} // namespace edidvm
