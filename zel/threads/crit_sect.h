// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

namespace platform {
struct critical_section;
}

/// A lock between the threads of one process, which its holder may take again.
///
/// It must be given back as often as it was taken. Free or held by the caller it costs a few atomic
/// steps and no system call. Destruction must not overlap any use, and nobody may hold it then. In
/// the child of a fork it is as it was for the thread that forked. A thread that is terminated
/// leaves what it holds locked for ever; a `mutex` tells.
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

    /// Waits until the section is the caller's, whatever `timeout` says.
    /// \returns true.
    bool lock(std::uint32_t timeout) override;

    /// Takes the section when that needs no wait.
    /// \returns whether it did.
    bool try_lock() noexcept;

    /// \returns true, also when the caller does not hold the section, which changes nothing.
    bool unlock() override;
    using sync_obj::unlock;

private:
    platform::critical_section * section_;
};

static_assert(sizeof(crit_sect) == sizeof(sync_obj) + sizeof(void *));

} // namespace zel
