// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/calendar.h"

namespace zel::platform {

/// The present moment in UTC. Costs no system call where the host maps its clock into the process.
/// \returns fields of the calling thread, until it asks again.
system_time const & get_system_time() noexcept;

/// The present moment by the zone rules of the host: those of the variable `TZ` when it is set,
/// else of the host's configuration. A change of `TZ` shows at the next call, a new configuration
/// within a second. As everywhere, no other thread may change the environment meanwhile.
system_time const & get_local_time() noexcept;

/// Sets the host's clock; the day of the week is not looked at.
/// \returns true only when the clock was set. False with `error_invalid_parameter` for fields that
///          name no moment, in which case the host is not asked, or for one that the host's clock
///          cannot hold; with `error_privilege_not_held` when the process may not set the clock.
bool set_system_time(system_time const & time) noexcept;

/// The same with a local time. One that occurs twice, or is skipped, when the zone's offset changes
/// is read as the host reads it.
bool set_local_time(system_time const & time) noexcept;

} // namespace zel::platform
