// SPDX-License-Identifier: MIT
#pragma once

#include "zel/core/ref_obj.h"
#include <cstddef>
#include <utility>

namespace zel {

/// Owns an array from array `new`. Assignment moves the array.
///
/// It does not store the length: the code that creates it has to remember it. Use it as a local or
/// a member.
template <typename T> class auto_buffer : public ref_obj {
public:
    /// Makes `count` elements, default-initialised: bytes have no defined value. 0 is allowed.
    /// \throws std::bad_alloc  and `std::bad_array_new_length`, from `new`.
    explicit auto_buffer(std::size_t count)
        : elements_(new T[count])
    {
    }

    ~auto_buffer() override { delete[] elements_; }

    /// Frees this array and takes over the array of `other`, which is left with a null pointer.
    auto_buffer & operator=(auto_buffer & other) noexcept
    {
        if (this != &other) {
            delete[] std::exchange(elements_, std::exchange(other.elements_, nullptr));
        }
        return *this;
    }
    auto_buffer & operator=(auto_buffer && other) noexcept { return *this = other; }

    /// The array, owned by this object; null after another has taken it over.
    T * get() const noexcept { return elements_; }

    /// The element at `index`, which is not tested.
    T & operator[](std::size_t index) const noexcept { return elements_[index]; }

private:
    T * elements_;
};

} // namespace zel
