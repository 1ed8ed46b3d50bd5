// SPDX-License-Identifier: MIT
#include "zel/threads/sync_obj.h"

namespace zel {
namespace {

constexpr char const * reasons[] = {
    "Zel Sync Exception: failed to create",
    "Zel Sync Exception: failed to lock",
    "Zel Sync Exception: failed to release",
};

} // namespace

sync_obj::exception::exception(exc_type type, char const * text)
    : zel::exception(type, reasons, text)
{
}

sync_obj::exception::~exception() = default;

sync_obj::~sync_obj() = default;

bool sync_obj::unlock(std::uint32_t, std::uint32_t *) { return unlock(); }

} // namespace zel
