// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include <cstdint>

namespace zel {

/// What can be locked and unlocked: the contract of the locks, without any state.
class ZEL_API sync_obj {
public:
    /// A lock could not be made, taken or given back.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            failed_to_create = 1,
            failed_to_lock = 2,
            failed_to_release = 3,
        };

        /// \param text  goes behind the reason; null for nothing.
        exception(exc_type type, char const * text);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    sync_obj() noexcept = default;
    sync_obj(sync_obj const &) noexcept = default;
    sync_obj & operator=(sync_obj const &) noexcept = default;
    virtual ~sync_obj();

    /// Waits until the object is the caller's.
    /// \param timeout  milliseconds; 0 only tests, 0xFFFFFFFF has no limit.
    /// \returns false when it did not become so in time. True also when the object refuses to be
    ///          waited for, as one that was opened without the right to does: each class tells.
    virtual bool lock(std::uint32_t timeout) = 0;

    /// The same as `unlock()`: neither argument is looked at.
    virtual bool unlock(std::uint32_t count, std::uint32_t * previous);

    /// Gives the object back once.
    virtual bool unlock() = 0;
};

static_assert(sizeof(sync_obj) == sizeof(void *));

} // namespace zel
