// SPDX-License-Identifier: MIT
// The text that a variant holds, read as every type of number: against the runtime's parsers and
// the strict ones, and what was read survives being written and read again. Numbers are written as
// printf writes them.
#include "zel/text/convert.h"
#include "zel/values/variant.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

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

    std::string word = characters;
    std::transform(word.begin(), word.end(), word.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    std::optional<bool> const truth = read<bool>(source, variant::vt_bool);
    require(truth.value_or(false) == (word == "true" || word == "1"));
    require(truth.has_value() == (truth.value_or(false) || word == "false" || word == "0"));

    // The same bytes as a number.
    double value = 0;
    std::memcpy(&value, data, std::min(size, sizeof value));
    char printed[32];
    std::snprintf(printed, sizeof printed, "%g", value);
    require(static_cast<zel::string>(variant(value)) == printed);
    return 0;
}
