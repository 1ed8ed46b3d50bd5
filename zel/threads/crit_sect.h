// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

namespace platform {
struct critical_section;
}

/// A lock between the threads of one process. Its owner may take it again.
///
/// It has to be unlocked as often as it was locked. When it is free or the caller's own, it costs a
/// few atomic steps and no system call. Destruction must not overlap any use, and no thread may
/// hold it then. In the child of a fork it has the state that it had for the forking thread. If a
/// thread is terminated while it holds the section, the section stays locked for ever; a `mutex`
/// reports that case.
/// \code
///     zel::crit_sect guard;
///     zel::single_lock held(guard);   // until the end of the block
/// \endcode
class ZEL_API crit_sect : public sync_obj {
public:
    /// \throws std::bad_alloc
    crit_sect();
    crit_sect(crit_sect const &) = delete;
    crit_sect & operator=(crit_sect const &) = delete;
    ~crit_sect() override;

    /// Waits until the caller owns the section; `timeout` is ignored.
    /// \returns true.
    bool lock(std::uint32_t timeout) override;

    /// Takes the section if that needs no wait.
    /// \returns true if it did.
    bool try_lock() noexcept;

    /// \returns true. Has no effect when the caller does not hold the section.
    bool unlock() override;
    using sync_obj::unlock;

private:
    platform::critical_section * section_;
};

static_assert(sizeof(crit_sect) == sizeof(sync_obj) + sizeof(void *));

} // namespace zel
