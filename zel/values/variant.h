// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include "zel/text/string.h"
#include "zel/values/color_ref.h"
#include <bit>
#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <type_traits>
#include <utility>

namespace zel {

class variant;

// clang-format off

/// Types that convert to `bool` but to no number: pointers, arrays, functions, lambdas without
/// captures.
template <typename T>
concept pointer_like = std::is_null_pointer_v<T>
    || (std::is_convertible_v<T const &, bool> && !std::is_convertible_v<T const &, int>);

/// Types from which a `variant` can be made, apart from `variant`.
template <typename T>
concept variant_value
    = std::is_constructible_v<variant, T const &> && !std::derived_from<T, variant>;

// clang-format on

/// The integer types of the host that fit 64 bits.
template <typename T>
concept host_integer = std::integral<T> && sizeof(T) <= sizeof(std::int64_t);

/// One value of twelve types, or none, that can be read as any of the twelve.
///
/// The tag tells what is stored. A read as another type converts, and raises when the value has no
/// counterpart there. Integers are checked against the range of the type read. A fractional number
/// is checked before it loses its fraction: 127.0 is a `vt_char`, 127.5 is not. Everything but 0
/// reads as true. An empty variant reads as false, 0, the empty text and black.
///
/// Numbers become decimal digits, fractional ones as "%g" writes them, with six significant digits;
/// truth values become "true" and "false". In the other direction each type has its own grammar for
/// a text, which ends at its first NUL:
///
/// | read as                 | text                                              | otherwise      |
/// |-------------------------|---------------------------------------------------|----------------|
/// | `vt_bool`               | "true", "1", "false", "0", in any case of letters | no value       |
/// | `vt_char`, `vt_short`,  | what `strtol` reads with base 0: `-5`, `0x10`,    | no value, or   |
/// | `vt_uchar`, `vt_ushort` | `010` for 8; the rest is ignored                  | out of range   |
/// | `vt_long`               | digits behind an optional sign and nothing else   | no value       |
/// | `vt_ulong`, `vt_color`  | decimal or hexadecimal digits and nothing else,   | no value       |
/// |                         | as `convert::stringToUInt64` reads them           |                |
/// | `vt_int64`              | digits, no sign; the rest is ignored              | no value, or   |
/// |                         |                                                   | out of range   |
/// | `vt_float`, `vt_double` | what `strtod` reads; the rest is ignored          | no value       |
///
/// None of this depends on the locale. A NaN is in the range of no integer type. Numbers are
/// written rounded to nearest, whatever the rounding mode of the thread, which `string::format`
/// follows. Reading a text, and converting to a floating type, are correct to the last bit in the
/// default mode, and differ by at most one unit of the last place in the others.
///
/// Every integer type of the host that is not among the twelve is stored as the type of its width
/// and sign: an `int` is a `vt_long`, and `long` and `long long` are `vt_int64`. There is no
/// unsigned type of 64 bits: such numbers become `vt_int64`, and raise when they do not fit. The
/// compiler refuses pointers, because they would become truth values; pass a text as a `string` or
/// with its length.
///
/// A plain value: any number of threads may read one object, one may write.
/// \code
///     zel::variant width(640);                           // vt_long
///     double const half = double(width) / 2;
///     width = zel::string("0x280");
///     if (width.check_conversion(zel::variant::vt_ulong)) { resize(std::uint32_t(width)); }
/// \endcode
class ZEL_API variant {
public:
    /// One bit for each type, so that a mask describes a group.
    enum vt_type : std::uint32_t {
        vt_empty = 0x0000,
        vt_bool = 0x0001,
        vt_char = 0x0002, ///< `signed char`
        vt_uchar = 0x0004, ///< `unsigned char`
        vt_short = 0x0008, ///< `short`
        vt_ushort = 0x0010, ///< `unsigned short`
        vt_long = 0x0020, ///< `std::int32_t`
        vt_ulong = 0x0040, ///< `std::uint32_t`
        vt_int64 = 0x0080, ///< `std::int64_t`
        vt_float = 0x0200,
        vt_double = 0x0400,
        vt_string = 0x0800, ///< `string`
        vt_color = 0x1000, ///< `color_ref`
    };

