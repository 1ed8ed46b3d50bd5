// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/calendar.h"

namespace zel::platform {

/// The present moment in UTC. Costs no system call where the host maps its clock into the process.
/// \returns a structure of the calling thread, overwritten by its next call.
system_time const & get_system_time() noexcept;

/// The present local time. The time zone comes from the variable `TZ` if it is set, else from the
/// host's configuration. A change of `TZ` takes effect at the next call, a new configuration within
/// a second. No other thread may change the environment during the call.
system_time const & get_local_time() noexcept;

/// Sets the host's clock. The day of the week is ignored.
/// \returns true only when the clock was set. False with `error_invalid_parameter` for fields that
///          are no valid moment (the host is then not asked) or a moment that the host's clock
///          cannot hold; false with `error_privilege_not_held` when the process may not set the
///          clock.
bool set_system_time(system_time const & time) noexcept;

/// The same with a local time. A time that occurs twice, or is skipped, when the zone's offset
/// changes is interpreted as the host does it.
bool set_local_time(system_time const & time) noexcept;

} // namespace zel::platform
