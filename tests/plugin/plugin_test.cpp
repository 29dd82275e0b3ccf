// SPDX-License-Identifier: MIT
// pluginit against the built library, and the configuration services' slots
// called by raw position, independently of their declarations.

#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using edidvm::host::Host;
using edidvm::host::HostApi;
using ::testing::IsEmpty;

namespace {

const std::vector<std::string> ServiceLookups = {"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher"};

template <typename Result, typename... Args>
Result callSlot(const void* object, int slot, Args... args)
{
    using Function = Result (*)(const void*, Args...);
    void* const* table = *static_cast<void* const* const*>(object);
    return reinterpret_cast<Function>(table[slot])(object, args...);
}

// The library's API holder lives as long as the library: each case reopens it.
TEST(Plugin, PluginitBeforeAfterAndTwice)
{
    struct Case
    {
        const char* name;
        bool before, nullBefore, twice;         // pluginit before, with null before, again after the first component
        std::vector<std::string> first, second; // the lookups each API then saw
    };
    const Case cases[] = {
        {"pluginit never", false, false, false, {}, {}},
        {"pluginit before", true, false, false, ServiceLookups, {}},
        {"pluginit before and again after", true, false, true, ServiceLookups, ServiceLookups},
        {"pluginit(nullptr) before", false, true, false, {}, {}},
    };
    for (const auto& [name, before, nullBefore, twice, first, second] : cases) {
        SCOPED_TRACE(name);
        Host host;
        HostApi secondApi;
        ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
        if (before || nullBefore)
            host.callPluginit(nullBefore ? nullptr : &host.api());
        EXPECT_THAT(host.api().lookups(), IsEmpty()) << "pluginit itself looks nothing up";
        ASSERT_TRUE(host.readDescription()) << host.error();
        ASSERT_NE(host.createComponent(0), nullptr);
        if (twice) {
            host.callPluginit(&secondApi);
            ASSERT_NE(host.createComponent(0), nullptr);
        }
        EXPECT_EQ(host.api().lookups(), first) << "the first component keeps the first API";
        EXPECT_EQ(secondApi.lookups(), second) << "a second pointer replaces the first";
    }
}

// The configuration services the view model calls, by raw position: no
// other suite checks their declarations.
TEST(Slots, ConfigurationServicesAnswerAtTheirPositions)
{
    Host host;
    host.deviceConfig().setAnswer([](std::int32_t slot) { return slot * 10; });
    host.subcardConfig().setAnswer([](std::int32_t subcard, std::int32_t key, std::int32_t param) {
        return std::vector<int>{subcard, key, param};
    });
    kpf::IHostApi* api = &host.api();
    // API: 3 findService; device: 6 subcardOfSlot; subcard: 8 relatedConnectors.
    EXPECT_EQ(callSlot<std::int32_t>(callSlot<void*>(api, 3, "deviceconfigmanager"), 6, 4), 40);
    EXPECT_EQ(callSlot<std::vector<int>>(callSlot<void*>(api, 3, "subcardconfigmanager"), 8, 1, 2, -1),
              (std::vector<int>{1, 2, -1}));
}

} // namespace
