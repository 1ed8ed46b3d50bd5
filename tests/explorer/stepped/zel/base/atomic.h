// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>

/// Stands in front of zel/base/atomic.h when the library is compiled for the explorer or for
/// stretched runs: each of them defines what is done before every step on an atomic word.
namespace zel {

/// \param what  the operation; a load is the only one that begins with an l.
void before_step(char const * what, void const * word, std::size_t size, char const * file,
                 int line) noexcept;

#define ZEL_HERE char const *file = __builtin_FILE(), int line = __builtin_LINE()
#define ZEL_STEP(name)                                                                             \
    auto name(T value, order how = order::seq_cst, ZEL_HERE) noexcept                              \
    {                                                                                              \
        before_step(#name, this, sizeof(T), file, line);                                           \
        return base::name(value, how);                                                             \
    }
#define ZEL_STEP_FROM_EXPECTED(name)                                                               \
    bool name(T & expected, T value, order how, order otherwise, ZEL_HERE) noexcept                \
    {                                                                                              \
        before_step(#name, this, sizeof(T), file, line);                                           \
        return base::name(expected, value, how, otherwise);                                        \
    }                                                                                              \
    bool name(T & expected, T value, order how = order::seq_cst, ZEL_HERE) noexcept                \
    {                                                                                              \
        before_step(#name, this, sizeof(T), file, line);                                           \
        return base::name(expected, value, how);                                                   \
    }

template <class T> class atomic : public std::atomic<T> {
    using base = std::atomic<T>;
    using order = std::memory_order;

public:
    using base::base;
    using base::operator=;
    constexpr atomic() noexcept = default;

    T load(order how = order::seq_cst, ZEL_HERE) const noexcept
    {
        before_step("load", this, sizeof(T), file, line);
        return base::load(how);
    }
    ZEL_STEP(store)
    ZEL_STEP(exchange)
    ZEL_STEP(fetch_add)
    ZEL_STEP(fetch_sub)
    ZEL_STEP(fetch_and)
    ZEL_STEP(fetch_or)
    ZEL_STEP_FROM_EXPECTED(compare_exchange_weak)
    ZEL_STEP_FROM_EXPECTED(compare_exchange_strong)
    operator T() const noexcept { return load(); }
};

#undef ZEL_STEP_FROM_EXPECTED
#undef ZEL_STEP
#undef ZEL_HERE

inline void signal_fence() noexcept { std::atomic_signal_fence(std::memory_order_seq_cst); }

} // namespace zel
