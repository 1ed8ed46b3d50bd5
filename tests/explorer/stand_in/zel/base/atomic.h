// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>

/// Stands in front of zel/base/atomic.h when the sources of the library are compiled for the
/// explorer: every operation is a step, before which the scheduler decides who goes on. Only one
/// thread runs at a time, so that the word itself is a plain one; it has the size and the form of
/// the real one, as the kernel and other words laid over it expect.
namespace zel {
namespace explorer {
/// \param what  the operation, for the schedule that a failure prints.
void step(char const * what, void const * word, std::size_t size, char const * file,
          int line) noexcept;
} // namespace explorer

#define ZEL_HERE char const *file = __builtin_FILE(), int line = __builtin_LINE()

template <class T> class atomic {
public:
    constexpr atomic() noexcept = default;
    constexpr atomic(T value) noexcept
        : value_(value)
    {
    }
    atomic(atomic const &) = delete;
    atomic & operator=(atomic const &) = delete;

    T load(std::memory_order = {}, ZEL_HERE) const noexcept
    {
        explorer::step("load", &value_, sizeof value_, file, line);
        return value_;
    }
    void store(T value, std::memory_order = {}, ZEL_HERE) noexcept
    {
        explorer::step("store", &value_, sizeof value_, file, line);
        value_ = value;
    }
    T exchange(T value, std::memory_order = {}, ZEL_HERE) noexcept
    {
        return change(
            "exchange", [=](T) { return value; }, file, line);
    }
    T fetch_add(T value, std::memory_order = {}, ZEL_HERE) noexcept
    {
        return change(
            "add", [=](T before) { return before + value; }, file, line);
    }
    T fetch_sub(T value, std::memory_order = {}, ZEL_HERE) noexcept
    {
        return change(
            "subtract", [=](T before) { return before - value; }, file, line);
    }
    T fetch_and(T value, std::memory_order = {}, ZEL_HERE) noexcept
    {
        return change(
            "and", [=](T before) { return before & value; }, file, line);
    }
    T fetch_or(T value, std::memory_order = {}, ZEL_HERE) noexcept
    {
        return change(
            "or", [=](T before) { return before | value; }, file, line);
    }
    bool compare_exchange_strong(T & expected, T value, std::memory_order = {},
                                 std::memory_order = {}, ZEL_HERE) noexcept
    {
        T const wanted = expected;
        expected = change(
            "compare and exchange", [=](T before) { return before == wanted ? value : before; },
            file, line);
        return expected == wanted;
    }
    // Never fails for no reason: it stands in loops, which then only do the same again.
    bool compare_exchange_weak(T & expected, T value, std::memory_order = {},
                               std::memory_order = {}, ZEL_HERE) noexcept
    {
        return compare_exchange_strong(expected, value, {}, {}, file, line);
    }

private:
    template <class Change>
    T change(char const * what, Change next, char const * file, int line) noexcept
    {
        explorer::step(what, &value_, sizeof value_, file, line);
        T const before = value_;
        value_ = static_cast<T>(next(before));
        return before;
    }

    T value_{};
};

#undef ZEL_HERE

inline void signal_fence() noexcept { }

} // namespace zel
