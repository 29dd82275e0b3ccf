#pragma once

#include "message/messagehandler.h"
#include "protomodel/interfacerecords.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace Model {

// The current SDI interface as another component announces it.
struct s_SDIInterfaceInfo
{
    std::uint32_t sdiWord0 = 0;
    std::uint32_t sdiWord1 = 0;
    std::int32_t interfaceId = 0; // the SDI interface
    std::uint32_t sdiWord3 = 0;
};
EDIDVM_ASSERT_SIZE(s_SDIInterfaceInfo, 16);
EDIDVM_ASSERT_OFFSET(s_SDIInterfaceInfo, interfaceId, 8);

// View model of the output-interface timing page. Not a QObject: the
// component must be one chain of bases at one address for the host.
class OutputEDIDViewModel : public LCD::Message::MessageHandler
{
public:
    OutputEDIDViewModel();
    ~OutputEDIDViewModel() override;

    int onInit() override;

protected:
    // Guarded by m_mutex.
    LCD::ProtoModel::Interface::s_InterfaceList m_curInterfaceInfo;
    std::vector<LCD::ProtoModel::Interface::s_InterfaceThumbTiming> m_interfaceTimingArry;
    std::vector<LCD::ProtoModel::Interface::s_InterfacePresetTiming> m_interfaceRefTimingArry;
    s_SDIInterfaceInfo m_curSDIInterfaceInfo;
    std::mutex m_mutex;
};

} // namespace Model
