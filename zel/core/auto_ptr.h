// SPDX-License-Identifier: MIT
#pragma once

#include "zel/core/exception.h"
#include "zel/core/ref_obj.h"
#include "zel/core/require_from_new.h"
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace zel {

/// Shares an object that counts its own holders; the last `auto_ptr` that is destroyed deletes it.
///
/// It is one pointer wide, with no control block and no code in the library. A copy is one atomic
/// step, a move none. Several threads may each have an `auto_ptr` to one object and copy and
/// destroy those at will. One single `auto_ptr` follows the rule of plain values: many readers or
/// one writer.
///
/// An object held here must have come from `new`. Where `NDEBUG` is not defined, the program ends
/// with a message when it is a local or a static object instead.
///
/// A class with two bases that count, such as `ini_file`, has two independent counts, and the one
/// that reaches 0 deletes the object. Hold such an object through one of its sides.
/// \tparam T  derives from `ref_obj` and may be `const`.
/// \code
///     zel::auto_ptr<zel::iprofile> settings(new zel::ini_file("settings.ini"));
///     zel::sub_profile view(settings, "view");   // shares it
/// \endcode
template <typename T> class auto_ptr {
public:
    constexpr auto_ptr() noexcept = default;

    /// Takes a reference to `object`, which may be null, also as `nullptr`, `NULL` or 0.
    constexpr auto_ptr(T * object) noexcept
        : object_(object)
    {
        acquire();
    }

    /// Shares what `other` holds.
    auto_ptr(auto_ptr const & other) noexcept
        : object_(other.object_)
    {
        acquire();
    }

    /// Takes over what `other` holds, which is null afterwards.
    constexpr auto_ptr(auto_ptr && other) noexcept
        : object_(std::exchange(other.object_, nullptr))
    {
    }

    /// Shares an object of a derived class, or shares the object as `const`.
    template <typename U>
    requires std::is_convertible_v<U *, T *> auto_ptr(auto_ptr<U> const & other)
    noexcept
        : object_(other.get())
    {
        acquire();
    }

    /// If `T` and `U` have separate counts, the reference in the count of `U` is given up without
    /// deleting the object: the reference in the count of `T` keeps it alive.
    template <typename U>
    requires std::is_convertible_v<U *, T *> auto_ptr(auto_ptr<U> && other)
    noexcept
        : object_(other.get())
    {
        if constexpr (!has_count_of<U>) {
            acquire();
            auto_ptr<U>::give_up(other.object_);
        }
        other.object_ = nullptr;
    }

    ~auto_ptr() { release(object_); }

    /// Shares what `other` holds. `other` may live inside the object that is released here, as in
    /// `node = node->next`.
    auto_ptr & operator=(auto_ptr const & other) noexcept
    {
        if (this != &other) {
            auto_ptr copy(other);
            release(std::exchange(object_, std::exchange(copy.object_, nullptr)));
        }
        return *this;
    }

    /// Takes over what `other` holds and gives up its own.
    auto_ptr & operator=(auto_ptr && other) noexcept
    {
        if (this != &other) {
            release(std::exchange(object_, std::exchange(other.object_, nullptr)));
        }
        return *this;
    }

    /// \throws memory_exception  `null_pointer` when nothing is held.
    T * operator->() const
    {
        if (object_ == nullptr) [[unlikely]] {
            raise_null_pointer("auto_ptr::operator->");
        }
        return object_;
    }

    /// \throws memory_exception  `null_pointer` when nothing is held.
    T & operator*() const
    {
        if (object_ == nullptr) [[unlikely]] {
            raise_null_pointer("auto_ptr::operator*");
        }
        return *object_;
    }

    /// The object, still owned by its holders; null when nothing is held.
    T * get() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

private:
    template <typename U> friend class auto_ptr;

    [[noreturn, gnu::cold, gnu::noinline]] static void raise_null_pointer(char const * member)
    {
        throw memory_exception(memory_exception::null_pointer, member);
    }

    // True if a conversion from `U` to `T` keeps the same count: `U` has a single `ref_obj`, and
    // neither class has an `inc_ref` of its own.
    template <typename U> static constexpr bool has_count_of = requires
    {
        requires std::is_convertible_v<U const *, ref_obj const *>;
        requires std::same_as<decltype(&U::inc_ref), decltype(&ref_obj::inc_ref)>;
        requires std::same_as<decltype(&T::inc_ref), decltype(&ref_obj::inc_ref)>;
    };

    constexpr void acquire() noexcept
    {
        if (object_ != nullptr) {
            [[maybe_unused]] std::uint32_t const holders = counted(object_)->inc_ref();
#ifndef NDEBUG
            if (holders == 1) {
                require_from_new(object_);
            }
#endif
        }
    }

    static void give_up(T * object) noexcept
    {
        if (object != nullptr) {
            if constexpr (requires { counted(object)->undo_inc_ref(); }) {
                counted(object)->undo_inc_ref();
            } else {
                counted(object)->dec_ref();
            }
        }
    }

    static void release(T * object) noexcept
    {
        if (object != nullptr) {
            counted(object)->dec_ref();
        }
    }

    // Counting does not change the value, so an `auto_ptr` to a constant object counts too.
    static constexpr std::remove_const_t<T> * counted(T * object) noexcept
    {
        return const_cast<std::remove_const_t<T> *>(object);
    }

    T * object_ = nullptr;
};

template <typename T, typename U>
bool operator==(auto_ptr<T> const & a, auto_ptr<U> const & b) noexcept
{
    return a.get() == b.get();
}

template <typename T> bool operator==(auto_ptr<T> const & a, std::nullptr_t) noexcept
{
    return a.get() == nullptr;
}

static_assert(sizeof(auto_ptr<ref_obj>) == sizeof(ref_obj *));

} // namespace zel

/// By identity, as `==` compares.
template <typename T> struct std::hash<zel::auto_ptr<T>> {
    std::size_t operator()(zel::auto_ptr<T> const & pointer) const noexcept
    {
        return std::hash<T *>()(pointer.get());
    }
};
