// SPDX-License-Identifier: MIT
#pragma once

// What the message center and both dispatchers share: not part of the
// host's interface.

#include "framework/imessage.h"
#include "host/hostobjects.h"

#include <cstdio>
#include <string>

namespace edidvm {
namespace host {

inline std::string senderText(const char* sender)
{
    return sender != nullptr ? std::string(sender) : std::string();
}

// Frees a reply that nobody will read (an event handler's, or a second
// subscriber's to the same command).
inline void dropReply(ObjectStore& store, const kpf::IMessage* reply)
{
    if (reply != nullptr && store.release(reply) == ObjectStore::Released::Nothing)
        std::fprintf(stderr, "host: a handler returned a reply the host did not create\n");
}

} // namespace host
} // namespace edidvm
