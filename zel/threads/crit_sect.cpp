// SPDX-License-Identifier: MIT
#include "zel/threads/crit_sect.h"

#include "zel/platform/objects/critical_section.h"

namespace zel {

crit_sect::crit_sect()
    : section_(new platform::critical_section)
{
    platform::initialize_critical_section(*section_);
}

crit_sect::~crit_sect()
{
    platform::delete_critical_section(*section_);
    delete section_;
}

bool crit_sect::lock(std::uint32_t)
{
    platform::enter_critical_section(*section_);
    return true;
}

bool crit_sect::try_lock() noexcept { return platform::try_enter_critical_section(*section_); }

bool crit_sect::unlock()
{
    platform::leave_critical_section(*section_);
    return true;
}

} // namespace zel
