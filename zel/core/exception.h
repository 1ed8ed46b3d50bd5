// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/text/string.h"
#include <cstdint>
#include <span>

namespace zel {

/// The root of all exceptions that the library raises: a message and a number.
///
/// It is raised by value as its exact class, and caught as that class or as this one. Each class
/// numbers its own reasons from 1, so the number has a meaning only together with the class; 0
/// stands for no reason. The message is the text of the reason, a blank, and usually the name of
/// the operation. This class does not derive from `std::exception`; standard exceptions pass
/// through the library unchanged.
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

    /// The text. An empty text becomes "Unknown Exception" at the first call. That call writes, so
    /// two threads must not make it at the same time.
    string const & get_message();

    /// The reason, an `exc_type` of the object's class, or 0.
    std::uint32_t get_type() noexcept { return type_; }
    std::uint32_t get_exc_type() noexcept { return type_; }

protected:
    /// Without a message, which `get_message` then makes.
    explicit exception(std::uint32_t type);

    /// Composes the message as all classes of the family do: the text of the reason, a blank, then
    /// `extra`. A type that is no reason of the class has no text. A null `extra` is left out
    /// together with the blank; an empty one is not.
    /// \param texts  the texts of reasons 1, 2, 3 and so on.
    exception(std::uint32_t type, std::span<char const * const> texts, char const * extra);
    exception(std::uint32_t type, std::span<char const * const> texts, string const & extra);

private:
    string message_;
    std::uint32_t type_ = 0;
};

/// Raised for a null pointer, exhausted memory or a range outside an array.
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

    /// \param text  follows the text of the reason.
    memory_exception(exc_type type, string const & text);
    memory_exception(memory_exception const &) = default;
    memory_exception & operator=(memory_exception const &) = default;
    ~memory_exception() override;
};

/// The system's message for the calling thread's last error, with its line end, as `FormatMessage`
/// documents it; empty for an unknown code.
/// \throws std::bad_alloc  and no exception of the library's own.
ZEL_API string get_last_error();

/// Copies `count` bytes. It writes no terminator and does not stop at one.
/// \param destination  must not overlap `source`.
ZEL_API void char_buffer_copy(char * destination, char const * source, unsigned int count) noexcept;

} // namespace zel
