// SPDX-License-Identifier: MIT
#include "zel/values/variant.h"

#include "zel/values/number_ranges.h"
#include "zel/values/number_text.h"
#include "zel/values/text_before_nul.h"
#include <algorithm>
#include <cstring>
#include <ostream>
#include <string_view>

namespace zel {
namespace {

using number_text::outcome;

constexpr char const * reasons[] = {
    "Zel Variant Exception: Data convert error",
    "Zel Variant Exception: out of range",
};

[[noreturn, gnu::cold, gnu::noinline]] void refuse(outcome reason)
{
    using failure = variant::exception;
    throw failure(reason == outcome::out_of_range ? failure::out_of_range
                                                  : failure::data_convert_error,
                  nullptr);
}

template <typename T> T checked(bool fits, T value)
{
    if (!fits) [[unlikely]] {
        refuse(outcome::out_of_range);
    }
    return value;
}

/// The number of bits of an integer type; 0 for any other type.
constexpr int width_of(variant::vt_type type)
{
    switch (type) {
    case variant::vt_char:
    case variant::vt_uchar:
        return 8;
    case variant::vt_short:
    case variant::vt_ushort:
        return 16;
    case variant::vt_long:
    case variant::vt_ulong:
    case variant::vt_color:
        return 32;
    case variant::vt_int64:
        return 64;
    default:
        return 0;
    }
}

outcome text_to_bits(string const & text, variant::vt_type target, std::uint64_t & result)
{
    switch (target) {
    case variant::vt_long: {
        std::int32_t value = 0;
        outcome const read = number_text::read_signed(text, value);
        result = static_cast<std::uint64_t>(value);
        return read;
    }
    case variant::vt_ulong:
    case variant::vt_color: {
        std::uint32_t value = 0;
        outcome const read = number_text::read_unsigned(text.c_str(), value);
        result = value;
        return read;
    }
    case variant::vt_int64: {
        std::int64_t value = 0;
        outcome const read = number_text::read_leading_digits(text.c_str(), value);
        result = static_cast<std::uint64_t>(value);
        return read;
    }
    default: {
        std::int32_t value = 0;
        outcome const read = number_text::read_any_base(text.c_str(), value);
        result = static_cast<std::uint64_t>(value);
        bool const into_signed = target == variant::vt_char || target == variant::vt_short;
        int const width = width_of(target);
        bool const fits = into_signed ? fits_s_to_s(value, width) : fits_s_to_u(value, width);
        return read != outcome::done || fits ? read : outcome::out_of_range;
    }
    }
}

std::uint32_t length_before_nul(char const * text, std::uint32_t limit)
{
    void const * const end = text == nullptr ? nullptr : std::memchr(text, '\0', limit);
    return end == nullptr ? limit
                          : static_cast<std::uint32_t>(static_cast<char const *>(end) - text);
}

} // namespace

variant::exception::exception(exc_type type, char const * text)
    : zel::exception(type, reasons, text)
{
}

variant::exception::~exception() = default;

// A value in the form used for conversions: numbers widened, texts by pointer.
struct variant::view {
    enum kind_type : unsigned char { nothing, truth, of_unsigned, of_signed, floating, text };

    kind_type kind = nothing;
    std::uint64_t bits = 0; // truth, of_unsigned, of_signed
    double number = 0.0; // floating
    string const * characters = nullptr; // text

    static view of(std::int64_t value)
    {
        return {.kind = of_signed, .bits = static_cast<std::uint64_t>(value)};
    }
    static view of(std::uint64_t value) { return {.kind = of_unsigned, .bits = value}; }
    static view of(double value) { return {.kind = floating, .number = value}; }

