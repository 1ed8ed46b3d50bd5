// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include <cstdint>

namespace zel {

/// Owns a handle of the platform layer, and has a name; by itself it can neither wait nor lock.
///
/// A derived class stores the handle; from then on it belongs to the object and is closed with it.
/// Both may be read by any thread; destruction must not overlap any use.
class ZEL_API kernel_obj : public ref_obj {
public:
    /// There is no handle, or none could be had.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            invalid_handle = 1,
            failed_to_create_object = 2,
        };

        /// `text` goes behind the reason.
        exception(exc_type type, string const & text);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    /// Without a handle; the name is kept and means nothing more here.
    kernel_obj(string const & name = "");
    ~kernel_obj() override;

    /// As it was given.
    string const & get_name() const noexcept { return name_; }

    /// For the functions of `zel/platform/kernel_objects.h`; null when there is none.
    void * get_handle() const noexcept { return handle; }

private:
    string name_;

protected:
    void * handle = nullptr; ///< closed with the object; null for none
};

static_assert(sizeof(kernel_obj) == sizeof(ref_obj) + sizeof(string) + sizeof(void *));

} // namespace zel
