// SPDX-License-Identifier: MIT
#include "host/hostapi.h"

namespace edidvm {
namespace host {

void* HostApi::findService(const char* name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string key = name != nullptr ? name : "";
    m_lookups.push_back(key);
    const auto found = m_services.find(key);
    return found == m_services.end() ? nullptr : found->second;
}

void HostApi::setService(const std::string& name, void* service)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_services[name] = service;
}

void HostApi::removeService(const std::string& name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_services.erase(name);
}

std::vector<std::string> HostApi::lookups() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lookups;
}

void HostApi::clearLookups()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lookups.clear();
}

} // namespace host
} // namespace edidvm
