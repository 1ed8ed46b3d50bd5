// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_handles_linux.h"

#include "zel/platform/objects/named_mutex_linux.h"

namespace zel::platform {
namespace {

void adopt_handles(std::uint64_t mark) noexcept
{
    for_each_slot([mark](handle_slot & slot) {
        std::uint32_t const tag = tag_of(slot.references.load(std::memory_order_relaxed));
        switch (static_cast<handle_kind>(tag & 15)) {
        case handle_kind::named_mutex:
            if (!settle_lane(slot)) { // the parent's lane may be of another namespace
                slot.access.store(0, std::memory_order_relaxed);
            }
            [[fallthrough]];
        case handle_kind::named_event:
        case handle_kind::named_semaphore:
            adopt_named_memory(memory_in(slot), mark);
            break;
        default:
            break;
        }
    });
}

} // namespace

bool use_named_objects() noexcept { return use_named_memory(adopt_handles); }

void release_named_object(handle_slot & slot) noexcept
{
    // If this fails, the lock that children share stands for the handle until this process ends.
    if (use_named_objects()) {
        leave_named_memory(memory_in(slot));
    }
    unmap_named_memory(memory_in(slot));
}

} // namespace zel::platform
