// SPDX-License-Identifier: MIT
// The text that a variant holds, read as every type of number: against the runtime's parsers and
// the strict ones, and what was read survives being written and read again. Numbers are written as
// printf writes them; the same bytes as numbers of every type are read as every other one.
#include "zel/text/convert.h"
#include "zel/values/variant.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>

namespace {

using zel::variant;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

template <typename Call> auto unless_refused(Call call) -> std::optional<decltype(call())>
{
    try {
        return call();
    } catch (zel::exception &) {
        return std::nullopt;
    }
}

template <typename T> std::optional<T> read(variant const & source, variant::vt_type type)
{
    auto const result = unless_refused([&] { return static_cast<T>(source); });
    require(source.check_conversion(type) == result.has_value());
    if (result && *result == *result) {
        require(variant(*result) == source);
        // A fraction is written with six digits only, everything else whole.
        if (type != variant::vt_float && type != variant::vt_double) {
            zel::string const written = static_cast<zel::string>(variant(*result));
            bool const readable = type != variant::vt_int64 || *result >= T(0); // it takes no sign
            require(!readable || static_cast<T>(variant(written)) == *result);
        }
    }
    return result;
}

/// Of what `strtol` reads, the numbers of the type.
template <typename T>
void read_narrow(variant const & source, variant::vt_type type, bool is_number, std::int64_t number)
{
    std::optional<T> const result = read<T>(source, type);
    require(result.has_value() == (is_number && number == static_cast<T>(number)));
    require(!result || *result == number);
}

/// A number is itself without its fraction where that fits, or as near as the type comes.
template <typename T, typename S> void read_number(variant const & source, S number)
{
    using limits = std::numeric_limits<T>;
    constexpr bool is_integer = std::is_integral_v<T> && !std::is_same_v<T, bool>;
    auto const exact = static_cast<long double>(number);
    bool const fits = !is_integer || (exact >= limits::min() && exact <= limits::max());
    require(source.check_conversion(variant(T()).type()) == fits);
    try {
        T const value = static_cast<T>(source);
        require(fits);
        T const wanted = is_integer ? static_cast<T>(number) // of 64 bits, no double has all
                                    : static_cast<T>(static_cast<double>(number));
        require(value == wanted || (value != value && wanted != wanted));
        require((variant(value) == source) == (value == value));
    } catch (variant::exception & refusal) {
        require(!fits && refusal.get_type() == variant::exception::out_of_range);
    }
}

template <typename S> void read_everywhere(variant const & source, S number)
{
    auto const each = [&]<typename... T>() { (read_number<T>(source, number), ...); };
    each.template operator()<bool, signed char, unsigned char, short, unsigned short, std::int32_t,
                             std::uint32_t, std::int64_t, float, double>();
    bool const is_color = source.check_conversion(variant::vt_ulong);
    require(source.check_conversion(variant::vt_color) == is_color);
    require(!is_color || zel::color_ref(source) == zel::color_ref(std::uint32_t(source)));
    require(source.check_conversion(variant::vt_empty));
}

struct opened : variant {
    using variant::from_d_to_s;
    using variant::from_d_to_u;
    using variant::from_s_to_s;
    using variant::from_s_to_u;
    using variant::from_u_to_s;
    using variant::from_u_to_u;
};

/// A check takes the numbers of its range and no others, for each width.
template <typename Check, typename S>
void check_range(Check check, S number, int bits, bool into_signed)
{
    long double const power = std::ldexp(1.0L, into_signed ? bits - 1 : bits);
    bool const fits = number <= power - 1 && number >= (into_signed ? -power : 0);
    auto const result
        = unless_refused([&] { return check(number, static_cast<signed char>(bits)); });
    require(result.has_value() == fits);
    require(!fits || *result == std::trunc(static_cast<long double>(number)));
}

void check_numbers(std::uint64_t word, int bits)
{
    auto const number = static_cast<std::int64_t>(word);
    read_everywhere(variant(), 0);
    read_everywhere(variant(number % 2 != 0), number % 2 != 0);
    read_everywhere(zel::color_ref(static_cast<std::uint32_t>(word)),
                    static_cast<std::uint32_t>(word));
    auto const as_each = [&]<typename... S>() { (read_everywhere(S(number), S(number)), ...); };
    as_each.template operator()<signed char, unsigned char, short, unsigned short, std::int32_t,
                                std::uint32_t, std::int64_t, float>();
    float const fraction = std::bit_cast<float>(static_cast<std::uint32_t>(word));
    read_everywhere(fraction, fraction);
    check_range(opened::from_u_to_u, word, bits, false);
    check_range(opened::from_u_to_s, word, bits, true);
    check_range(opened::from_s_to_u, number, bits, false);
    check_range(opened::from_s_to_s, number, bits, true);
    auto const whole = static_cast<double>(number);
    for (double const each : {std::bit_cast<double>(word), whole, whole + 0.5, 2 * whole}) {
        read_everywhere(each, each);
        check_range(opened::from_d_to_u, each, bits, false);
        check_range(opened::from_d_to_s, each, bits, true);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * data, std::size_t size)
{
    zel::string const text(std::string(reinterpret_cast<char const *>(data), size));
    char const * const characters = text.c_str();
    variant const source(text);

    char * end = nullptr;
    double const number = std::strtod(characters, &end);
    std::optional<double> const real = read<double>(source, variant::vt_double);
    require(real.has_value() == (end != characters));
    require(!real || std::bit_cast<std::uint64_t>(*real) == std::bit_cast<std::uint64_t>(number));
    std::optional<float> const rounded = read<float>(source, variant::vt_float);
    require(rounded.has_value() == real.has_value());
    require(!rounded || *rounded == static_cast<float>(number) || *rounded != *rounded);

    std::int64_t const integer = std::strtol(characters, &end, 0);
    bool const is_number = end != characters;
    read_narrow<signed char>(source, variant::vt_char, is_number, integer);
    read_narrow<unsigned char>(source, variant::vt_uchar, is_number, integer);
    read_narrow<short>(source, variant::vt_short, is_number, integer);
    read_narrow<unsigned short>(source, variant::vt_ushort, is_number, integer);

    require(read<std::int32_t>(source, variant::vt_long)
            == unless_refused([&] { return zel::convert::stringToInt32(characters); }));
    require(read<std::uint32_t>(source, variant::vt_ulong)
            == unless_refused([&] { return zel::convert::stringToUInt32(characters); }));

    std::optional<std::int64_t> const leading = read<std::int64_t>(source, variant::vt_int64);
    errno = 0;
    std::int64_t const digits = std::strtoll(characters, nullptr, 10);
    bool const has_digits = *characters >= '0' && *characters <= '9';
    require(leading.has_value() == (has_digits && errno == 0));
    require(!leading || *leading == digits);

    std::string lower = characters;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    std::optional<bool> const truth = read<bool>(source, variant::vt_bool);
    require(truth.value_or(false) == (lower == "true" || lower == "1"));
    require(truth.has_value() == (truth.value_or(false) || lower == "false" || lower == "0"));

    // The same bytes as a number.
    std::uint64_t word = 0;
    std::memcpy(&word, data, std::min(size, sizeof word));
    check_numbers(word, size > 8 ? data[8] % 64 + 1 : 64);
    char printed[32];
    std::snprintf(printed, sizeof printed, "%g", std::bit_cast<double>(word));
    require(static_cast<zel::string>(variant(std::bit_cast<double>(word))) == printed);
    return 0;
}
