// SPDX-License-Identifier: MIT
#include "zel/files/dyn_lib.h"

#include "zel/platform/files/module_loader.h"
#include "zel/platform/last_error.h"
#include <utility>

namespace zel {
namespace {

constexpr char const * reasons[] = {
    "Zel Dyn_Lib Exception: File not found ",
    "Zel Dyn_Lib Exception: exported procedure not found ",
    "Cannot load file component ",
};

/// The host would stop reading at a NUL inside and use another name.
bool is_one_text(string const & text) noexcept { return text.find('\0') == string::npos; }

} // namespace

dyn_lib::exception::exception(exc_type type, char const * text)
    : zel::exception(type, reasons, text)
{
}

dyn_lib::exception::~exception() = default;

dyn_lib::dyn_lib(string const & module_name, bool unload)
    : name(module_name)
    , handle(nullptr)
    , unload_on_destroy(unload)
{
}

dyn_lib::~dyn_lib()
{
    if (unload_on_destroy) {
        unload();
    }
}

void dyn_lib::load()
{
    if (loaded()) {
        return;
    }
    if (is_one_text(name)) {
        handle = platform::load_library(name.c_str());
    } else {
        platform::set_last_error(platform::error_mod_not_found);
    }
    if (!loaded()) {
        throw exception(exception::cannot_load, name.c_str());
    }
}

void dyn_lib::unload() noexcept
{
    if (loaded()) {
        platform::free_library(std::exchange(handle, nullptr));
    }
}

void * dyn_lib::get_proc_addr(string const & proc_name)
{
    if (!loaded()) {
        throw exception(exception::cannot_load, name.c_str());
    }
    void * address = nullptr;
    if (is_one_text(proc_name)) {
        address = platform::get_proc_address(handle, proc_name.c_str());
    } else {
        platform::set_last_error(platform::error_proc_not_found);
    }
    if (address == nullptr) {
        throw exception(exception::procedure_not_found, name.c_str());
    }
    return address;
}

} // namespace zel
