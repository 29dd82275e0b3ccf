// SPDX-License-Identifier: MIT
// Our host's loader: its errors with small broken plug-ins, the real
// library loaded, unloaded and loaded again, and libraries side by side.

#include "host/host.h"
#include "protomodel/messageids.h"

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

TEST(Loader, LibrariesLoadSideBySideAndAFailureUnloadsOnlyTheNewOne)
{
    Host host;
    ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
    EXPECT_FALSE(host.loadAlso(EDIDVM_BROKEN_NULL_CREATOR));
    EXPECT_THAT(host.error(), StartsWith(std::string(EDIDVM_BROKEN_NULL_CREATOR) + ": "));
    EXPECT_EQ(host.libraries(), 1u);
    EXPECT_EQ(host.components().size(), 1u);
    EXPECT_EQ(host.path(), EDIDVM_PLUGIN_PATH);

    // A second copy's component receives what the first's does.
    ASSERT_TRUE(host.loadAlso(EDIDVM_PLUGIN_PATH)) << host.error();
    EXPECT_EQ(host.libraries(), 2u);
    EXPECT_EQ(host.path(1), EDIDVM_PLUGIN_PATH);
    EXPECT_NE(host.pluginInfo(1), nullptr);
    EXPECT_EQ(host.path(2), "");
    EXPECT_EQ(host.pluginInfo(2), nullptr);
    ASSERT_EQ(host.components().size(), 2u);
    host.startAll();
    EXPECT_EQ(
        host.subscriptions().receivers(edidvm::host::Channel::Event, static_cast<int>(LCD::MessageId::RefreshTiming)),
        host.components());

    // Loading anew starts from nothing.
    ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH));
    EXPECT_EQ(host.libraries(), 1u);
    EXPECT_EQ(host.components().size(), 1u);
}

} // namespace
