// SPDX-License-Identifier: MIT
#pragma once

#include "zel/core/exception.h"
#include <cstdint>
#include <string>

/// The message of the zel exception that `call` raises, of class `Class` or derived from it.
/// \returns an empty text when it raises nothing.
template <typename Class = zel::exception, typename Call> std::string message_raised(Call && call)
{
    try {
        static_cast<void>(call());
    } catch (Class & failure) {
        return failure.get_message();
    }
    return {};
}

/// The same for the number. \returns 0 when nothing is raised.
template <typename Class = zel::exception, typename Call> std::uint32_t type_raised(Call && call)
{
    try {
        static_cast<void>(call());
    } catch (Class & failure) {
        return failure.get_type();
    }
    return 0;
}
