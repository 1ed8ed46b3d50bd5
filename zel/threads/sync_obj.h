// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include <cstdint>

namespace zel {

/// The interface of everything that can be locked and unlocked, without any state.
class ZEL_API sync_obj {
public:
    /// Raised when a lock could not be created, locked or unlocked.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            failed_to_create = 1,
            failed_to_lock = 2,
            failed_to_release = 3,
        };

        /// \param text  follows the text of the reason; null for none.
        exception(exc_type type, char const * text);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    sync_obj() noexcept = default;
    sync_obj(sync_obj const &) noexcept = default;
    sync_obj & operator=(sync_obj const &) noexcept = default;
    virtual ~sync_obj();

    /// Waits until the caller owns the object, or is let through.
    /// \param timeout  milliseconds; 0 only tests, 0xFFFFFFFF has no limit.
    /// \returns false when the wait timed out, and for a `mutex` also when its owner has died. True
    ///          does not always mean that the object was locked: it is also returned when the wait
    ///          failed, as for an object that was opened without the right to wait; each class
    ///          describes this.
    virtual bool lock(std::uint32_t timeout) = 0;

    /// The same as `unlock()`; both arguments are ignored.
    virtual bool unlock(std::uint32_t count, std::uint32_t * previous);

    /// Unlocks the object once.
    virtual bool unlock() = 0;
};

static_assert(sizeof(sync_obj) == sizeof(void *));

} // namespace zel
