// SPDX-License-Identifier: MIT
#pragma once

// Our stand-in for the host framework's API object: the services a
// component finds by name.

#include "framework/ihostapi.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace edidvm {
namespace host {

// Serves named services; any may be absent. Logs every lookup in order.
class HostApi final : public kpf::IHostApi
{
public:
    void reservedSlot0() override {}
    void reservedSlot1() override {}
    void reservedSlot2() override {}
    void* findService(const char* name) override;

    void setService(const std::string& name, void* service);
    void removeService(const std::string& name);
    std::vector<std::string> lookups() const;
    void clearLookups();

private:
    mutable std::mutex m_mutex;
    std::map<std::string, void*> m_services;
    std::vector<std::string> m_lookups;
};

} // namespace host
} // namespace edidvm
