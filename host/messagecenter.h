// SPDX-License-Identifier: MIT
#pragma once

// Our stand-in for the host framework's message center, which makes the
// replies that handlers return.

#include "framework/idispatchers.h"

namespace kpf {
class IMessage;
}

namespace edidvm {
namespace host {

class ObjectStore;

class MessageCenter final : public kpf::IMessageCenter
{
public:
    explicit MessageCenter(ObjectStore& store) : m_store(store) {}
    kpf::IMessage* createMessage(int number, const char* sender, int size, const void* data, int flags) override;

private:
    ObjectStore& m_store;
};

} // namespace host
} // namespace edidvm
