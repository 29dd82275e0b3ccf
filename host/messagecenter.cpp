// SPDX-License-Identifier: MIT
#include "host/messagecenter.h"

#include "host/hostobjects.h"
#include "host/routing_p.h"

#include <memory>

namespace edidvm {
namespace host {

kpf::IMessage* MessageCenter::createMessage(int number, const char* sender, int size, const void* data, int /*flags*/)
{
    // Replies carry no kind of their own.
    return m_store.adopt(std::make_unique<HostMessage>(0, number, size, data, senderText(sender)));
}

} // namespace host
} // namespace edidvm
