// SPDX-License-Identifier: MIT
// Our host's loader: its errors with small broken plug-ins, and the real
// library loaded, unloaded and loaded again.

#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using edidvm::host::Host;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

TEST(Loader, EachBrokenFileGivesAnErrorNamingTheFileAndTheFault)
{
    const std::pair<std::string, const char*> files[] = {
        {EDIDVM_TEST_DIR "/no-such-plugin.so", "cannot be loaded"},
        {EDIDVM_NOT_A_LIBRARY, "cannot be loaded"},
        {EDIDVM_BROKEN_NO_PLUGINIT, "has no entry point pluginit"},
        {EDIDVM_BROKEN_NO_PLUGINFO, "has no entry point pluginfo"},
        {EDIDVM_BROKEN_NULL_INFO, "pluginfo returned no description"},
        {EDIDVM_BROKEN_NO_COMPONENT, "describes no component"},
        {EDIDVM_BROKEN_NULL_CREATOR, "component test.nullcreator: creator returned null"},
    };
    for (const auto& [path, reason] : files) {
        Host host;
        EXPECT_FALSE(host.load(path));
        EXPECT_THAT(host.error(), StartsWith(path + ": "));
        EXPECT_THAT(host.error(), HasSubstr(reason));
        EXPECT_TRUE(host.components().empty());
        EXPECT_EQ(host.pluginInfo(), nullptr);
    }
    // The real library loads, unloads and loads again.
    Host host;
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
        EXPECT_EQ(host.components().size(), 1u);
        host.startAll();
        host.unload();
        EXPECT_TRUE(host.components().empty());
        EXPECT_EQ(host.pluginInfo(), nullptr);
    }
}

} // namespace
