// SPDX-License-Identifier: MIT
#include "plugin/plugin.h"

#include "framework/api.h"
#include "viewmodel/outputedidviewmodel.h"

using ViewModelComponent = kpf::ComponentTmpl<Model::OutputEDIDViewModel>;

template <>
kpf::ComponentInfo ViewModelComponent::componentInfo = {
    &ViewModelComponent::creator,      &ViewModelComponent::deletor, &ViewModelComponent::getMessageHandler,
    "tivra.lcd.viewmodel.output.edid", "{\"end\":0 }\r\n",
};

namespace {

kpf::ComponentInfo* lcdoutputedidviewmodelplugin_kpf_componentInfoTable[] = {
    &ViewModelComponent::componentInfo,
    nullptr,
};

const kpf::PluginInfo pluginInfo = {
    "0.1",   lcdoutputedidviewmodelplugin_kpf_componentInfoTable,        "outputedidviewmodel",
    "0.1.0", "{\"desc\":\"output edid view model plugin!\",\"end\":0 }",
};

} // namespace

extern "C" {

EDIDVM_EXPORT const kpf::PluginInfo* pluginfo()
{
    return &pluginInfo;
}

EDIDVM_EXPORT void pluginit(kpf::IHostApi* api)
{
    kpf::api::get().hostApi = api;
}

} // extern "C"
