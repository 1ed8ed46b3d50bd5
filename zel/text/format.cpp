// SPDX-License-Identifier: MIT
#include "zel/text/format.h"

#include "zel/base/digits.h"
#include "zel/platform/host/locale.h"
#include "zel/text/rounded_decimal.h"
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace zel {
namespace {

constexpr std::size_t longest_text = 0x7FFFFFFF; // what the runtime can report as a length
constexpr std::size_t on_stack = 1024;

[[noreturn, gnu::cold, gnu::noinline]] void raise_too_long()
{
    throw std::length_error("zel::string::format: longer than 0x7FFFFFFF bytes");
}

[[noreturn, gnu::cold, gnu::noinline]] void raise_runtime_failure(int code)
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

// The growing result: on the stack as long as it fits, then moved piece by piece to the heap, or
// only counted where nobody wants it.
class collector {
public:
    explicit collector(std::string * target)
        : target_(target)
    {
    }

    void append(char const * text, std::size_t count)
    {
        if (count > room()) [[unlikely]] {
            spill(count);
            if (count > on_stack) {
                if (target_ != nullptr) {
                    heap_.append(text, count);
                }
                spilt_ += count;
                return;
            }
        }
        std::memcpy(next_, text, count);
        next_ += count;
    }

    void fill(char c, std::size_t count)
    {
        if (count == 0) {
            return;
        }
        if (count > room()) [[unlikely]] {
            spill(count);
            if (count > on_stack) {
                if (target_ != nullptr) {
                    heap_.append(count, c);
                }
                spilt_ += count;
                return;
            }
        }
        std::memset(next_, c, count);
        next_ += count;
    }

    void put(char c)
    {
        if (room() == 0) [[unlikely]] {
            spill(1);
        }
        *next_++ = c;
    }

    // At least `count` free bytes, at most `on_stack`; `advance` takes what was written into them.
    char * reserve(std::size_t count)
    {
        if (count > room()) [[unlikely]] {
            spill(count);
        }
        return next_;
    }
    void advance(std::size_t count) { next_ += count; }
    std::size_t room() const { return static_cast<std::size_t>(buffer_ + on_stack - next_); }

    // Moves the result into the target.
    std::size_t finish()
    {
        if (spilt_ == 0) {
            std::size_t const size = staged();
            if (size != 0 && target_ != nullptr) {
                target_->assign(buffer_, size);
            }
            return size;
        }
        spill(0);
        if (target_ != nullptr) {
            *target_ = std::move(heap_);
        }
        return spilt_;
    }

private:
    std::size_t staged() const { return static_cast<std::size_t>(next_ - buffer_); }

    [[gnu::noinline]] void spill(std::size_t wanted)
    {
        // Each of the three is far below what would make their sum wrap. What is staged in the end
        // comes through here too, so that no result is longer.
        std::size_t const size = spilt_ + staged() + wanted;
        if (size > longest_text) {
            raise_too_long();
        }
        if (target_ != nullptr) {
            if (size > heap_.capacity()) {
                heap_.reserve(size + 64); // what follows a long text is short as a rule
            }
            heap_.append(buffer_, staged());
        }
        spilt_ += staged();
        next_ = buffer_;
    }

    std::string * target_;
    std::string heap_; // as many bytes as were spilt, or none without a target
    std::size_t spilt_ = 0;
    char * next_ = buffer_;
    char buffer_[on_stack];
};

// One conversion as it was read from the format.
struct conversion {
    bool left = false;
    bool plus = false;
    bool blank = false;
    bool alternate = false;
    bool zero = false;
    int width = 0;
    int precision = -1; // none
    char length = '\0'; // 'H' for hh, 'L' for ll, 'D' for L, else the letter itself
    char letter = '\0';

    bool has_flags() const { return left || plus || blank || alternate || zero; }
};

struct argument_list {
    explicit argument_list(std::va_list source) { va_copy(list, source); }
    argument_list(argument_list const &) = delete;
    argument_list & operator=(argument_list const &) = delete;
    ~argument_list() { va_end(list); }

    std::va_list list;
};

// Digits up to the first other byte; what exceeds an int is a text that is too long.
int read_number(char const *& p)
{
    std::uint64_t number = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        number = number * 10 + static_cast<std::uint64_t>(*p - '0');
        if (number > longest_text) {
            raise_too_long();
        }
    }
    return static_cast<int>(number);
}

// Reads from behind the '%' to behind the letter. What is no plain conversion shows as a letter
// that none of the writers takes.
char const * read_conversion(char const * p, conversion & read, argument_list & arguments)
{
    for (;; ++p) {
        switch (*p) {
        case '-':
            read.left = true;
            continue;
        case '+':
            read.plus = true;
            continue;
        case ' ':
            read.blank = true;
            continue;
        case '#':
            read.alternate = true;
            continue;
        case '0':
            read.zero = true;
            continue;
        default:
            break;
        }
        break;
    }
    if (*p == '*') {
        ++p;
        read.width = va_arg(arguments.list, int);
        if (read.width < 0) {
            if (read.width < -static_cast<int>(longest_text)) {
                raise_too_long();
            }
            read.left = true;
            read.width = -read.width;
        }
    } else {
        read.width = read_number(p);
    }
    if (*p == '.') {
        ++p;
        if (*p == '*') {
            ++p;
            read.precision = va_arg(arguments.list, int);
            if (read.precision < 0) {
                read.precision = -1;
            }
        } else {
            read.precision = read_number(p);
        }
    }
    switch (*p) {
    case 'h':
    case 'l':
        read.length = *p++;
        if (*p == read.length) {
            read.length = *p++ == 'h' ? 'H' : 'L';
        }
        break;
    case 'L':
        read.length = 'D';
        ++p;
        break;
    case 'j':
    case 'z':
    case 't':
        read.length = *p++;
        break;
    default:
        break;
    }
    read.letter = *p;
    return *p == '\0' ? p : p + 1;
}

bool read_signed(argument_list & arguments, char length, std::int64_t & value)
{
    switch (length) {
    case '\0':
        value = va_arg(arguments.list, int);
        return true;
    case 'H':
        value = static_cast<signed char>(va_arg(arguments.list, int));
        return true;
    case 'h':
        value = static_cast<short>(va_arg(arguments.list, int));
        return true;
    case 'l':
    case 'L':
    case 'j':
    case 'z':
    case 't':
        static_assert(sizeof(long) == 8 && sizeof(std::size_t) == 8);
        value = va_arg(arguments.list, std::int64_t);
        return true;
    default:
        return false;
    }
}

bool read_unsigned(argument_list & arguments, char length, std::uint64_t & value)
{
    std::int64_t raw = 0;
    if (!read_signed(arguments, length, raw)) {
        return false;
    }
    value = static_cast<std::uint64_t>(raw);
    switch (length) {
    case '\0':
        value = static_cast<std::uint32_t>(value);
        break;
    case 'H':
        value = static_cast<std::uint8_t>(value);
        break;
    case 'h':
        value = static_cast<std::uint16_t>(value);
        break;
    default:
        break;
    }
    return true;
}

void write_integer(collector & out, conversion const & read, std::uint64_t value,
                   char const * prefix, std::size_t prefix_size)
{
    unsigned int count = 0;
    unsigned int shift = 0;
    if (read.letter == 'x' || read.letter == 'X') {
        shift = 4;
    } else if (read.letter == 'o') {
        shift = 3;
    }
    if (value == 0 && read.precision == 0) {
        count = 0;
    } else if (shift != 0) {
        count = (static_cast<unsigned int>(std::bit_width(value | 1)) + shift - 1) / shift;
    } else {
        count = count_decimal_digits(value);
    }

    std::size_t zeros = read.precision > static_cast<int>(count)
        ? static_cast<unsigned int>(read.precision) - count
        : 0;
    if (read.letter == 'o' && read.alternate && zeros == 0 && (value != 0 || count == 0)) {
        zeros = 1; // the prefix of an octal number is a digit of it
    }
    std::size_t const body = prefix_size + zeros + count;
    std::size_t const padding = static_cast<std::size_t>(read.width) > body
        ? static_cast<std::size_t>(read.width) - body
        : 0;
    bool const pad_with_zeros = read.zero && !read.left && read.precision < 0;
    if (!read.left && !pad_with_zeros) {
        out.fill(' ', padding);
    }
    for (std::size_t i = 0; i < prefix_size; ++i) {
        out.put(prefix[i]);
    }
    out.fill('0', pad_with_zeros ? zeros + padding : zeros);

    char * const digits = out.reserve(32);
    if (count != 0) {
        if (shift == 0) {
            write_decimal(digits + count, value);
        } else {
            char const * const symbols = read.letter == 'X' ? capital_digits : small_digits;
            for (unsigned int i = count; i-- > 0; value >>= shift) {
                digits[i] = symbols[value & ((1U << shift) - 1)];
            }
        }
        out.advance(count);
    }
    if (read.left) {
        out.fill(' ', padding);
    }
}

void write_text(collector & out, conversion const & read, char const * text, std::size_t count)
{
    std::size_t const padding = static_cast<std::size_t>(read.width) > count
        ? static_cast<std::size_t>(read.width) - count
        : 0;
    if (!read.left) {
        out.fill(' ', padding);
    }
    out.append(text, count);
    if (read.left) {
        out.fill(' ', padding);
    }
}

// Leaves one conversion to the runtime.
template <typename T> void write_by_runtime(collector & out, conversion const & read, T value)
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
    for (char const c : {'*', '.', '*'}) { // a negative precision is none
        *end++ = c;
    }
    if (read.length == 'D') {
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

// The text of a value for "%g" with its digits, without zeros at its end. Returns where it ends.
char * write_general(char * to, std::uint64_t digits, int count, int exponent)
{
    char text[20];
    int const precision = count;
    write_decimal(text + count, digits);
    while (count > 1 && text[count - 1] == '0') {
        --count;
    }
    auto const put = [&to](char const * from, int size) {
        std::memcpy(to, from, static_cast<std::size_t>(size));
        to += size;
    };
    if (exponent < -4 || exponent >= precision) {
        *to++ = text[0];
        if (count > 1) {
            *to++ = '.';
            put(text + 1, count - 1);
        }
        *to++ = 'e';
        *to++ = exponent < 0 ? '-' : '+';
        put(digit_pairs + 2 * (exponent < 0 ? -exponent : exponent), 2);
    } else if (exponent < 0) {
        put("0.000", 1 - exponent);
        put(text, count);
    } else {
        int const whole = exponent + 1; // the zeros among them were only not counted
        put(text, whole);
        if (count > whole) {
            *to++ = '.';
            put(text + whole, count - whole);
        }
    }
    return to;
}

// The same for "%f", with `places` digits behind the point.
char * write_fixed(char * to, std::uint64_t digits, int places)
{
    char text[20];
    int const count = std::max(static_cast<int>(count_decimal_digits(digits)), places + 1);
    std::memset(text, '0', sizeof(text));
    write_decimal(text + count, digits);
    int const whole = count - places;
    std::memcpy(to, text, static_cast<std::size_t>(whole));
    to += whole;
    if (places > 0) {
        *to++ = '.';
        std::memcpy(to, text + whole, static_cast<std::size_t>(places));
        to += places;
    }
    return to;
}

// The short way for values of a usual size: exact integers and no table of a hundred powers.
bool write_usual_value(collector & out, conversion const & read, double value)
{
    int const precision = read.precision < 0 ? 6 : read.precision;
    std::uint64_t digits = 0;
    char text[48];
    char * end = text;
    if (std::signbit(value)) {
        *end++ = '-';
    }
    if (read.letter == 'g') {
        int const count = std::max(precision, 1);
        int exponent = 0;
        if (count > 17 || !round_to_digits(value, count, digits, exponent)) {
            return false;
        }
        end = write_general(end, digits, count, exponent);
    } else {
        if (precision > 17 || !round_scaled(value, precision, digits)) {
            return false;
        }
        end = write_fixed(end, digits, precision);
    }
    write_text(out, read, text, static_cast<std::size_t>(end - text));
    return true;
}

bool write_floating(collector & out, conversion const & read, argument_list & arguments)
{
    if (read.length == 'D') {
        write_by_runtime(out, read, va_arg(arguments.list, long double));
        return true;
    }
    if (read.length != '\0' && read.length != 'l') {
        return false;
    }
    double const value = va_arg(arguments.list, double);
    bool const plain = (read.letter == 'g' || read.letter == 'f')
        && !(read.plus || read.blank || read.alternate || read.zero)
        && std::fegetround() == FE_TONEAREST && platform::decimal_point_is_period();
    if (plain && write_usual_value(out, read, value)) {
        return true;
    }
    // A NaN has other names in some standard libraries than in the runtime.
    if (plain && read.letter == 'g' && read.precision < 64 && std::isfinite(value)) {
        char digits[128]; // sign, 63 digits, point, four zeros in front or an exponent
        auto const end
            = std::to_chars(digits, digits + sizeof(digits), value, std::chars_format::general,
                            read.precision < 0 ? 6 : read.precision);
        write_text(out, read, digits, static_cast<std::size_t>(end.ptr - digits));
    } else {
        write_by_runtime(out, read, value);
    }
    return true;
}

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
        if (read.length != '\0') {
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
            // Within the precision there may be no NUL, and nothing behind it may be read.
            auto const limit = static_cast<std::size_t>(read.precision);
            auto const * const end = static_cast<char const *>(std::memchr(text, '\0', limit));
            count = end == nullptr ? limit : static_cast<std::size_t>(end - text);
        }
        write_text(out, read, text, count);
        return true;
    }
    case 'c': {
        if (read.length != '\0') {
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
        if (read.length != '\0') {
            return false;
        }
        write_by_runtime(out, read, va_arg(arguments.list, void const *));
        return true;
    default:
        return false;
    }
}

// What is rare stays with the runtime altogether: positions, wide texts, %n, %m, grouping.
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
    int const error = errno; // of the caller, for %m
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
