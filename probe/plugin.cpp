// SPDX-License-Identifier: MIT
// The probe's entry points and component table.

#include "framework/api.h"
#include "framework/componentinfo.h"
#include "probe/components.h"

#define PROBE_EXPORT __attribute__((visibility("default")))

using ProbeTmpl = kpf::ComponentTmpl<Probe::ProbeComponent>;
using WitnessTmpl = kpf::ComponentTmpl<Probe::ProbeWitness>;

template <>
kpf::ComponentInfo ProbeTmpl::componentInfo = {
    &ProbeTmpl::creator, &ProbeTmpl::deletor, &ProbeTmpl::getMessageHandler, "tivra.lcd.viewmodel.output.edid.probe",
    "{\"end\":0 }\r\n",
};

template <>
kpf::ComponentInfo WitnessTmpl::componentInfo = {
    &WitnessTmpl::creator,
    &WitnessTmpl::deletor,
    &WitnessTmpl::getMessageHandler,
    "tivra.lcd.viewmodel.output.edid.probe.witness",
    "{\"end\":0 }\r\n",
};

namespace {

kpf::ComponentInfo* probeComponentTable[] = {
    &ProbeTmpl::componentInfo,
    &WitnessTmpl::componentInfo,
    nullptr,
};

const kpf::PluginInfo pluginInfo = {
    "0.1",
    probeComponentTable,
    "outputedidviewmodelprobe",
    "0.1.0",
    "{\"desc\":\"measures how the host behaves; changes nothing\",\"end\":0 }",
};

} // namespace

extern "C" {

PROBE_EXPORT const kpf::PluginInfo* pluginfo()
{
    return &pluginInfo;
}

PROBE_EXPORT void pluginit(kpf::IHostApi* api)
{
    kpf::api::get().hostApi = api;
}

} // extern "C"
