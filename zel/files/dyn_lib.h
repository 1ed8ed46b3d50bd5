// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include <cstdint>

namespace zel {

/// A code module that is loaded on request and provides the addresses of its procedures.
///
/// The host counts loads: two objects may hold one module, and the last one unloads it. Use an
/// object in one thread at a time.
/// \code
///     zel::dyn_lib library("libz.so.1", true);
///     library.load();
///     auto const version = reinterpret_cast<char const * (*)()>(
///         library.get_proc_addr("zlibVersion"));
/// \endcode
class ZEL_API dyn_lib : public ref_obj {
public:
    /// Raised when a module can't be loaded or has no such procedure. `get_last_error()` returns
    /// the host's message until the thread's next failure.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            file_not_found = 1,
            procedure_not_found = 2,
            cannot_load = 3,
        };

        /// \param text  follows the text of the reason; null for none.
        exception(exc_type type, char const * text);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    /// Does not load the module yet.
    /// \param name  a file name, which the host searches for by its own rules, or a path. A name
    ///              with a backslash or a drive is a path of this library: `C:\lib\a.so`.
    /// \param unload_on_destroy  false keeps the module loaded after the object's end.
    dyn_lib(string const & name, bool unload_on_destroy);
    ~dyn_lib() override;

    /// Loads the module; does nothing when it is loaded.
    /// \throws dyn_lib::exception  `cannot_load` with the module's name.
    void load();

    /// Unloads the module. Its procedures must not be called any more.
    void unload() noexcept;
    /// Whether this object holds the module.
    bool loaded() const noexcept { return handle != nullptr; }

    /// The address of an exported procedure, valid until the module is unloaded. Never loads.
    /// \throws dyn_lib::exception  `cannot_load` when the module isn't loaded,
    ///                             `procedure_not_found` with the module's name.
    void * get_proc_addr(string const & proc_name);

protected:
    string const name; ///< as it was given
    void * handle; ///< null while not loaded
    bool const unload_on_destroy; ///< as it was given
};

} // namespace zel
