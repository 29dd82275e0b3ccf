// SPDX-License-Identifier: MIT
#include "host/configservices.h"

namespace edidvm {
namespace host {

std::int32_t HostDeviceConfigManager::subcardOfSlot(std::int32_t slotId)
{
    Answer answer;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back(slotId);
        answer = m_answer;
    }
    return answer ? answer(slotId) : slotId;
}

void HostDeviceConfigManager::setAnswer(Answer answer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_answer = std::move(answer);
}

std::vector<std::int32_t> HostDeviceConfigManager::calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

std::vector<int> HostSubcardConfigManager::relatedConnectors(std::int32_t subcard, std::int32_t connectorKey,
                                                             std::int32_t deviceParam)
{
    Answer answer;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back({subcard, connectorKey, deviceParam});
        answer = m_answer;
    }
    return answer ? answer(subcard, connectorKey, deviceParam) : std::vector<int>();
}

void HostSubcardConfigManager::setAnswer(Answer answer)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_answer = std::move(answer);
}

std::vector<HostSubcardConfigManager::Call> HostSubcardConfigManager::calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

} // namespace host
} // namespace edidvm