    /// Raised when the value cannot be read as the type.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            data_convert_error = 1, ///< the text is no value of the type
            out_of_range = 2, ///< the number does not fit
        };

        /// \param text  follows the text of the reason; null for none.
        exception(exc_type type, char const * text);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    variant() noexcept
        : variant(bits_of(0), vt_empty)
    {
    }
    /// Stores a value. A text is copied or moved.
    variant(bool value) noexcept
        : variant(bits_of(value), vt_bool)
    {
    }
    variant(signed char value) noexcept
        : variant(bits_of(value), vt_char)
    {
    }
    variant(unsigned char value) noexcept
        : variant(bits_of(value), vt_uchar)
    {
    }
    variant(short value) noexcept
        : variant(bits_of(value), vt_short)
    {
    }
    variant(unsigned short value) noexcept
        : variant(bits_of(value), vt_ushort)
    {
    }
    variant(std::int32_t value) noexcept
        : variant(bits_of(value), vt_long)
    {
    }
    variant(std::uint32_t value) noexcept
        : variant(bits_of(value), vt_ulong)
    {
    }
    variant(std::int64_t value) noexcept
        : variant(bits_of(value), vt_int64)
    {
    }
    variant(float value) noexcept
        : variant(bits_of(value), vt_float)
    {
    }
    variant(double value) noexcept
        : variant(bits_of(value), vt_double)
    {
    }
    variant(string const & text)
        : variant(payload{.text = new string(text)}, vt_string)
    {
    }
    variant(string && text)
        : variant(payload{.text = new string(std::move(text))}, vt_string)
    {
    }
    /// The first `length` bytes of `text`, fewer when a NUL ends it earlier; the empty text for a
    /// null pointer.
    variant(char const * text, std::uint32_t length);
    variant(color_ref const & color) noexcept
        : variant(bits_of(color.get_value()), vt_color)
    {
    }

    /// Stores another integer type of the host as the type of its width and sign.
    /// \throws exception  `out_of_range` for an unsigned 64-bit number that does not fit a signed
    ///                    one.
    template <host_integer T>
    variant(T value)
        : variant(stored(value))
    {
    }
    template <pointer_like T> variant(T const &) = delete;

    /// A copy, of the text too.
    variant(variant const & other)
        : variant(other.type_ == vt_string ? other.copied_text() : other.value_, other.type_)
    {
    }
    /// \param other  is empty afterwards.
    variant(variant && other) noexcept
        : variant(other.value_, other.type_)
    {
        other.type_ = vt_empty;
        other.value_ = bits_of(0);
    }
    ~variant() { release(); }

    /// A number frees a stored text; a text reuses the storage of one. When memory runs out the old
    /// value stays.
    variant & operator=(bool value) noexcept { return store(bits_of(value), vt_bool); }
    variant & operator=(signed char value) noexcept { return store(bits_of(value), vt_char); }
    variant & operator=(unsigned char value) noexcept { return store(bits_of(value), vt_uchar); }
    variant & operator=(short value) noexcept { return store(bits_of(value), vt_short); }
    variant & operator=(unsigned short value) noexcept { return store(bits_of(value), vt_ushort); }
    variant & operator=(std::int32_t value) noexcept { return store(bits_of(value), vt_long); }
    variant & operator=(std::uint32_t value) noexcept { return store(bits_of(value), vt_ulong); }
    variant & operator=(std::int64_t value) noexcept { return store(bits_of(value), vt_int64); }
    variant & operator=(float value) noexcept { return store(bits_of(value), vt_float); }
    variant & operator=(double value) noexcept { return store(bits_of(value), vt_double); }
    variant & operator=(string const & text);
    variant & operator=(string && text);
    variant & operator=(color_ref const & color) noexcept
    {
        return store(bits_of(color.get_value()), vt_color);
    }
    template <host_integer T> variant & operator=(T value) { return *this = stored(value); }
    template <pointer_like T> variant & operator=(T const &) = delete;

    /// A copy, of the text too. When memory runs out the old value stays.
    variant & operator=(variant const & other)
    {
        return other.type_ == vt_string ? *this = *other.value_.text
                                        : store(other.value_, other.type_);
    }
    /// \param other  is empty afterwards.
    variant & operator=(variant && other) noexcept
    {
        variant(std::move(other)).swap(*this);
        return *this;
    }

