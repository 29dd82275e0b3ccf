// SPDX-License-Identifier: MIT
#pragma once

// Stand-ins for the two configuration services, answering what a test or a
// scenario programs them to, and logging every call.

#include "framework/configservices.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace edidvm {
namespace host {

class HostDeviceConfigManager final : public DeviceConfigManager
{
public:
    // Default answer: the slot id itself.
    using Answer = std::function<std::int32_t(std::int32_t slotId)>;

    void reservedSlot0() override {}
    void reservedSlot1() override {}
    void reservedSlot2() override {}
    void reservedSlot3() override {}
    void reservedSlot4() override {}
    void reservedSlot5() override {}
    std::int32_t subcardOfSlot(std::int32_t slotId) override;

    void setAnswer(Answer answer);
    std::vector<std::int32_t> calls() const;

private:
    mutable std::mutex m_mutex;
    Answer m_answer;
    std::vector<std::int32_t> m_calls;
};

class HostSubcardConfigManager final : public SubcardConfigManager
{
public:
    // Default answer: no connector is tied.
    using Answer =
        std::function<std::vector<int>(std::int32_t subcard, std::int32_t connectorKey, std::int32_t deviceParam)>;
    struct Call
    {
        std::int32_t subcard;
        std::int32_t connectorKey;
        std::int32_t deviceParam;
    };

    void reservedSlot0() override {}
    void reservedSlot1() override {}
    void reservedSlot2() override {}
    void reservedSlot3() override {}
    void reservedSlot4() override {}
    void reservedSlot5() override {}
    void reservedSlot6() override {}
    void reservedSlot7() override {}
    std::vector<int> relatedConnectors(std::int32_t subcard, std::int32_t connectorKey,
                                       std::int32_t deviceParam) override;

    void setAnswer(Answer answer);
    std::vector<Call> calls() const;

private:
    mutable std::mutex m_mutex;
    Answer m_answer;
    std::vector<Call> m_calls;
};

} // namespace host
} // namespace edidvm
