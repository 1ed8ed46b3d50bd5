// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/objects/named_memory.h"
#include "zel/platform/waits/handles.h"

/// Handles of named objects. The slot stores where this handle has mapped the object.
namespace zel::platform {

inline named_memory & memory_in(handle_slot & slot) noexcept
{
    static_assert(sizeof(named_memory) <= sizeof(handle_slot::room));
    void * const room = slot.room;
    return *static_cast<named_memory *>(room);
}

/// Call it before any operation on such a handle. At its first use of one, a forked child registers
/// the handles that it has inherited as its own.
/// \returns false with the last error set.
bool use_named_objects() noexcept;

/// Releases what a slot without references holds: the name and the mapping.
void release_named_object(handle_slot & slot) noexcept;

} // namespace zel::platform
