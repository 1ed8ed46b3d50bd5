// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/descriptor_linux.h"
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <cerrno>
#include <dirent.h>

namespace zel::platform {

/// Reads the entries of an open folder in large blocks.
class directory_reader {
public:
    explicit directory_reader(descriptor folder) noexcept
        : folder_(std::move(folder))
        , block_(new (std::nothrow) char[block_size])
    {
    }

    int folder() const noexcept { return folder_.get(); }
    bool is_open() const noexcept { return folder_.is_open(); }

    /// Closes the descriptor, and continues later with another one of the same folder. Entries that
    /// have been read stay; after them the folder is read from its start again.
    void close() noexcept { folder_ = descriptor(); }
    void reopen(descriptor folder) noexcept { folder_ = std::move(folder); }

    /// The next entry except `.` and `..`; null at the end and after an error, which sets `failed`.
    dirent64 const * next() noexcept
    {
        for (;;) {
            if (at_ == end_ && !fill()) {
                return nullptr;
            }
            auto const * const entry = reinterpret_cast<dirent64 const *>(block_.get() + at_);
            at_ += entry->d_reclen;
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                return entry;
            }
        }
    }

    bool failed() const noexcept { return failed_; }

private:
    static constexpr std::size_t block_size = 32768;

    bool fill() noexcept
    {
        if (block_ == nullptr) {
            errno = ENOMEM;
            failed_ = true;
            return false;
        }
        auto const count = ::getdents64(folder_.get(), block_.get(), block_size);
        failed_ = count < 0;
        at_ = 0;
        end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
        return count > 0;
    }

    descriptor folder_;
    std::unique_ptr<char[]> block_; // the alignment of `new` suits the host's records
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    bool failed_ = false;
};

} // namespace zel::platform
