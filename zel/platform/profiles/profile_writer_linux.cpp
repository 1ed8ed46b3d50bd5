// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/profile_writer.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/host/folder_entry_linux.h"
#include "zel/platform/host/retried_linux.h"
#include "zel/platform/host/same_file_linux.h"
#include "zel/platform/profiles/profile_editor.h"
#include "zel/platform/profiles/profile_file_linux.h"
#include "zel/platform/profiles/profile_replacement_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

bool is_lack_of_room(int error) noexcept
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

bool read_whole(int file, std::size_t expected, std::string & text)
{
    text.resize(expected + 1); // one more, to detect the end of the file
    std::size_t size = 0;
    for (;;) {
        ssize_t const count
            = retried([&] { return ::read(file, text.data() + size, text.size() - size); });
        if (count <= 0) {
            text.resize(size);
            return count == 0;
        }
        size += static_cast<std::size_t>(count);
        if (size > static_cast<std::size_t>(profile_size_limit)) {
            errno = EFBIG;
            return false;
        }
        if (size == text.size()) {
            text.resize(2 * size);
        }
    }
}

/// The file to be written, with the writers' lock on it. If it does not exist yet, the place where
/// it will be created.
class profile_target {
public:
    profile_target() noexcept = default;
    profile_target(profile_target const &) = delete;
    profile_target & operator=(profile_target const &) = delete;
    ~profile_target()
    {
        if (was_made_here_) {
            remove_if_empty();
        }
    }

    /// \returns false with `errno` set; `ESTALE` when the file has just changed: try again.
    bool open(char const * name) noexcept
    {
        lock_.unlock();
        if (file_.open([&] { return open_profile(name, O_RDWR, facts_); })) {
            return lock(name);
        }
        return errno == ENOENT && find_place(name);
    }

    bool exists() const noexcept { return file_.is_open(); }
    lockable_file const & file() const noexcept { return file_; }
    struct stat const & facts() const noexcept { return facts_; }
    /// True if the file's folder is known, so that the file can be replaced.
    bool has_entry() const noexcept { return has_entry_; }
    folder_entry const & entry() const noexcept { return entry_; }
    bool is_locked() const noexcept { return lock_.held(); }

    /// Call it when the file has its content.
    bool keep() noexcept
    {
        was_made_here_ = false;
        return true;
    }

private:
    bool lock(char const * name) noexcept
    {
        if ((facts_.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) {
            errno = EACCES; // read-only; the host would let the superuser write
            return false;
        }
        if (!lock_.lock(F_WRLCK, writers_timeouts)) {
            return false;
        }
        has_entry_ = entry_.open_of_file(name, file_.get());
        if (!has_entry_ && errno == ESTALE) {
            // The file was replaced or removed while this waited, unless it is a file without a
            // folder.
            struct stat there;
            if (::stat(name, &there) != 0 || !same_file(facts_, there)) {
                errno = ESTALE;
                return false;
            }
        }
        return ::fstat(file_.get(), &facts_) == 0; // the size may have changed
    }

    bool find_place(char const * name) noexcept
    {
        has_entry_ = entry_.open(name);
        if (!has_entry_) {
            return false;
        }
        struct stat link;
        if (::fstatat(entry_.folder(), entry_.name(), &link, AT_SYMLINK_NOFOLLOW) != 0) {
            return errno == ENOENT;
        }
        // A link without a target. Only the host can tell where the file would be created and
        // whether the link may be followed, so it creates an empty one.
        descriptor const made(retried([&] {
            constexpr int flags = O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
            return ::open(name, flags, profile_replacement::new_file_mode);
        }));
        if (made.is_open()) {
            was_made_here_ = true;
            errno = ESTALE;
        }
        return false;
    }

    /// Removes the empty file, unless another process has replaced or written it.
    void remove_if_empty() const noexcept
    {
        struct stat there;
        int const reason = errno;
        if (exists() && has_entry_
            && ::fstatat(entry_.folder(), entry_.name(), &there, AT_SYMLINK_NOFOLLOW) == 0
            && same_file(there, facts_) && there.st_size == 0 && there.st_nlink == 1) {
            ::unlinkat(entry_.folder(), entry_.name(), 0);
        }
        errno = reason;
    }

    lockable_file file_;
    byte_lock lock_{file_, writers_byte};
    struct stat facts_ = {};
    folder_entry entry_;
    bool has_entry_ = false;
    bool was_made_here_ = false;
};

/// Overwrites the bytes that differ. What lies beyond the old end is written first, so that a full
/// disk is noticed before an old byte is changed. After a failure the old bytes are restored.
bool overwrite(lockable_file const & target, std::string_view before,
               std::string_view after) noexcept
{
    int const file = target.get();
    byte_lock content(target, content_byte);
    if (!content.lock(F_WRLCK, writers_timeouts)) {
        return false;
    }
    std::size_t const common = std::min(before.size(), after.size());
    auto const differs = std::mismatch(
        before.begin(), before.begin() + static_cast<std::ptrdiff_t>(common), after.begin());
    auto const first = static_cast<std::size_t>(differs.first - before.begin());
    bool const done = write_at(file, after.substr(common), common)
        && write_at(file, after.substr(first, common - first), first)
        && (after.size() >= before.size() || cut_file(file, after.size())) && flush_file(file);
    if (!done) {
        int const reason = errno;
        write_at(file, before.substr(first), first);
        cut_file(file, before.size());
        errno = reason;
    }
    return done;
}

/// Writes new content for the file: to a replacement beside it where that loses nothing, else into
/// the file.
class new_content {
public:
    new_content(profile_target & target, std::string const & before) noexcept
        : target_(target)
        , old_text_(&before)
    {
    }

