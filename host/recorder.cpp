// SPDX-License-Identifier: MIT
#include "host/recorder.h"

#include "framework/wire.h"

namespace edidvm {
namespace host {

void Recorder::record(SentKind kind, const HostMessage& message, int mode)
{
    if (!m_enabled.load())
        return;
    SentMessage sent;
    sent.kind = kind;
    sent.number = kpf::wireWord(message.number());
    sent.sender = message.sender();
    sent.size = message.size();
    sent.nullData = message.peekData() == nullptr;
    sent.mode = mode;
    sent.bytes = message.bytes();

    std::shared_ptr<const Hook> hook;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        hook = m_hook;
    }
    // The hook is test code: run it without the lock.
    if (hook && *hook)
        (*hook)(sent, message.peekData());

    std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.push_back(std::move(sent));
}

void Recorder::setHook(Hook hook)
{
    auto shared = std::make_shared<const Hook>(std::move(hook));
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hook = std::move(shared);
}

std::vector<SentMessage> Recorder::messages() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_messages;
}

std::vector<SentMessage> Recorder::take()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<SentMessage> taken;
    taken.swap(m_messages);
    return taken;
}

void Recorder::clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.clear();
}

} // namespace host
} // namespace edidvm