    /// Exchanges the values without copying a text.
    void swap(variant & other) noexcept
    {
        std::swap(value_, other.value_);
        std::swap(type_, other.type_);
    }
    friend void swap(variant & a, variant & b) noexcept { a.swap(b); }

    /// The type that is stored.
    vt_type type() const noexcept { return type_; }

    /// True if this value can be read as `target`. It depends on the value, not only on its type.
    bool check_conversion(vt_type target) const;

    /// The value, converted to the type. The object does not change.
    /// \throws exception  `data_convert_error` or `out_of_range`, as described for the class.
    operator bool() const { return type_ == vt_bool ? truth_payload() : read_bool(); }
    operator signed char() const { return read_integer<signed char>(vt_char); }
    operator unsigned char() const { return read_integer<unsigned char>(vt_uchar); }
    operator short() const { return read_integer<short>(vt_short); }
    operator unsigned short() const { return read_integer<unsigned short>(vt_ushort); }
    operator std::int32_t() const { return read_integer<std::int32_t>(vt_long); }
    operator std::uint32_t() const { return read_integer<std::uint32_t>(vt_ulong); }
    operator std::int64_t() const { return read_integer<std::int64_t>(vt_int64); }
    /// The host's other name for 64 bits.
    operator long long() const { return operator std::int64_t(); }
    operator float() const
    {
        return type_ == vt_float ? float_payload() : static_cast<float>(read_double());
    }
    operator double() const { return type_ == vt_double ? double_payload() : read_double(); }
    /// A stored text ends at its first NUL here.
    operator string() const;
    operator color_ref() const { return color_ref(read_integer<std::uint32_t>(vt_color)); }

    /// True if `other`, read as the type of this value, is equal to it. So it is not symmetric: the
    /// number 1 equals the text "01", but the text "01" does not equal the number 1. A value that
    /// cannot be read as that type is different, and so is a NaN. A text on the right ends at its
    /// first NUL, a text on the left does not. An empty variant equals only an empty variant.
    bool operator==(variant const & other) const
    {
        return type_ == other.type_ && (type_ & integer_types) != 0
            ? same_integer(type_, value_, other.value_)
            : equals(other);
    }
    bool operator!=(variant const & other) const { return !(*this == other); }

    /// The same with a plain value on one side; the sides are not exchanged.
    template <variant_value T> friend bool operator==(variant const & left, T const & right)
    {
        return left == variant(right);
    }
    template <variant_value T> friend bool operator==(T const & left, variant const & right)
    {
        return variant(left) == right;
    }

    /// Compares a text with the variant read as a `string`, in either order.
    template <typename T>
    requires std::derived_from<std::remove_cvref_t<T>, std::string>
    friend string operator+(T && left, variant const & right)
    {
        return string(std::forward<T>(left)) += right.operator string();
    }
    template <typename T>
    requires std::derived_from<std::remove_cvref_t<T>, std::string>
    friend string operator+(variant const & left, T && right)
    {
        return left.operator string() += right;
    }

    /// Writes the value read as a `string`.
    friend ZEL_API std::ostream & operator<<(std::ostream & stream, variant const & value);

protected:
    /// Masks of `vt_type` bits.
    static constexpr std::uint32_t signed_types = 0x00AA;
    static constexpr std::uint32_t unsigned_types = 0x1054; ///< and colours
    static constexpr std::uint32_t floating_types = 0x0600;
    static constexpr std::uint32_t integer_types = 0x10FE; ///< both, and colours

    /// Changes only the tag. A stored text is freed; a new text is empty; other payloads are
    /// reinterpreted as the new type.
    /// \throws std::bad_alloc  with the tag as it was.
    void type(vt_type type);

    /// Takes over the value of `source`, converted. `vt_empty` and values that are no type change
    /// the tag and store nothing.
    /// \param source  another object.
    /// \throws exception  with the new tag and no meaningful payload.
    void change_type(vt_type target, variant const & source);

