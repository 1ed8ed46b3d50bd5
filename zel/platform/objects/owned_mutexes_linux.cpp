// SPDX-License-Identifier: MIT
#include "zel/platform/objects/owned_mutexes_linux.h"

#include "zel/platform/objects/unnamed_mutex_linux.h"

namespace zel::platform {
namespace {

void abandon_owned_mutexes(bool) noexcept { abandon_unnamed_mutexes(); }

} // namespace

std::uint32_t make_owner() noexcept
{
    return watch_owner(abandon_owned_mutexes) ? this_thread.owner_number : 0;
}

} // namespace zel::platform
