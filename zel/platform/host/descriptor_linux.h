// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace zel::platform {

/// Owns a file descriptor of the host, and closes it. Negative when it owns none.
class descriptor {
public:
    descriptor() noexcept = default;
    explicit descriptor(int number) noexcept
        : number_(number)
    {
    }
    descriptor(descriptor && other) noexcept
        : number_(std::exchange(other.number_, -1))
    {
    }
    descriptor & operator=(descriptor && other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    ~descriptor()
    {
        if (number_ >= 0) {
            int const reason = errno; // the caller may be about to report it
            ::close(number_); // not retried after EINTR: the number may already be another file's
            errno = reason;
        }
    }

    int get() const noexcept { return number_; }
    bool is_open() const noexcept { return number_ >= 0; }
    int release() noexcept { return std::exchange(number_, -1); }

private:
    int number_ = -1;
};

} // namespace zel::platform
