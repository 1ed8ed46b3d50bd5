// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

enum class memory_kind {
    own_stack, ///< of the calling thread
    module, ///< the program or a library: static objects
    other, ///< the heap, another thread's stack, or nothing
};

/// Tells what kind of memory an address lies in. For diagnosis only: it may read files of the host.
memory_kind memory_kind_of(void const * address) noexcept;

} // namespace zel::platform
