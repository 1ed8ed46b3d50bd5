// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/objects/name_holders.h"
#include "zel/platform/objects/named_memory.h"
#include "zel/platform/objects/user_folder_linux.h"
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <sys/stat.h>

namespace zel::platform {

/// The name of a block's file in the user's folder. It is a hash of the block's name; the file
/// contains the whole name.
struct file_name {
    explicit file_name(std::string_view block_name) noexcept;
    explicit file_name(std::uint64_t const (&number)[2]) noexcept;
    static constexpr std::size_t length = 32;
    std::uint64_t number[2];
    char text[length + 1];
};

/// The mapping of a block's file: a header, the block, and the entries of name_holders.h up to the
/// end of the file. The destructor unmaps it unless it was released.
class named_file {
public:
    static constexpr std::uint32_t no_entry = 0xFFFFFFFF; // for `named_memory::entry`

    named_file() noexcept = default;
    /// Takes over a mapping that was released.
    explicit named_file(named_memory const & memory) noexcept;
    ~named_file();
    named_file(named_file const &) = delete;
    named_file & operator=(named_file const &) = delete;

    /// Maps an existing file. Failures set the last error.
    user_folder::found open(user_folder const & folder, char const * name) noexcept;

    /// Makes a new file with one holder, which no other process can find yet. The destructor
    /// removes it unless it was published.
    /// \returns false with the last error set.
    bool make(user_folder const & folder, std::uint64_t mark, std::string_view name,
              std::uint32_t kind, std::size_t size) noexcept;
    /// Moves a new file to the name under which others find it.
    /// \returns false with `errno`, `EEXIST` when there is one of that name.
    bool publish(user_folder const & folder, char const * name) noexcept;

    /// Removes the name if it leads to this file. Only for the process that has closed the gate.
    void remove_name(user_folder const & folder, char const * name) const noexcept;

    /// True if this version of the library understands the file. Check it before the members below.
    bool is_understood() const noexcept;
    std::string_view name() const noexcept;
    std::uint32_t kind() const noexcept;
    std::size_t block_size() const noexcept;
    void * block() const noexcept;
    name_holders holders() const noexcept;

    /// Passes the mapping to the caller, who has to unmap it.
    named_memory release(file_name const & path, std::uint32_t entry) noexcept;
    void forget() noexcept { mapping_ = nullptr; }

private:
    struct header;
    header & head() const noexcept { return *static_cast<header *>(mapping_); }
    bool map(int file) noexcept;

    void * mapping_ = nullptr;
    std::size_t size_ = 0; // of the file
    user_folder const * made_in_ = nullptr; // set as long as the name below has to be removed
    char made_as_[48];
};

/// Removes the files that processes left in the folder when they were killed.
/// \param mark  of the calling process.
/// \param all   true to check every file, up to a thousand; false to check 64 of them.
void remove_dead_files(user_folder const & folder, std::uint64_t mark, bool all) noexcept;

} // namespace zel::platform
