// SPDX-License-Identifier: MIT
#pragma once

// Who receives which command or event: the registrations components make
// while their start message is delivered.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kpf {
class IMessageHandler;
}

namespace edidvm {
namespace host {

enum class Channel { Command, Event };

struct SubscribeCall
{
    Channel channel = Channel::Event;
    std::uint32_t number = 0;
    std::string sender;
    kpf::IMessageHandler* component = nullptr; // null: not tied to one
};

// Who receives what. A subscription is tied to the component whose start
// message is being delivered on the calling thread.
class Subscriptions
{
public:
    // Marks the component whose start message this thread delivers.
    class StartScope
    {
    public:
        explicit StartScope(kpf::IMessageHandler* component);
        ~StartScope();
        StartScope(const StartScope&) = delete;
        StartScope& operator=(const StartScope&) = delete;

    private:
        kpf::IMessageHandler* m_previous;
    };

    // 0 when tied to a component: the one being started on this thread, or
    // else the started one that subscribed under the same sender name; -1
    // when neither. A repeated subscription does not deliver twice.
    int subscribe(Channel channel, int number, const std::string& sender);
    std::vector<kpf::IMessageHandler*> receivers(Channel channel, int number) const;
    std::vector<SubscribeCall> calls() const;
    void forget(kpf::IMessageHandler* component);

private:
    mutable std::mutex m_mutex;
    std::vector<SubscribeCall> m_calls;
    std::map<std::pair<Channel, int>, std::vector<kpf::IMessageHandler*>> m_receivers;
    std::map<std::string, kpf::IMessageHandler*> m_byName; // the first started under each name
};

} // namespace host
} // namespace edidvm