    /// \returns false with `errno` set.
    bool open() noexcept
    {
        if (!target_.exists()) {
            return replacement_.create(target_.entry(), profile_replacement::new_file_mode, false);
        }
        replaces_ = target_.has_entry() && target_.facts().st_nlink == 1;
        if (!replaces_) {
            return true;
        }
        replaces_ = replacement_.create(target_.entry(), profile_replacement::private_mode,
                                        target_.is_locked());
        if (!replaces_) {
            // There is no free name for a replacement, or the folder allows no new file: overwrite
            // in place.
            return errno == EACCES || errno == EPERM || errno == EROFS || errno == EEXIST
                || errno == ENAMETOOLONG;
        }
        replaces_ = replacement_.copy_owner_and_attributes(target_.file());
        return true;
    }

    /// \param text  must stay valid until the next `fill` or the end.
    bool fill(std::string const & text) noexcept
    {
        new_text_ = &text;
        if (!target_.exists() || replaces_) {
            return replacement_.fill(text);
        }
        if (!overwrite(target_.file(), *old_text_, text)) {
            return false;
        }
        old_text_ = &text;
        restore_mode();
        return target_.keep();
    }

    /// True if a failed `fill` has lost what the one before had written.
    bool forgets() const noexcept { return !target_.exists() || replaces_; }

    /// \returns false with `errno` set; `ESTALE` when the file has just changed.
    bool publish() noexcept
    {
        if (!target_.exists()) {
            return replacement_.become_new_file() || look_again(EEXIST) || look_again(ENOENT);
        }
        if (!replaces_) {
            return true;
        }
        if (replacement_.copy_mode(target_.facts()) && replacement_.take_place()) {
            return target_.keep();
        }
        if (errno == EBUSY && replaces_) { // the file itself is a mount point
            replaces_ = false;
            return fill(*new_text_);
        }
        return look_again(ENOENT);
    }

private:
    static bool look_again(int error) noexcept
    {
        errno = errno == error ? ESTALE : errno;
        return false;
    }

    /// Restores the setuid and setgid bits, which the host clears when a file is written. A failure
    /// is ignored: the content has been written.
    void restore_mode() const noexcept
    {
        if (mode_t const mode = target_.facts().st_mode; (mode & (S_ISUID | S_ISGID)) != 0) {
            ::fchmod(target_.file().get(), mode & 07777); // may fail
        }
    }

    profile_target & target_;
    std::string const * old_text_; // the present content of the file
    std::string const * new_text_ = nullptr;
    profile_replacement replacement_;
    bool replaces_ = false;
};

/// A text with those entries written that keep it within a size limit.
struct edited_text {
    edited_text(std::string_view before, std::span<private_profile_entry const> entries,
                std::size_t limit)
    {
        profile_editor editor(before, limit);
        for (auto const & entry : entries) {
            auto const outcome = editor.apply(entry);
            refused |= outcome == profile_editor::outcome::refused;
            complete &= outcome != profile_editor::outcome::too_large;
        }
        text = editor.text();
    }

    std::string text;
    bool refused = false;
    bool complete = true;
};

/// Writes as many of the entries as there is room for: those that separate writes would have
/// written. The room is found by trying.
/// \param before  the present content of the file.
/// \param all     the text with all entries, for which there is no room.
/// \returns false with `errno` set when nothing was written.
bool fill_with_what_fits(new_content & content, std::string const & before,
                         std::span<private_profile_entry const> entries, edited_text const & all)
{
    int reason = errno;
    std::size_t fits = before.size();
    std::size_t fails = all.text.size();
    std::unique_ptr<edited_text> best; // must not move: `content` refers to it
    bool is_filled = false;
    while (fits + 1 < fails) {
        std::size_t const limit = fits + (fails - fits) / 2;
        auto attempt = std::make_unique<edited_text>(before, entries, limit);
        if (attempt->text == (best == nullptr ? before : best->text)) {
            fits = limit;
        } else if (content.fill(attempt->text)) {
            best = std::move(attempt);
            fits = limit;
            is_filled = true;
        } else if (is_lack_of_room(errno)) {
            reason = errno;
            fails = attempt->text.size();
            is_filled = is_filled && !content.forgets();
        } else {
            return false;
        }
    }
    errno = reason;
    return best != nullptr && (is_filled || content.fill(best->text));
}

/// \param complete  set to true if there was room for all entries.
bool rewrite(profile_target & target, std::span<private_profile_entry const> entries,
             bool & refused, bool & complete)
{
    std::string before;
    if (target.exists()
        && !read_whole(target.file().get(), static_cast<std::size_t>(target.facts().st_size),
                       before)) {
        return false;
    }
    edited_text after(before, entries, static_cast<std::size_t>(profile_size_limit));
    refused = after.refused;
    complete = after.complete;
    if (after.text == before) {
        return true;
    }
    new_content content(target, before);
    if (!content.open()) {
        return false;
    }
    if (!content.fill(after.text)) {
        if (!is_lack_of_room(errno) || entries.size() == 1
            || !fill_with_what_fits(content, before, entries, after)) {
            return false;
        }
        complete = false;
    }
    return content.publish();
}

} // namespace

bool rewrite_profile(std::span<private_profile_entry const> entries, char const * file,
                     bool & refused)
{
    uninterrupted const guard;
    profile_target target;
    // Other processes may replace the file again and again.
    std::int64_t const deadline = moment_after(30'000);
    for (bool complete = true;;) {
        if (target.open(file) && rewrite(target, entries, refused, complete)) {
            return complete || fail(error_disk_full);
        }
        if (errno != ESTALE) {
            return fail_with_errno();
        }
        if (monotonic_now() > deadline) {
            return fail(error_sharing_violation);
        }
    }
}

} // namespace zel::platform
