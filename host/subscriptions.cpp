// SPDX-License-Identifier: MIT
#include "host/subscriptions.h"

#include "framework/wire.h"

#include <algorithm>

namespace edidvm {
namespace host {

namespace {
thread_local kpf::IMessageHandler* t_startingComponent = nullptr;
} // namespace

Subscriptions::StartScope::StartScope(kpf::IMessageHandler* component) : m_previous(t_startingComponent)
{
    t_startingComponent = component;
}

Subscriptions::StartScope::~StartScope()
{
    t_startingComponent = m_previous;
}

int Subscriptions::subscribe(Channel channel, int number, const std::string& sender)
{
    kpf::IMessageHandler* component = t_startingComponent;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (component != nullptr) {
        m_byName.emplace(sender, component);
    } else {
        // Later, by a name a started component subscribed under, as hosts
        // that key subscriptions by name take it.
        const auto named = m_byName.find(sender);
        component = named != m_byName.end() ? named->second : nullptr;
    }
    m_calls.push_back({channel, kpf::wireWord(number), sender, component});
    if (component == nullptr)
        return -1;
    auto& receivers = m_receivers[{channel, number}];
    if (std::find(receivers.begin(), receivers.end(), component) == receivers.end())
        receivers.push_back(component);
    return 0;
}

std::vector<kpf::IMessageHandler*> Subscriptions::receivers(Channel channel, int number) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_receivers.find({channel, number});
    return found == m_receivers.end() ? std::vector<kpf::IMessageHandler*>() : found->second;
}

std::vector<SubscribeCall> Subscriptions::calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

void Subscriptions::forget(kpf::IMessageHandler* component)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto named = m_byName.begin(); named != m_byName.end();)
        named = named->second == component ? m_byName.erase(named) : std::next(named);
    for (auto& entry : m_receivers) {
        auto& list = entry.second;
        list.erase(std::remove(list.begin(), list.end(), component), list.end());
    }
}

} // namespace host
} // namespace edidvm
