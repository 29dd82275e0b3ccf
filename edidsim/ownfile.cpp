// SPDX-License-Identifier: MIT
#include "edidsim/commands.h"

#include <filesystem>
#include <system_error>

#ifndef EDIDVM_BUILD_DIR
#define EDIDVM_BUILD_DIR "."
#endif

namespace edidvm {
namespace edidsim {

std::string ownFile(const char* built, const char* installedFromProgramDir)
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return built;
    const std::filesystem::path dir = program.parent_path();
    if (std::filesystem::equivalent(dir, EDIDVM_BUILD_DIR, error))
        return built;
    return (dir / installedFromProgramDir).lexically_normal().string();
}

} // namespace edidsim
} // namespace edidvm
