// SPDX-License-Identifier: MIT
#pragma once

// The two configuration services the host offers by name. Only the slots
// named here are called; the others exist to keep the positions. No
// destructor: the host owns the services and the caller never releases them.

#include <cstdint>
#include <vector>

// Service "deviceconfigmanager".
class DeviceConfigManager
{
public:
    virtual void reservedSlot0() = 0;
    virtual void reservedSlot1() = 0;
    virtual void reservedSlot2() = 0;
    virtual void reservedSlot3() = 0;
    virtual void reservedSlot4() = 0;
    virtual void reservedSlot5() = 0;
    // The value that identifies the subcard of a slot to the subcard service.
    virtual std::int32_t subcardOfSlot(std::int32_t slotId) = 0;

protected:
    ~DeviceConfigManager() = default;
};

// Service "subcardconfigmanager".
class SubcardConfigManager
{
public:
    virtual void reservedSlot0() = 0;
    virtual void reservedSlot1() = 0;
    virtual void reservedSlot2() = 0;
    virtual void reservedSlot3() = 0;
    virtual void reservedSlot4() = 0;
    virtual void reservedSlot5() = 0;
    virtual void reservedSlot6() = 0;
    virtual void reservedSlot7() = 0;
    // The connector numbers tied to a connector, in any order.
    virtual std::vector<int> relatedConnectors(std::int32_t subcard, std::int32_t connectorKey,
                                               std::int32_t deviceParam) = 0;

protected:
    ~SubcardConfigManager() = default;
};
