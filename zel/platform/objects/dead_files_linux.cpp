// SPDX-License-Identifier: MIT
#include "zel/platform/last_error.h"
#include "zel/platform/objects/named_file_linux.h"
#include "zel/platform/objects/process_life_linux.h"
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

// Removes what killed processes leave behind: files of names that no process holds, and temporary
// files of creations that were not finished.
namespace zel::platform {
namespace {

constexpr std::uint32_t at_first_use = 64; // files checked
constexpr std::uint32_t at_most = 1000;

/// Calls `look(name)` for each entry of the folder. It does not use readdir(3), which allocates
/// from the heap.
template <typename Look> void for_each_file(user_folder const & folder, Look look)
{
    descriptor const listing(
        ::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    alignas(dirent64) char area[4096];
    while (listing.is_open()) {
        ssize_t const size = ::getdents64(listing.get(), area, sizeof area);
        if (size <= 0) {
            return;
        }
        for (ssize_t at = 0; at < size;) {
            auto const & entry = *reinterpret_cast<dirent64 const *>(area + at);
            at += entry.d_reclen;
            look(static_cast<char const *>(entry.d_name));
        }
    }
}

void remove_if_dead(user_folder const & folder, std::uint64_t mark, char const * name)
{
    if (std::strncmp(name, "new-", 4) == 0) {
        std::uint64_t const maker = std::strtoull(name + 4, nullptr, 16);
        if (maker != mark && life_of_process(maker) == is_over) {
            ::unlinkat(folder.get(), name, 0);
        }
        return;
    }
    named_file file;
    if (std::strlen(name) != file_name::length
        || file.open(folder, name) != user_folder::found::file || !file.is_understood()) {
        return;
    }
    name_holders holders = file.holders();
    std::uint64_t const closer = holders.closer();
    bool const mine = closer == 0 ? holders.close_if_dead(mark, life_of_process)
                                  : closer != mark && life_of_process(closer) == is_over
            && holders.succeed_closer(closer, mark);
    if (mine) {
        file.remove_name(folder, name);
    }
}

} // namespace

void remove_dead_files(user_folder const & folder, std::uint64_t mark, bool all) noexcept
{
    std::uint32_t count = 0;
    for_each_file(folder, [&](char const *) { ++count; });
    // Each process checks a different share of the files.
    std::uint32_t const step = all || count < at_first_use ? 1 : count / at_first_use;
    auto next = static_cast<std::uint32_t>(mark / 2 % step);
    std::uint32_t number = 0;
    std::uint32_t looked_at = 0;
    for_each_file(folder, [&](char const * name) {
        if (number++ == next && looked_at < at_most) {
            next += step;
            ++looked_at;
            remove_if_dead(folder, mark, name);
        }
    });
}

} // namespace zel::platform
