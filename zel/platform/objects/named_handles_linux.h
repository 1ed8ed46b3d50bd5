// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/objects/named_memory.h"
#include "zel/platform/waits/handles.h"

/// Handles of objects with a name. The slot holds where this handle has the object mapped.
namespace zel::platform {

inline named_memory & memory_in(handle_slot & slot) noexcept
{
    static_assert(sizeof(named_memory) <= sizeof(handle_slot::room));
    void * const room = slot.room;
    return *static_cast<named_memory *>(room);
}

/// Called before anything is done with such a handle: what a forked child has inherited becomes its
/// own with its first use.
/// \returns false with the last error set.
bool use_named_objects() noexcept;

/// Gives back what a slot without references has: its name and its mapping.
void release_named_object(handle_slot & slot) noexcept;

} // namespace zel::platform
