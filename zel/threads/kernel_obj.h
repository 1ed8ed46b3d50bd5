// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include <cstdint>

namespace zel {

/// Owns a handle of the platform layer, and has a name. It has no operation to wait or to lock.
///
/// A derived class stores the handle. The handle then belongs to the object, which closes it. Any
/// thread may read both; destruction must not overlap any use.
class ZEL_API kernel_obj : public ref_obj {
public:
    /// Raised when there is no handle or none could be created.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            invalid_handle = 1,
            failed_to_create_object = 2,
        };

        /// \param text  follows the text of the reason.
        exception(exc_type type, string const & text);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    /// Without a handle. This class only stores the name.
    kernel_obj(string const & name = "");
    ~kernel_obj() override;

    /// The name as given.
    string const & get_name() const noexcept { return name_; }

    /// The handle, for the functions of `zel/platform/kernel_objects.h`; null when there is none.
    void * get_handle() const noexcept { return handle; }

private:
    string name_;

protected:
    void * handle = nullptr; ///< closed with the object; null for none
};

static_assert(sizeof(kernel_obj) == sizeof(ref_obj) + sizeof(string) + sizeof(void *));

} // namespace zel
