// SPDX-License-Identifier: MIT
#include "zel/threads/kernel_obj.h"

#include "zel/platform/kernel_objects.h"

namespace zel {
namespace {

constexpr char const * reasons[] = {
    "Zel Kernel Exception: Invalid Handle",
    "Zel Kernel Exception: Failed To Create Object",
};

} // namespace

kernel_obj::exception::exception(exc_type type, string const & text)
    : zel::exception(type, reasons, text)
{
}

kernel_obj::exception::~exception() = default;

kernel_obj::kernel_obj(string const & name)
    : name_(name)
{
}

kernel_obj::~kernel_obj()
{
    if (handle != nullptr) {
        platform::close_handle(handle);
        handle = nullptr;
    }
}

} // namespace zel
