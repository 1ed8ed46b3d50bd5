// SPDX-License-Identifier: MIT
#include "zel/platform/paths/canonical_path.h"

#include "zel/platform/paths/path_text.h"
#include <cstddef>
#include <cstring>
#include <string_view>

namespace zel::platform {
namespace {

// The area in which a result is composed before it is copied: room for two whole texts and the
// separators and dots between and around them. Only the final result has to fit into a path.
using work_area = char[2 * max_path + 8];

/// Composes a canonical text from a root and components.
class canonical_text {
public:
    /// \param rest  what follows the root; contains no `.`, no `..` and no doubled separator.
    explicit canonical_text(std::string_view root, std::string_view rest = {}) noexcept
        : size_(root.copy(area_, root.size()))
        , root_(size_)
        , floor_(size_)
        , bare_drive_(is_bare_drive(root))
    {
        size_ += rest.copy(area_ + size_, rest.size() - (rest.ends_with('\\') ? 1 : 0));
    }

    /// Appends a backslash if the root is a drive without one.
    void end_drive() noexcept
    {
        if (bare_drive_) {
            area_[size_++] = '\\';
            root_ = floor_ = size_;
            bare_drive_ = false;
        }
    }

    /// Adds components; `..` removes the last one. The caller ensures that they fit into the area.
    void add(std::string_view components) noexcept
    {
        char const * at = components.data();
        char const * const end = at + components.size();
        while (at != end) {
            std::size_t const before = size_;
            if (size_ > 0 && area_[size_ - 1] != '\\' && !(bare_drive_ && size_ == root_)) {
                area_[size_++] = '\\';
            }
            std::size_t const start = size_;
            while (at != end && *at != '\\') {
                area_[size_++] = *at++;
            }
            at += at != end ? 1 : 0;
            std::size_t const length = size_ - start;
            if (length == 0 || (length == 1 && area_[start] == '.')) {
                size_ = before;
            } else if (length == 2 && area_[start] == '.' && area_[start + 1] == '.') {
                go_up(before);
            }
        }
    }

    /// The text, with a backslash at its end if `separator` is true and the root allows it.
    std::string_view finish(bool separator) noexcept
    {
        if (size_ == 0) {
            area_[size_++] = '.'; // a relative text without components is the folder it starts in
        } else if (root_ == 0 && begins_with_drive({area_, size_})) {
            std::memmove(area_ + 2, area_, size_); // the name `c:` must not become a drive
            std::memcpy(area_, ".\\", 2);
            size_ += 2;
        }
        if (separator && area_[size_ - 1] != '\\' && !(bare_drive_ && size_ == root_)) {
            area_[size_++] = '\\';
        }
        return {area_, size_};
    }

private:
    /// Handles a `..` that was added to a text of `before` bytes.
    void go_up(std::size_t before) noexcept
    {
        if (before > floor_) {
            size_ = before;
            while (--size_ > floor_ && area_[size_] != '\\') { }
        } else if (root_ > 0) {
            size_ = before;
        } else {
            floor_ = size_;
        }
    }

    work_area area_;
    std::size_t size_;
    std::size_t root_;
    std::size_t floor_; // bytes that `..` can't remove: the root, and leading `..` components
    bool bare_drive_;
};

/// Writes the finished text. False if it is longer than a path.
bool store_canonical(char * result, canonical_text & text, bool separator) noexcept
{
    std::string_view const composed = text.finish(separator);
    if (composed.size() > longest_path) {
        return false;
    }
    store_text(result, composed);
    return true;
}

/// Folds doubled separators behind the two of a server. This is done before the root is determined:
/// an empty share would vanish and make the next component the share.
/// \param area  receives the result if it differs from the text.
std::string_view fold_server(std::string_view text, char * area) noexcept
{
    if (!begins_with_server(text) || text.find("\\\\", 1) == std::string_view::npos) {
        return text;
    }
    std::size_t size = 0;
    for (char const c : text) {
        if (c != '\\' || size < 2 || area[size - 1] != '\\') {
            area[size++] = c;
        }
    }
    return {area, size};
}

/// A quick check. True only for canonical texts; false also for some of them.
bool is_canonical(std::string_view text) noexcept
{
    if (begins_with_server(text)) {
        return false;
    }
    std::size_t const drive = begins_with_drive(text) ? 2 : 0;
    text.remove_prefix(drive + (text.substr(drive).starts_with('\\') ? 1 : 0));
    if (text.starts_with('.') || text.starts_with('\\')) {
        return false;
    }
    auto const touched = [](char const * at) { // the start of `.`, `..` or an empty component
        return static_cast<char>(at[0] == '\\') & static_cast<char>(at[1] == '.' || at[1] == '\\');
    };
    constexpr std::size_t block = 16; // no branch inside: the compiler vectorises it
    std::size_t i = 0;
    for (; i + block < text.size(); i += block) {
        char found = 0;
        for (std::size_t k = 0; k < block; ++k) {
            found = static_cast<char>(found | touched(text.data() + i + k));
        }
        if (found != 0) {
            return false;
        }
    }
    for (; i + 1 < text.size(); ++i) {
        if (touched(text.data() + i) != 0) {
            return false;
        }
    }
    return true;
}

bool canonicalize(char * result, std::string_view source) noexcept
{
    if (is_canonical(source)) {
        store_text(result, source);
        return true;
    }
    char folded[max_path];
    source = fold_server(source, folded);
    std::size_t const root = root_length(source);
    canonical_text text(source.substr(0, root));
    text.add(source.substr(root));
    return store_canonical(result, text, source.ends_with('\\'));
}

bool combine(char * result, std::string_view folder, std::string_view name) noexcept
{
    char folded[max_path];
    folder = fold_server(folder, folded);
    if (folder.empty() && name.empty()) {
        store_text(result, "\\");
        return true;
    }
    if (folder.empty() || begins_with_drive(name) || begins_with_server(name)) {
        return canonicalize(result, name);
    }
    if (name.empty()) {
        return canonicalize(result, folder);
    }
    std::size_t const root = root_length(folder);
    std::string_view const base = name.starts_with('\\') ? folder.substr(0, root) : folder;
    if (base.empty()) {
        return canonicalize(result, name);
    }
    // The folder is usually canonical already; then it is copied as a whole.
    bool const whole = is_canonical(base);
    canonical_text text(base.substr(0, root), whole ? base.substr(root) : "");
    if (base.size() == root) {
        text.end_drive();
    }
    text.add(whole ? "" : base.substr(root));
    text.add(name);
    return store_canonical(result, text, name.ends_with('\\'));
}

} // namespace

char * path_combine(char * result, char const * folder, char const * name) noexcept
{
    std::string_view first;
    std::string_view second;
    if (result == nullptr || !read_path(folder, first) || !read_path(name, second)
        || !combine(result, first, second)) {
        return nullptr;
    }
    return result;
}

bool path_append(char * text, std::string_view more) noexcept
{
    std::string_view base;
    if (text == nullptr || more.size() > longest_path || !read_path(text, base)) {
        return false;
    }
    if (!begins_with_server(more) && more.starts_with('\\')) {
        more.remove_prefix(1);
    }
    return combine(text, base, more);
}

bool path_canonicalize(char * result, char const * source) noexcept
{
    std::string_view text;
    return result != nullptr && read_path(source, text) && canonicalize(result, text);
}

} // namespace zel::platform
