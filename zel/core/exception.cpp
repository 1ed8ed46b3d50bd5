// SPDX-License-Identifier: MIT
#include "zel/core/exception.h"

#include "zel/platform/host/failure.h"
#include <cstring>
#include <string_view>

namespace zel {
namespace {

string reason_text(std::uint32_t type, std::span<char const * const> texts)
{
    // Type 0 wraps to the largest number, so it has no text either.
    return type - 1U < texts.size() ? string(texts[type - 1U]) : string();
}

constexpr char const * memory_reasons[] = {
    "Zel Memory Exception: Null Pointer",
    "Zel Memory Exception: Allocation Failed",
    "Zel Memory Exception: Not releated object",
    "Zel Memory Exception: Invalid array boundary",
    "Zel Memory Exception: Resource",
};

} // namespace

exception::exception(string const & message)
    : message_(message)
{
}

exception::exception(std::uint32_t type, string const & message)
    : message_(message)
    , type_(type)
{
}

exception::exception(std::uint32_t type)
    : type_(type)
{
}

exception::exception(std::uint32_t type, std::span<char const * const> texts, char const * extra)
    : message_(reason_text(type, texts))
    , type_(type)
{
    if (extra != nullptr) {
        message_ += ' ';
        message_ += extra;
    }
}

exception::exception(std::uint32_t type, std::span<char const * const> texts, string const & extra)
    : message_(reason_text(type, texts))
    , type_(type)
{
    message_ += ' ';
    message_ += extra;
}

exception::~exception() = default;

string const & exception::get_message()
{
    if (message_.empty()) {
        message_ = "Unknown Exception";
    }
    return message_;
}

memory_exception::memory_exception(exc_type type, string const & text)
    : exception(type, memory_reasons, text)
{
}

memory_exception::~memory_exception() = default;

string get_last_error() { return platform::error_text(platform::last_error()); }

void char_buffer_copy(char * destination, char const * source, unsigned int count) noexcept
{
    if (count != 0) { // memcpy must not get null pointers, even for 0 bytes
        std::memcpy(destination, source, count);
    }
}

} // namespace zel
