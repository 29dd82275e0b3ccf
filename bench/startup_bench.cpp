// SPDX-License-Identifier: MIT
// Whole-process start-up: edidsim's subcommands against edid-decode, the
// tool an engineer compares it with. Each iteration spawns the program and
// waits for it, output discarded; the last lines print each edidsim figure
// as a multiple of edid-decode's.

#include "bench/timesreporter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

struct Command
{
    const char* name;
    std::vector<std::string> argv;
};

const std::vector<Command>& commands()
{
    static const std::vector<Command> list = {
        {"edidsim_version", {EDIDVM_EDIDSIM, "--version"}},
        {"edidsim_decode", {EDIDVM_EDIDSIM, "decode", EDIDVM_BENCH_EDID}},
        {"edidsim_scenario", {EDIDVM_EDIDSIM, EDIDVM_BENCH_SCENARIO}},
#ifdef EDIDVM_EDID_DECODE
        {"edid_decode", {EDIDVM_EDID_DECODE, EDIDVM_BENCH_EDID}},
#endif
    };
    return list;
}

// The exit status, or -1 when the program could not be started.
int runOnce(const std::vector<std::string>& args)
{
    std::vector<char*> argv;
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

void BM_Startup(benchmark::State& state, const Command* command)
{
    for (auto _ : state) {
        if (runOnce(command->argv) != 0) {
            state.SkipWithError("the program failed");
            break;
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    for (const Command& command : commands())
        benchmark::RegisterBenchmark((std::string("BM_Startup/") + command.name).c_str(), BM_Startup, &command)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    // Each edidsim figure over edid-decode's.
    return runWithRatios(argc, argv, "wall time", "ms", [](const std::map<std::string, double>& times) {
        std::vector<Ratio> ratios;
        for (const auto& entry : times) {
            if (entry.first != "BM_Startup/edid_decode")
                ratios.push_back({entry.first.substr(11) + " / edid-decode", entry.first, "BM_Startup/edid_decode"});
        }
        return ratios;
    });
}
