// SPDX-License-Identifier: MIT
#pragma once

namespace kpf {

// The host API object handed to pluginit. Only findService is called; the
// three slots before it exist so that it sits at slot 3. No destructor: the
// host owns the object and a virtual destructor would shift the slots.
class IHostApi
{
public:
    virtual void reservedSlot0() = 0;
    virtual void reservedSlot1() = 0;
    virtual void reservedSlot2() = 0;
    // Returns the named service's interface pointer, or null when the host
    // has no such service. The caller never releases it.
    virtual void* findService(const char* name) = 0;

protected:
    ~IHostApi() = default;
};

} // namespace kpf
