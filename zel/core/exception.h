// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/text/string.h"
#include <cstdint>
#include <span>

namespace zel {

/// The root of the failures that the library reports: a message and a number.
///
/// Raised by value as the exact class, caught as that class or as this one. Each class numbers its
/// own reasons from 1, so the number means something only together with the class; 0 is no reason.
/// The message is the text of the reason, a blank, and as a rule the name of the operation. It does
/// not derive from `std::exception`, whose family passes through the library unwrapped.
/// \code
///     try {
///         count = zel::convert::stringToUInt32(text);
///     } catch (zel::exception & failure) {
///         report(failure.get_message());
///     }
/// \endcode
class ZEL_API exception {
public:
    exception() = default;
    /// With a message of its own; the reason is 0 unless it is given.
    exception(string const & message);
    exception(std::uint32_t type, string const & message);
    exception(exception const &) = default;
    exception & operator=(exception const &) = default;
    virtual ~exception();

    /// The text. An empty one becomes "Unknown Exception" at the first call, which is therefore not
    /// for two threads at once.
    string const & get_message();

    /// The reason, an `exc_type` of the object's class, or 0.
    std::uint32_t get_type() noexcept { return type_; }
    std::uint32_t get_exc_type() noexcept { return type_; }

protected:
    /// Without a message, which `get_message` then makes.
    explicit exception(std::uint32_t type);

    /// Composes the message in the way of the whole family: the text of the reason, a blank, then
    /// `extra`. A type that is no reason of the class has no text; a null `extra` is left out
    /// together with its blank, an empty one is not.
    /// \param texts  of the reasons 1, 2, 3 and so on.
    exception(std::uint32_t type, std::span<char const * const> texts, char const * extra);
    exception(std::uint32_t type, std::span<char const * const> texts, string const & extra);

private:
    string message_;
    std::uint32_t type_ = 0;
};

/// A null pointer, exhausted memory, a range outside an array.
class ZEL_API memory_exception : public exception {
public:
    /// The reasons, which `get_type()` tells.
    enum exc_type : std::uint32_t {
        null_pointer = 1,
        allocation_failed = 2,
        not_related_object = 3,
        invalid_array_boundary = 4,
        resource = 5,
    };

    /// `text` goes behind the reason.
    memory_exception(exc_type type, string const & text);
    memory_exception(memory_exception const &) = default;
    memory_exception & operator=(memory_exception const &) = default;
    ~memory_exception() override;
};

/// What the system says about the calling thread's last error, line end included, as
/// `FormatMessage` documents it; empty for a code that it does not know.
/// \throws std::bad_alloc  and nothing of the library's own.
ZEL_API string get_last_error();

/// Copies `count` bytes forwards. No terminator is written and none looked for.
/// \param destination  must not overlap `source`.
ZEL_API void char_buffer_copy(char * destination, char const * source, unsigned int count) noexcept;

} // namespace zel