    /// Range checks: a value that does not fit a target of `bits` bits raises, others are returned.
    /// The name gives the source and the target: u for unsigned, s for signed, d for double. A
    /// fractional number is checked before it loses its fraction.
    /// \param bits  of the target, including its sign: 1 to 64.
    /// \throws exception  `out_of_range`.
    static std::uint64_t from_u_to_u(std::uint64_t value, signed char bits);
    static std::uint64_t from_s_to_u(std::int64_t value, signed char bits);
    static std::int64_t from_u_to_s(std::uint64_t value, signed char bits);
    static std::int64_t from_s_to_s(std::int64_t value, signed char bits);
    static std::uint64_t from_d_to_u(double value, signed char bits);
    static std::int64_t from_d_to_s(double value, signed char bits);

private:
    // Integers are stored extended to 64 bits by their sign, so that reading them does not depend
    // on the tag and every copy is 8 bytes. A `float` is in the low half.
    union payload {
        std::uint64_t bits;
        string * text; // owned, never null
    };

    struct view; // for the source file: a value prepared for conversion

    template <typename T> static payload bits_of(T value) noexcept
    {
        if constexpr (std::same_as<T, float>) {
            return {std::bit_cast<std::uint32_t>(value)};
        } else if constexpr (std::same_as<T, double>) {
            return {std::bit_cast<std::uint64_t>(value)};
        } else {
            return {static_cast<std::uint64_t>(value)};
        }
    }

    template <typename T> static auto stored(T value)
    {
        // Their sign is the processor's choice, and what is stored must not be.
        constexpr bool is_signed
            = std::is_signed_v<T> || std::is_same_v<T, char> || std::is_same_v<T, wchar_t>;
        if constexpr (sizeof(T) == 8 && std::unsigned_integral<T>) {
            return from_u_to_s(value, 64);
        } else if constexpr (sizeof(T) == 8) {
            return static_cast<std::int64_t>(value);
        } else if constexpr (sizeof(T) == 4) {
            using same = std::conditional_t<is_signed, std::int32_t, std::uint32_t>;
            return static_cast<same>(value);
        } else if constexpr (sizeof(T) == 2) {
            return static_cast<std::conditional_t<is_signed, short, unsigned short>>(value);
        } else {
            using same = std::conditional_t<is_signed, signed char, unsigned char>;
            return static_cast<same>(value);
        }
    }

    // True if two integers of one type are equal. They may differ in bits beyond the type, because
    // a derived class may have changed only the tag.
    static bool same_integer(vt_type type, payload a, payload b) noexcept
    {
        std::uint64_t const difference = a.bits ^ b.bits;
        if ((type & (vt_long | vt_ulong | vt_color)) != 0) {
            return static_cast<std::uint32_t>(difference) == 0;
        }
        return type == vt_int64                    ? difference == 0
            : (type & (vt_short | vt_ushort)) != 0 ? static_cast<std::uint16_t>(difference) == 0
                                                   : static_cast<std::uint8_t>(difference) == 0;
    }

    variant(payload value, vt_type type) noexcept
        : value_(value)
        , type_(type)
    {
    }

    void release() noexcept
    {
        if (type_ == vt_string) {
            delete value_.text;
        }
    }
    variant & store(payload value, vt_type type) noexcept
    {
        release();
        value_ = value;
        type_ = type;
        return *this;
    }
    payload copied_text() const { return {.text = new string(*value_.text)}; }
    view look() const noexcept;
    bool equals(variant const & other) const;

    // Uses only the low byte, because a derived class may have changed only the tag.
    bool truth_payload() const noexcept { return (value_.bits & 0xFF) != 0; }
    float float_payload() const noexcept
    {
        return std::bit_cast<float>(static_cast<std::uint32_t>(value_.bits));
    }
    double double_payload() const noexcept { return std::bit_cast<double>(value_.bits); }

    template <typename T> T read_integer(vt_type target) const
    {
        return static_cast<T>(type_ == target ? value_.bits : read_bits(target));
    }
    bool read_bool() const;
    std::uint64_t read_bits(vt_type target) const;
    double read_double() const;

    payload value_;
    vt_type type_;

    static_assert(sizeof(payload) == 8);
};

static_assert(sizeof(variant) == 16 && std::is_standard_layout_v<variant>);
static_assert(
    std::is_nothrow_move_constructible_v<variant> && std::is_nothrow_move_assignable_v<variant>);

} // namespace zel
