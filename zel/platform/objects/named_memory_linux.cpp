// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_memory.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/host/same_file_linux.h"
#include "zel/platform/host/without_cancellation_linux.h"
#include "zel/platform/objects/named_file_linux.h"
#include "zel/platform/objects/process_life_linux.h"
#include "zel/platform/objects/user_folder_linux.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/uninterrupted.h"
#include <cerrno>

// A block is a file in the user's folder. A new file is made under a temporary name and, when it is
// complete, renamed to the name that others look for (renameat2(2), `RENAME_NOREPLACE`). So one of
// several creators succeeds, and no process sees an incomplete file. The file records who holds it
// (name_holders.h). No lock is taken: a process that is stopped or killed midway blocks no other
// name.
//
// The process that has closed the gate removes the file's name, after checking that the name still
// leads to that file. If that process was killed, another one takes over (`succeed_closer`).
namespace zel::platform {
namespace {

constexpr std::int64_t longest_wait_for_exec = 50'000'000; // nanoseconds
// For a process that is removing a file: two system calls, unless it is stopped. On a machine with a
// hundred busy threads, a process of low priority was seen to need seconds for them.
constexpr std::int64_t longest_wait_for_removal = 20'000'000'000;

constexpr fork_handlers around_forks{prepare_inheritance, leave_inheritance_to_child, inherit};

bool cut_name(std::string_view & name)
{
    if (name.size() > longest_name) {
        return fail(error_filename_exced_range);
    }
    for (std::string_view const prefix : {"Local\\", "Global\\"}) {
        if (name.starts_with(prefix)) {
            name.remove_prefix(prefix.size());
            break;
        }
    }
    return true;
}

/// Sleeps for a short time that doubles from call to call, up to 2 ms.
class backoff {
public:
    /// \returns false when `limit` nanoseconds have passed since the first call.
    bool wait(std::int64_t limit) noexcept
    {
        std::int64_t const now = monotonic_now();
        began_ = began_ == 0 ? now : began_;
        if (now - began_ >= limit) {
            return false;
        }
        static constinit atomic<std::uint32_t> never_changes{0};
        wait_on_address(never_changes, 0, now + span_, false);
        span_ = span_ < 1'000'000 ? 2 * span_ : span_;
        return true;
    }

private:
    std::int64_t began_ = 0;
    std::int64_t span_ = 50'000;
};

void refuse_file()
{
    set_last_error(error_no_system_resources, "the file in shared memory is not understood");
}

enum class found { nothing, joined, refused };

/// Joins the block of that name. If no living process holds it, removes it first.
/// \param met_dead  set if such a file was removed.
found find(user_folder const & folder, file_name const & path, std::string_view name,
           std::uint32_t kind, std::size_t size, std::uint64_t mark, named_memory & result,
           bool & met_dead)
{
    backoff exec;
    backoff removal;
    for (;;) {
        named_file file;
        switch (file.open(folder, path.text)) {
        case user_folder::found::nothing:
            return found::nothing;
        case user_folder::found::error:
            return found::refused;
        default:
            break;
        }
        if (!file.is_understood() || file.name() != name) {
            refuse_file();
            return found::refused;
        }
        name_holders holders = file.holders();
        if (std::uint64_t const closer = holders.closer(); closer != 0) {
            if (closer != mark && life_of_process(closer) == is_over) {
                if (holders.succeed_closer(closer, mark)) {
                    met_dead = true;
                    file.remove_name(folder, path.text);
                }
            } else if (!removal.wait(longest_wait_for_removal)) {
                set_last_error(error_no_system_resources,
                               "another process has stopped taking the name's file away");
                return found::refused;
            }
            continue;
        }
        std::uint32_t const life = holders.life(mark, life_of_process);
        if (life == is_over) {
            if (holders.close_if_dead(mark, life_of_process)) {
                met_dead = true;
                file.remove_name(folder, path.text);
            }
            continue;
        }
        if (life == children_live && exec.wait(longest_wait_for_exec)) {
            continue;
        }
        if (file.kind() != kind) {
            fail(error_invalid_handle);
            return found::refused;
        }
        if (file.block_size() != size) {
            refuse_file();
            return found::refused;
        }
        std::uint32_t entry = 0;
        switch (holders.join(mark, life_of_process, entry)) {
        case name_holders::join_result::joined:
            result = file.release(path, entry);
            return found::joined;
        case name_holders::join_result::full:
            set_last_error(error_no_system_resources, "too many processes hold the object");
            return found::refused;
        default:
            break; // the last holder has just left: look again
        }
    }
}

enum class made { done, exists, failed };

made make(user_folder const & folder, file_name const & path, std::string_view name,
          named_memory_content const & content, std::uint64_t mark, named_memory & result)
{
    named_file file;
    if (!file.make(folder, mark, name, content.kind, content.size)) {
        return made::failed;
    }
    content.initialize(file.block(), content.argument);
    if (file.publish(folder, path.text)) {
        result = file.release(path, 0);
        return made::done;
    }
    int const reason = errno;
    if (content.withdraw != nullptr) {
        content.withdraw(file.block(), content.argument);
    }
    if (reason == EEXIST) {
        return made::exists;
    }
    fail_in_shared_memory(reason);
    return made::failed;
}

/// Removes files of other names. A process does so when it has just registered, or has found a file
/// that a killed process left.
void tidy(user_folder const & folder, std::uint64_t mark, bool all)
{
    std::uint32_t const before = last_error();
    remove_dead_files(folder, mark, all);
    set_last_error(before);
}

} // namespace

bool create_named_memory(std::string_view name, named_memory_content const & content,
                         named_memory & result, bool & existed) noexcept
{
    uninterrupted const guard;
    without_cancellation const shield;
    user_folder folder;
    if (!cut_name(name) || !folder.open(true)) {
        return false;
    }
    std::uint64_t const mark = register_process(folder, nullptr);
    if (mark == 0) {
        return false;
    }
    file_name const path(name);
    bool met_dead = false;
    for (;;) {
        found const there
            = find(folder, path, name, content.kind, content.size, mark, result, met_dead);
        made const done = there == found::nothing ? make(folder, path, name, content, mark, result)
                                                  : made::failed;
        if (done == made::exists) {
            continue; // another process created it first
        }
        if (met_dead) {
            tidy(folder, mark, true);
        }
        if (there == found::refused || (there == found::nothing && done == made::failed)) {
            return false;
        }
        existed = there == found::joined;
        return true;
    }
}

bool open_named_memory(std::string_view name, std::uint32_t kind, std::size_t size,
                       named_memory & result) noexcept
{
    uninterrupted const guard;
    without_cancellation const shield;
    user_folder folder;
    if (!cut_name(name) || !folder.open(false)) {
        return false;
    }
    std::uint64_t const mark = register_process(folder, nullptr);
    if (mark == 0) {
        return false;
    }
    bool met_dead = false;
    found const there = find(folder, file_name(name), name, kind, size, mark, result, met_dead);
    if (met_dead) {
        tidy(folder, mark, true);
    }
    return there == found::joined || (there == found::nothing && fail(error_file_not_found));
}

void leave_named_memory(named_memory const & memory) noexcept
{
    uninterrupted const guard;
    without_cancellation const shield;
    std::uint32_t const before = last_error();
    named_file file(memory);
    std::uint64_t const mark = known_process_mark.load(std::memory_order_relaxed);
    name_holders holders = file.holders();
    if (memory.entry != named_file::no_entry) {
        holders.leave(mark, memory.entry, has_forked_children());
    }
    user_folder folder;
    if (holders.close_if_dead(mark, life_of_process) && folder.open_to_remove()) {
        file.remove_name(folder, file_name(memory.file).text);
    }
    file.forget();
    set_last_error(before);
}

void unmap_named_memory(named_memory const & memory) noexcept { named_file const file(memory); }

bool use_named_memory(adopt_function adopt) noexcept
{
    if (known_process_mark.load(std::memory_order_acquire) != 0) {
        return true;
    }
    uninterrupted const guard;
    without_cancellation const shield;
    user_folder folder;
    if (!add_fork_handlers(fork_place::named_memory, around_forks)) {
        return fail(error_not_enough_memory);
    }
    std::uint64_t const mark = folder.open(true) ? register_process(folder, adopt) : 0;
    if (mark != 0) {
        tidy(folder, mark, false);
    }
    return mark != 0;
}

void adopt_named_memory(named_memory & memory, std::uint64_t mark) noexcept
{
    named_file file(memory);
    std::uint32_t entry = 0;
    // A block that its other holders have given up meanwhile, or that has too many holders, stays
    // mapped without a name; `no_entry` marks it.
    bool const joined
        = file.holders().join(mark, life_of_process, entry) == name_holders::join_result::joined;
    memory.entry = joined ? entry : named_file::no_entry;
    file.forget();
}

} // namespace zel::platform
