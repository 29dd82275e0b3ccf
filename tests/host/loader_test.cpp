#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using edidvm::host::Host;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

struct BrokenFile
{
    const char* name;
    std::string path;
    const char* reason;
};

TEST(Loader, EachBrokenFileGivesAnErrorNamingTheFileAndTheFault)
{
    const BrokenFile files[] = {
        {"missing file", EDIDVM_TEST_DIR "/no-such-plugin.so", "cannot be loaded"},
        {"not a library", EDIDVM_NOT_A_LIBRARY, "cannot be loaded"},
        {"no pluginit", EDIDVM_BROKEN_NO_PLUGINIT, "has no entry point pluginit"},
        {"no pluginfo", EDIDVM_BROKEN_NO_PLUGINFO, "has no entry point pluginfo"},
        {"null description", EDIDVM_BROKEN_NULL_INFO, "pluginfo returned no description"},
        {"empty component table", EDIDVM_BROKEN_NO_COMPONENT, "describes no component"},
        {"creator returns null", EDIDVM_BROKEN_NULL_CREATOR, "component test.nullcreator: creator returned null"},
    };
    for (const BrokenFile& file : files) {
        SCOPED_TRACE(file.name);
        Host host;
        EXPECT_FALSE(host.load(file.path));
        EXPECT_THAT(host.error(), StartsWith(file.path + ": "));
        EXPECT_THAT(host.error(), HasSubstr(file.reason));
        EXPECT_TRUE(host.components().empty());
        EXPECT_EQ(host.pluginInfo(), nullptr);
    }
}

TEST(Loader, TheLibraryLoadsUnloadsAndLoadsAgain)
{
    Host host;
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
        EXPECT_TRUE(host.error().empty());
        EXPECT_EQ(host.components().size(), 1u);
        host.startAll();
        host.unload();
        EXPECT_TRUE(host.components().empty());
        EXPECT_EQ(host.pluginInfo(), nullptr);
    }
}

} // namespace