    outcome to_bool(bool & result) const noexcept;
    outcome to_bits(vt_type target, std::uint64_t & result) const noexcept;
    outcome to_double(double & result) const;
    std::string_view to_text(char (&buffer)[number_text::longest]) const noexcept;
};

variant::view variant::look() const noexcept
{
    // Integers are cut to the width of their tag, because a derived class may have changed only the
    // tag.
    switch (type_) {
    case vt_bool:
        return {.kind = view::truth, .bits = truth_payload()};
    case vt_char:
        return view::of(std::int64_t{static_cast<signed char>(value_.bits)});
    case vt_uchar:
        return view::of(std::uint64_t{static_cast<unsigned char>(value_.bits)});
    case vt_short:
        return view::of(std::int64_t{static_cast<short>(value_.bits)});
    case vt_ushort:
        return view::of(std::uint64_t{static_cast<unsigned short>(value_.bits)});
    case vt_long:
        return view::of(std::int64_t{static_cast<std::int32_t>(value_.bits)});
    case vt_ulong:
    case vt_color:
        return view::of(std::uint64_t{static_cast<std::uint32_t>(value_.bits)});
    case vt_int64:
        return view::of(static_cast<std::int64_t>(value_.bits));
    case vt_float:
        return view::of(double{float_payload()});
    case vt_double:
        return view::of(double_payload());
    case vt_string:
        return {.kind = view::text, .characters = value_.text};
    default:
        return {};
    }
}

outcome variant::view::to_bool(bool & result) const noexcept
{
    if (kind == text) {
        return number_text::read_bool(characters->c_str(), result);
    }
    result = kind == floating ? number != 0.0 : bits != 0; // a NaN reads as true
    return outcome::done;
}

outcome variant::view::to_bits(vt_type target, std::uint64_t & result) const noexcept
{
    int const width = width_of(target);
    bool const into_signed = (target & signed_types) != 0;
    bool fits = false;
    switch (kind) {
    case text:
        return text_to_bits(*characters, target, result);
    case floating:
        if (into_signed) {
            fits = fits_d_to_s(number, width);
            result = fits ? static_cast<std::uint64_t>(static_cast<std::int64_t>(number)) : 0;
        } else {
            fits = fits_d_to_u(number, width);
            result = fits ? static_cast<std::uint64_t>(number) : 0;
        }
        break;
    case of_signed: {
        auto const value = static_cast<std::int64_t>(bits);
        fits = into_signed ? fits_s_to_s(value, width) : fits_s_to_u(value, width);
        result = bits;
        break;
    }
    default:
        fits = into_signed ? fits_u_to_s(bits, width) : fits_u_to_u(bits, width);
        result = bits;
    }
    return fits ? outcome::done : outcome::out_of_range;
}

outcome variant::view::to_double(double & result) const
{
    switch (kind) {
    case text:
        return number_text::read_double(characters->c_str(), result);
    case floating:
        result = number;
        break;
    case of_signed:
        result = static_cast<double>(static_cast<std::int64_t>(bits));
        break;
    default:
        result = static_cast<double>(bits);
    }
    return outcome::done;
}

std::string_view variant::view::to_text(char (&buffer)[number_text::longest]) const noexcept
{
    switch (kind) {
    case text:
        return characters->c_str();
    case truth:
        return bits != 0 ? "true" : "false";
    case of_signed:
    case of_unsigned: // has at most 32 bits
        return {buffer, number_text::write_integer(buffer, static_cast<std::int64_t>(bits))};
    case floating:
        return {buffer, number_text::write_double(buffer, number)};
    default:
        return {};
    }
}

variant::variant(char const * text, std::uint32_t length)
    : variant(payload{.text = new string(text, length_before_nul(text, length))}, vt_string)
{
}

variant & variant::operator=(string const & text)
{
    if (type_ == vt_string) {
        *value_.text = text;
        return *this;
    }
    return store(payload{.text = new string(text)}, vt_string);
}

variant & variant::operator=(string && text)
{
    if (type_ == vt_string) {
        *value_.text = std::move(text);
        return *this;
    }
    return store(payload{.text = new string(std::move(text))}, vt_string);
}

void variant::type(vt_type type)
{
    if (type == type_) {
        return;
    }
    if (type == vt_string) {
        value_ = payload{.text = new string};
    } else if (type_ == vt_string) {
        store(bits_of(0), type);
    }
    type_ = type;
}

bool variant::read_bool() const
{
    bool result = false;
    if (outcome const read = look().to_bool(result); read != outcome::done) [[unlikely]] {
        refuse(read);
    }
    return result;
}

std::uint64_t variant::read_bits(vt_type target) const
{
    std::uint64_t result = 0;
    outcome const read = type_ == vt_string ? text_to_bits(*value_.text, target, result)
                                            : look().to_bits(target, result);
    if (read != outcome::done) [[unlikely]] {
        refuse(read);
    }
    return result;
}

double variant::read_double() const
{
    double result = 0.0;
    if (outcome const read = look().to_double(result); read != outcome::done) [[unlikely]] {
        refuse(read);
    }
    return result;
}

variant::operator string() const
{
    char buffer[number_text::longest];
    return look().to_text(buffer);
}

bool variant::check_conversion(vt_type target) const
{
    if (target == type_) {
        return true;
    }
    if (width_of(target) != 0) {
        std::uint64_t result = 0;
        return look().to_bits(target, result) == outcome::done;
    }
    switch (target) {
    case vt_bool: {
        bool result = false;
        return look().to_bool(result) == outcome::done;
    }
    case vt_float:
    case vt_double: {
        double result = 0.0;
        return look().to_double(result) == outcome::done;
    }
    default:
        return true; // every value has a text, and an unknown type needs no value
    }
}

bool variant::equals(variant const & other) const
{
    if (type_ == vt_string && other.type_ == vt_string) {
        return equal_before_nul(*value_.text, *other.value_.text);
    }
    switch (type_) {
    case vt_empty:
        return other.type_ == vt_empty;
    case vt_bool: {
        bool result = false;
        return other.look().to_bool(result) == outcome::done && result == operator bool();
    }
    case vt_float: {
        double result = 0.0;
        return other.look().to_double(result) == outcome::done
            && static_cast<float>(result) == float_payload();
    }
    case vt_double: {
        double result = 0.0;
        return other.look().to_double(result) == outcome::done && result == double_payload();
    }
    case vt_string: {
        char buffer[number_text::longest];
        return *value_.text == other.look().to_text(buffer);
    }
    default: {
        std::uint64_t result = 0;
        return other.look().to_bits(type_, result) == outcome::done && result == look().bits;
    }
    }
}

std::ostream & operator<<(std::ostream & stream, variant const & value)
{
    char buffer[number_text::longest];
    return stream << value.look().to_text(buffer);
}

void variant::change_type(vt_type target, variant const & source)
{
    type(target);
    if (width_of(target) != 0) {
        value_ = bits_of(source.read_bits(target));
        return;
    }
    switch (target) {
    case vt_bool:
        value_ = bits_of(source.read_bool());
        break;
    case vt_float:
        value_ = bits_of(static_cast<float>(source.read_double()));
        break;
    case vt_double:
        value_ = bits_of(source.read_double());
        break;
    case vt_string:
        if (source.type_ == vt_string) {
            *value_.text = *source.value_.text;
        } else {
            char buffer[number_text::longest];
            *value_.text = source.look().to_text(buffer);
        }
        break;
    default:
        break;
    }
}

std::uint64_t variant::from_u_to_u(std::uint64_t value, signed char bits)
{
    return checked(fits_u_to_u(value, bits), value);
}

std::uint64_t variant::from_s_to_u(std::int64_t value, signed char bits)
{
    return checked(fits_s_to_u(value, bits), static_cast<std::uint64_t>(value));
}

std::int64_t variant::from_u_to_s(std::uint64_t value, signed char bits)
{
    return checked(fits_u_to_s(value, bits), static_cast<std::int64_t>(value));
}

std::int64_t variant::from_s_to_s(std::int64_t value, signed char bits)
{
    return checked(fits_s_to_s(value, bits), value);
}

std::uint64_t variant::from_d_to_u(double value, signed char bits)
{
    return static_cast<std::uint64_t>(checked(fits_d_to_u(value, bits), value));
}

std::int64_t variant::from_d_to_s(double value, signed char bits)
{
    return static_cast<std::int64_t>(checked(fits_d_to_s(value, bits), value));
}

} // namespace zel
