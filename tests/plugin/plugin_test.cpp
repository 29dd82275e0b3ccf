#include "framework/wire.h"
#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>

using edidvm::host::Host;
using edidvm::host::HostApi;
using ::testing::ElementsAre;

namespace {

const std::vector<std::string> ServiceLookups = {"kpf_default_messagecenter", "commanddispatcher", "eventdispatcher"};

TEST(Plugin, DescriptionAndComponentTable)
{
    Host host;
    ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
    ASSERT_TRUE(host.readDescription()) << host.error();
    const kpf::PluginInfo* info = host.pluginInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->version, "0.1");
    EXPECT_STREQ(info->name, "outputedidviewmodel");
    EXPECT_STREQ(info->pluginVersion, "0.1.0");
    EXPECT_STREQ(info->description, "{\"desc\":\"output edid view model plugin!\",\"end\":0 }");
    ASSERT_NE(info->components, nullptr);
    ASSERT_NE(info->components[0], nullptr);
    EXPECT_EQ(info->components[1], nullptr);
    EXPECT_STREQ(info->components[0]->id, "tivra.lcd.viewmodel.output.edid");
    EXPECT_STREQ(info->components[0]->description, "{\"end\":0 }\r\n");

    // pluginfo gives the same record every time, before and after pluginit.
    void* library = dlopen(EDIDVM_PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    const auto pluginfo = reinterpret_cast<const kpf::PluginInfo* (*)()>(dlsym(library, "pluginfo"));
    EXPECT_EQ(pluginfo(), info);
    host.callPluginit(&host.api());
    EXPECT_EQ(pluginfo(), info);
    dlclose(library);
}

TEST(Plugin, ComponentOperations)
{
    Host host;
    ASSERT_TRUE(host.load(EDIDVM_PLUGIN_PATH)) << host.error();
    kpf::ComponentInfo* info = host.componentInfos().at(0);

    void* object = info->creator();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(info->getMessageHandler(object), object);
    void* other = info->creator();
    EXPECT_NE(other, object);
    info->deletor(object);
    info->deletor(other);
    info->deletor(nullptr);

    // The start message subscribes the component's numbers; reserved
    // numbers and unknown kinds reach no handler, whatever the payload.
    kpf::IMessageHandler* component = host.components().at(0);
    host.start(component);
    EXPECT_FALSE(host.subscriptions().calls().empty());
    for (int kind : {kpf::MessageKindCommand, kpf::MessageKindEvent, 0, -1}) {
        for (std::uint32_t number : {0xFFFF0001u, 0xFFFF0002u, 0xFFFFFFFEu, 0xFFFFFFFFu, 0u}) {
            char payload[840] = {};
            EXPECT_FALSE(host.deliver(component, kind, number, sizeof payload, payload));
            EXPECT_FALSE(host.deliver(component, kind, number, 840, nullptr));
            EXPECT_FALSE(host.deliver(component, kind, number, -1, payload));
        }
    }
    for (std::uint32_t number : {0xFC051016u, 0xFC021009u})
        EXPECT_FALSE(host.deliver(component, 0, number, 0, nullptr)) << "kind 0 is neither command nor event";
    EXPECT_TRUE(host.recorder().messages().empty());
    EXPECT_EQ(host.store().liveCount(), 0u);
}

// The library's API holder lives as long as the library is loaded, so each
// case opens it afresh.
TEST(Plugin, PluginitBeforeAfterAndTwice)
{
    {
        Host host;
        ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
        ASSERT_TRUE(host.readDescription()) << host.error();
        ASSERT_NE(host.createComponent(0), nullptr);
        EXPECT_TRUE(host.api().lookups().empty()) << "a component made before pluginit looks nothing up";
    }
    {
        Host host;
        ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
        host.callPluginit(&host.api());
        EXPECT_TRUE(host.api().lookups().empty()) << "pluginit itself looks nothing up";
        ASSERT_TRUE(host.readDescription()) << host.error();
        ASSERT_NE(host.createComponent(0), nullptr);
        EXPECT_EQ(host.api().lookups(), ServiceLookups);
    }
    {
        Host host;
        HostApi second;
        ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
        host.callPluginit(&host.api());
        ASSERT_TRUE(host.readDescription()) << host.error();
        ASSERT_NE(host.createComponent(0), nullptr);
        host.callPluginit(&second);
        ASSERT_NE(host.createComponent(0), nullptr);
        EXPECT_EQ(host.api().lookups(), ServiceLookups) << "the first component keeps the first API";
        EXPECT_EQ(second.lookups(), ServiceLookups) << "the second pointer replaces the first";
    }
    {
        Host host;
        ASSERT_TRUE(host.open(EDIDVM_PLUGIN_PATH)) << host.error();
        host.callPluginit(nullptr);
        ASSERT_TRUE(host.readDescription()) << host.error();
        ASSERT_NE(host.createComponent(0), nullptr);
        EXPECT_TRUE(host.api().lookups().empty());
    }
}

} // namespace
