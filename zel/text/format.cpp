// SPDX-License-Identifier: MIT
#include "zel/text/format.h"

#include "zel/text/format_collector.h"
#include "zel/text/format_conversion.h"
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace zel {
namespace formatting {

void raise_too_long()
{
    throw std::length_error("zel::string::format: longer than 0x7FFFFFFF bytes");
}

void raise_runtime_failure(int code)
{
    switch (code) {
    case EOVERFLOW:
        raise_too_long();
    case ENOMEM:
        throw std::bad_alloc();
    case EILSEQ:
        throw std::invalid_argument("zel::string::format: a character has no encoding");
    default:
        throw std::invalid_argument("zel::string::format: not a format");
    }
}

namespace {

template <typename T> void write_one_by_runtime(collector & out, conversion const & read, T value)
{
    char text[16];
    char * end = text;
    *end++ = '%';
    for (auto const & [set, flag] :
         {std::pair(read.left, '-'), std::pair(read.plus, '+'), std::pair(read.blank, ' '),
          std::pair(read.alternate, '#'), std::pair(read.zero, '0')}) {
        if (set) {
            *end++ = flag;
        }
    }
    for (char const c : {'*', '.', '*'}) { // a negative precision counts as missing
        *end++ = c;
    }
    if (read.length == length_modifier::long_double) {
        *end++ = 'L';
    }
    *end++ = read.letter;
    *end = '\0';

    auto const print = [&](char * to, std::size_t size) {
        int const count = std::snprintf(to, size, text, read.width, read.precision, value);
        if (count < 0) {
            raise_runtime_failure(errno);
        }
        return static_cast<std::size_t>(count);
    };
    char * const to = out.reserve(64);
    std::size_t const count = print(to, out.room());
    if (count < out.room()) {
        out.advance(count);
    } else {
        std::string whole(count, '\0');
        print(whole.data(), count + 1);
        out.append(whole.data(), count);
    }
}

} // namespace

void write_by_runtime(collector & out, conversion const & read, int value)
{
    write_one_by_runtime(out, read, value);
}
void write_by_runtime(collector & out, conversion const & read, double value)
{
    write_one_by_runtime(out, read, value);
}
void write_by_runtime(collector & out, conversion const & read, long double value)
{
    write_one_by_runtime(out, read, value);
}
void write_by_runtime(collector & out, conversion const & read, char const * value)
{
    write_one_by_runtime(out, read, value);
}
void write_by_runtime(collector & out, conversion const & read, void const * value)
{
    write_one_by_runtime(out, read, value);
}

} // namespace formatting

namespace {

using namespace formatting;

bool write_conversion(collector & out, conversion const & read, argument_list & arguments)
{
    switch (read.letter) {
    case 'd':
    case 'i': {
        std::int64_t value = 0;
        if (!read_signed(arguments, read.length, value)) {
            return false;
        }
        auto const bits = static_cast<std::uint64_t>(value);
        char const * const sign = value < 0 ? "-" : read.plus ? "+" : read.blank ? " " : "";
        write_integer(out, read, value < 0 ? 0 - bits : bits, sign, *sign != '\0');
        return true;
    }
    case 'u':
    case 'x':
    case 'X':
    case 'o': {
        std::uint64_t value = 0;
        if (!read_unsigned(arguments, read.length, value)) {
            return false;
        }
        bool const prefixed = read.alternate && value != 0 && (read.letter | 0x20) == 'x';
        write_integer(out, read, value, read.letter == 'X' ? "0X" : "0x", prefixed ? 2 : 0);
        return true;
    }
    case 's': {
        if (read.length != length_modifier::none) {
            return false;
        }
        char const * const text = va_arg(arguments.list, char const *);
        if (text == nullptr || read.plus || read.blank || read.alternate || read.zero) {
            write_by_runtime(out, read, text);
            return true;
        }
        std::size_t count = 0;
        if (read.precision < 0) {
            count = std::strlen(text);
        } else {
            // There may be no NUL within the precision, and bytes beyond the precision must not be
            // read.
            auto const limit = static_cast<std::size_t>(read.precision);
            auto const * const end = static_cast<char const *>(std::memchr(text, '\0', limit));
            count = end == nullptr ? limit : static_cast<std::size_t>(end - text);
        }
        write_text(out, read, text, count);
        return true;
    }
    case 'c': {
        if (read.length != length_modifier::none) {
            return false;
        }
        int const value = va_arg(arguments.list, int);
        if (read.plus || read.blank || read.alternate || read.zero) {
            write_by_runtime(out, read, value);
        } else {
            char const c = static_cast<char>(value);
            write_text(out, read, &c, 1);
        }
        return true;
    }
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
        return write_floating(out, read, arguments);
    case 'p':
        if (read.length != length_modifier::none) {
            return false;
        }
        write_by_runtime(out, read, va_arg(arguments.list, void const *));
        return true;
    default:
        return false;
    }
}

// The slow path: the runtime formats the whole text if it contains anything rare: positions, wide
// texts, %n, %m, grouping.
[[gnu::noinline]] std::size_t format_by_runtime(std::string * target, char const * format_text,
                                                std::va_list arguments)
{
    argument_list again(arguments);
    char buffer[on_stack];
    int const count = std::vsnprintf(buffer, sizeof(buffer), format_text, arguments);
    if (count < 0) {
        raise_runtime_failure(errno);
    }
    auto const size = static_cast<std::size_t>(count);
    if (target == nullptr) {
        return size;
    }
    if (size >= sizeof(buffer)) {
        std::string text(size, '\0');
        std::vsnprintf(text.data(), size + 1, format_text, again.list);
        *target = std::move(text);
    } else if (size != 0) {
        target->assign(buffer, size);
    }
    return size;
}

std::size_t format_text_into(std::string * target, char const * format_text, std::va_list arguments)
{
    int const error = errno; // the caller's, which %m prints
    argument_list own(arguments);
    collector out(target);
    for (char const * p = format_text;;) {
        char const * const percent = std::strchr(p, '%');
        if (percent == nullptr) {
            out.append(p, std::strlen(p));
            break;
        }
        out.append(p, static_cast<std::size_t>(percent - p));
        if (percent[1] == '%') {
            out.put('%');
            p = percent + 2;
            continue;
        }
        conversion read;
        p = read_conversion(percent + 1, read, own);
        if (!write_conversion(out, read, own)) {
            errno = error;
            return format_by_runtime(target, format_text, arguments);
        }
    }
    return out.finish();
}

} // namespace

std::size_t format_into(std::string & target, char const * format_text, std::va_list arguments)
{
    return format_text_into(&target, format_text, arguments);
}

std::size_t format_and_drop(char const * format_text, std::va_list arguments)
{
    return format_text_into(nullptr, format_text, arguments);
}

} // namespace zel
