// SPDX-License-Identifier: MIT
#include "host/hostobjects.h"

#include <cstring>

namespace edidvm {
namespace host {

namespace {
// data() of an empty but present payload must still be non-null.
const unsigned char emptyPayload = 0;
} // namespace

HostMessage::HostMessage(int kind, int number, int size, const void* data, std::string sender, PayloadMode mode)
    : m_kind(kind), m_number(number), m_size(size), m_hasData(data != nullptr), m_mode(mode), m_lent(data),
      m_sender(std::move(sender))
{
    if (data != nullptr && size > 0) {
        m_bytes.resize(static_cast<std::size_t>(size));
        std::memcpy(m_bytes.data(), data, m_bytes.size());
    }
}

const void* HostMessage::data() const
{
    if (!m_hasData)
        return nullptr;
    switch (m_mode) {
    case PayloadMode::Lent:
        return m_lent;
    case PayloadMode::Unstable:
        if (m_dataCalls.fetch_add(1) > 0)
            return nullptr;
        break;
    case PayloadMode::Copied:
        break;
    }
    return m_bytes.empty() ? &emptyPayload : m_bytes.data();
}

const void* HostMessage::peekData() const
{
    if (!m_hasData)
        return nullptr;
    if (m_mode == PayloadMode::Lent)
        return m_lent;
    if (m_mode == PayloadMode::Unstable && m_dataCalls.load() > 0)
        return nullptr;
    return m_bytes.empty() ? &emptyPayload : m_bytes.data();
}

HostResponse::HostResponse(std::unique_ptr<HostMessage> reply) : m_reply(std::move(reply)) {}

HostResponse::HostResponse(Bytes bytes) : m_bytes(std::move(bytes)) {}

const void* HostResponse::data() const
{
    if (m_reply)
        return m_reply->data();
    return m_bytes.empty() ? &emptyPayload : m_bytes.data();
}

int HostResponse::size() const
{
    return m_reply ? m_reply->size() : static_cast<int>(m_bytes.size());
}

kpf::IMessage* ObjectStore::adopt(std::unique_ptr<HostMessage> message)
{
    kpf::IMessage* iface = message.get();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.emplace(iface, std::move(message));
    return iface;
}

kpf::IResponse* ObjectStore::adopt(std::unique_ptr<HostResponse> response)
{
    kpf::IResponse* iface = response.get();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_responses.emplace(iface, std::move(response));
    return iface;
}

std::unique_ptr<HostMessage> ObjectStore::take(const kpf::IMessage* message)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_messages.find(message);
    if (found == m_messages.end())
        return nullptr;
    std::unique_ptr<HostMessage> owned = std::move(found->second);
    m_messages.erase(found);
    return owned;
}

HostMessage* ObjectStore::find(const kpf::IMessage* message) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_messages.find(message);
    return found == m_messages.end() ? nullptr : found->second.get();
}

ObjectStore::Released ObjectStore::release(const void* object)
{
    // Destroy outside the lock: a message's destructor is plain, but keep
    // the habit of never running foreign code under it.
    std::unique_ptr<HostMessage> message;
    std::unique_ptr<HostResponse> response;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (const auto found = m_messages.find(object); found != m_messages.end()) {
            message = std::move(found->second);
            m_messages.erase(found);
        } else if (const auto r = m_responses.find(object); r != m_responses.end()) {
            response = std::move(r->second);
            m_responses.erase(r);
        }
    }
    if (message)
        return Released::Message;
    return response ? Released::Response : Released::Nothing;
}

std::size_t ObjectStore::liveCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_messages.size() + m_responses.size();
}

} // namespace host
} // namespace edidvm
