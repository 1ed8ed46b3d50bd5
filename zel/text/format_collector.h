// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

/// Shared by the files of the formatter: the growing result and its failures.
namespace zel::formatting {

inline constexpr std::size_t longest_text = 0x7FFFFFFF; // the largest length of the runtime
inline constexpr std::size_t on_stack = 1024;

/// \throws std::length_error
[[noreturn, gnu::cold]] void raise_too_long();

/// Raises the exception for a failed call of the runtime.
/// \param code  the `errno` of the call.
[[noreturn, gnu::cold]] void raise_runtime_failure(int code);

/// The growing result. It stays on the stack as long as it fits, then it is moved to the heap piece
/// by piece. Without a target it is only counted.
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

    // Provides at least `count` free bytes; `count` is at most `on_stack`. `advance` then adds the
    // bytes written there.
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
        // Each of the three is so small that their sum cannot wrap. The staged rest also passes
        // through here at the end, so no result exceeds the limit.
        std::size_t const size = spilt_ + staged() + wanted;
        if (size > longest_text) {
            raise_too_long();
        }
        if (target_ != nullptr) {
            if (size > heap_.capacity()) {
                heap_.reserve(size + 64); // usually only a short text follows a long one
            }
            heap_.append(buffer_, staged());
        }
        spilt_ += staged();
        next_ = buffer_;
    }

    std::string * target_;
    std::string heap_; // the spilt bytes; stays empty without a target
    std::size_t spilt_ = 0;
    char * next_ = buffer_;
    char buffer_[on_stack];
};

} // namespace zel::formatting
