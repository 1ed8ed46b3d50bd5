// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_ptr.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <list>
#include <string>
#include <string_view>

namespace zel {

class path;

// Declared in native_path.h.
ZEL_API std::string to_native(path const & source);
ZEL_API path from_native(std::string_view name);

/// Matches `std::filesystem::path` by its members, so that its header need not be included.
template <typename Type>
concept filesystem_path = requires(Type const & name)
{
    typename Type::string_type;
    name.lexically_normal();
    {
        name.native()
        } -> std::convertible_to<std::string_view>;
};

/// The path of a file or a folder: a text of at most 259 bytes with backslashes as separators.
///
/// Every text that is passed in is normalised: forward slashes become backslashes, and a single
/// leading separator means the current folder, so that `/a` is `.\a`. Nothing else is changed: not
/// the case, not doubled separators, not `.` or `..`. Paths compare, hash and sort without regard
/// to the case of ASCII letters. A null text counts as an empty one.
///
/// A path makes one allocation, when it is constructed. Its operations make no other, apart from
/// the paths that some of them return and the lists of `get_entries`. Pointers that members return
/// stay valid as long as the path does; their contents change with the text.
///
/// Nothing is ever cut to fit. Constructors and assignments raise `std::length_error` when a text
/// would have more than 259 bytes and `std::invalid_argument` when a `string` has a NUL inside. A
/// member that reports by `bool` or pointer returns false or null instead and leaves the text
/// unchanged. The members that access the disk raise nothing of their own; the reason of a failure
/// is the thread's last error.
///
/// A plain value: many readers or one writer. A copy has its own array and reference count.
/// \code
///     zel::path place(zel::path::current_folder);
///     if (place.append("data/latest.txt") && place.file_exists()) { read(place); }
/// \endcode
class ZEL_API path : public ref_obj {
public:
    /// Folders that do not depend on the user.
    enum standard : std::uint32_t {
        temporary_folder = 0, ///< its text ends in a backslash
        current_folder = 1, ///< its text ends in no backslash, unless it is the root
        no_folder = 2, ///< the empty text
    };

    /// Folders of the user and of the system. A value above `windows` is one of the platform's own
    /// numbers of special folders.
    enum special_folder : std::uint32_t {
        admin_tools = 0,
        common_admin_tools = 1,
        app_data = 2,
        common_app_data = 3,
        common_documents = 4,
        cookies = 5,
        history = 6,
        internet_cache = 7,
        local_app_data = 8,
        my_pictures = 9,
        personal = 10,
        program_files = 11,
        program_files_common = 12,
        system = 13,
        windows = 14,
    };

    /// Attribute bits of `getAttributes` and `setAttributes`.
    static constexpr std::int32_t attr_readonly = 1;
    static constexpr std::int32_t attr_hidden = 2;
    static constexpr std::int32_t attr_system = 4;
    static constexpr std::int32_t attr_directory = 16;
    static constexpr std::int32_t attr_archive = 32;
    static constexpr std::int32_t attr_normal = 128;
    static constexpr std::int32_t attr_temporary = 256;

    /// The path of the folder. Empty when it can't be determined or its name can't be written as a
    /// path.
    path(standard folder = no_folder);
    /// Creates the folder when it doesn't exist. Empty when the host has no such folder.
    path(special_folder folder);
    path(char const * source);
    path(string const & source);
    path(std::string const & source);
    /// The path of a name of the host: `std::filesystem::path("/tmp/x")` gives `C:\tmp\x`.
    /// \throws std::exception  as `from_native` does.
    template <filesystem_path Name>
    path(Name const & name)
        : path(from_native(name.native()))
    {
    }
    /// Normalised like any text. So a copy of the root `\` is `.\`.
    path(path const & source);
    /// Joins `name` to `folder`. Components `.` and `..` are resolved. A `name` with a root of its
    /// own replaces `folder`; two empty texts give a single backslash, the root.
    path(char const * folder, char const * name);
    ~path() override;

    /// Normalised, like the constructor with the same argument.
    path & operator=(path const & source);
    path & operator=(char const * source);
    path & operator=(string const & source);
    path & operator=(std::string const & source);
    template <filesystem_path Name> path & operator=(Name const & name)
    {
        return *this = from_native(name.native());
    }

    /// The name of the host that `to_native` returns: a path may be passed where a
    /// `std::filesystem::path` is expected.
    template <filesystem_path Name> operator Name() const { return Name(to_native(*this)); }
    /// The text: `std::string(place)`.
    explicit operator std::string() const { return text; }
    /// The same text.
    explicit operator string() const { return text; }

    /// A `char const *` is normalised before it is compared; one that is too long equals no path.
    bool operator==(path const & other) const noexcept;
    bool operator==(char const * other) const noexcept;
    std::weak_ordering operator<=>(path const & other) const noexcept;

    /// The zero-terminated text, and its number of bytes without the terminator.
    char const * c_str() const noexcept { return text; }
    unsigned int size() const noexcept;
    bool empty() const noexcept { return *text == '\0'; }
    /// Changes letters by the program's locale, like those of `string`.
    void to_lower() noexcept;
    void to_upper() noexcept;

    /// Appends `extension` unchanged: no dot is added or expected.
    /// \returns false when there is no room.
    bool add_extension(char const * extension) noexcept;
    /// Removes one backslash at the end, also that of a root.
    void strip_final_slash() noexcept;
    /// Resolves the components of one dot and of two dots. A relative path stays relative and keeps
    /// each leading `..`; a rooted path never leaves its root.
    bool canonicalize() noexcept;
    /// Joins `more`; its leading separator is ignored. A network path or one with a drive replaces
    /// the text.
    /// \param canonical  has no effect: the result is always canonical.
    bool append(char const * more, bool canonical = false) noexcept;
    /// Becomes the relative path from `from` to `to`; the attributes tell folders from files.
    /// \returns false when there is no relative path, as between two drives.
    bool relative_path_to(char const * from, std::int32_t from_attributes, char const * to,
                          std::int32_t to_attributes) noexcept;
    /// Becomes the components with which both texts begin.
    /// \returns false when there are none: the text is empty then.
    bool common_prefix(char const * first, char const * second) noexcept;

    /// The first component with the backslash behind it; the whole text when it is the only one.
    path find_first_component() const;
    /// The text behind the first component and its backslash, or two that stand together. Empty at
    /// the end of the path.
    path find_next_component() const;

    /// True when the file name equals `spec` or matches one of its wild-card patterns, which are
    /// separated by `;`. `*.*` matches every name; `*.` matches names that end in a dot.
    bool match_spec(char const * spec) const noexcept;

    /// Adds a backslash to a text that has none at its end and is not empty.
    /// \returns the end of the text, or null when there is no room.
    char const * add_back_slash() noexcept;
    /// Removes one backslash at the end unless the text is a root.
    /// \returns the end of the text; for a root, its backslash.
    char const * remove_back_slash() noexcept;
    /// \param extension  includes its dot.
    bool rename_extension(char const * extension) noexcept;
    /// The last dot of the file name, or the end of the text.
    char const * find_extension() const noexcept;
    void remove_extension() noexcept;
    /// Encloses a text that contains a blank in double quotes, if they fit.
    void quote_spaces() noexcept;
    void unquote_spaces() noexcept;
    /// What follows the first blank outside double quotes, or the end of the text.
    char const * get_arguments() const noexcept;
    void remove_arguments() noexcept;
    /// Cuts off the last component and the separator before it; false when there is none. A root
    /// stays, except that of `\\server\share` only the server stays.
    bool remove_file_spec() noexcept;
    /// The last component, including one backslash at the end.
    char const * find_filename() const noexcept;
    /// What follows the root; null when there is none.
    char const * skip_root() const noexcept;
    /// Becomes the root of drive 0 to 25; unchanged for any other number.
    char const * build_root(std::int32_t drive) noexcept;
    /// 0 to 25, or -1 when the text begins with no drive.
    std::int32_t get_drive_number() const noexcept;
    /// Keeps only the root; false and an empty text when there is none.
    bool strip_to_root() noexcept;
    void strip_path() noexcept;
    /// Converts all letters to small ones, unless one is small already; false when nothing changed.
    bool make_pretty() noexcept;
    /// Removes the blanks at both ends.
    void remove_blanks() noexcept;
    /// True when the text has neither a backslash nor a colon.
    bool is_file_spec() const noexcept;
    bool is_relative() const noexcept;
    bool is_root() const noexcept;
    bool is_url() const noexcept;

    /// True when a file or a folder of that name exists.
    bool file_exists() const noexcept;
    bool is_directory() const noexcept;
    /// The attribute bits, or -1 when they can't be read.
    std::int32_t getAttributes() const noexcept;
    /// Changes whether the file is read-only; the host has no other attributes to set.
    void setAttributes(std::int32_t attributes) noexcept;
    /// Makes this the current folder of the whole process.
    bool set_current() noexcept;
    /// Always false: the host can't mark a folder as one of the system's. `unmake_system_folder` is
    /// true for every folder.
    bool make_system_folder() noexcept;
    bool unmake_system_folder() noexcept;
    /// Size of the file in bytes; 0xFFFFFFFF when there is no such file or the size does not fit.
    unsigned int file_size() const noexcept;

    /// Creates every missing folder of the path, including the last component.
    /// \returns true when all of them exist.
    bool create();
    /// Moves the file or folder, and becomes `target`. The folder of `target` is created first. An
    /// existing target is never replaced.
    /// \param flag  has no effect.
    bool rename(path const & target, bool flag = false);
    /// Copies the file with its rights and times. The folder of `target` is created first. An
    /// existing target is replaced in one step, and is unchanged when the copy fails; a read-only
    /// target is refused.
    bool copy(path const & target);
    /// Creates an empty file with a new name that begins with `temp`. The result is empty on
    /// failure.
    static path get_temp_filename(path const & folder);
    /// True when both are plain files, can be read and contain the same bytes.
    static bool compare_files(path const & first, path const & second);
    /// Lists the entries of the folder that match `spec`, files and folders alike, in no particular
    /// order. An entry whose name does not fit a path is left out. An empty path lists the current
    /// folder; a single backslash lists the root, with `C:\` before its entries.
    /// \param spec   one wild-card pattern, in which a `;` is an ordinary byte. `*.` also lists
    ///               names without an extension.
    /// \param clear  true empties the list first; false appends the entries.
    void get_entries(std::list<auto_ptr<path>> & entries, char const * spec = "*.*",
                     bool clear = true);
    /// Removes the content of the folder as `remove` does; false when this is no folder or an entry
    /// stays.
    bool empty_folder();
    /// Removes the file, or the folder with its content. A symbolic link is removed and its target
    /// stays, whatever other processes replace meanwhile. False when an entry is read-only, can't
    /// be removed or has a name that no path can hold; the rest then stays. The host's root is
    /// never removed.
    bool remove();

protected:
    /// Size of the array in bytes, including the terminator.
    static constexpr unsigned int max_path = 260;

    /// The zero-terminated text in an array of `max_path` bytes.
    char * text;
};

static_assert(sizeof(path) == sizeof(ref_obj) + sizeof(char *));

/// Writes the text, padded to the width of the stream.
ZEL_API std::ostream & operator<<(std::ostream & out, path const & source);
/// Skips white space and reads the rest of the line, because names may contain blanks. A line that
/// is too long sets `failbit` and leaves the path unchanged.
ZEL_API std::istream & operator>>(std::istream & in, path & target);

/// Equal for paths that compare equal.
ZEL_API std::size_t hash_value(path const & source) noexcept;

} // namespace zel

template <> struct std::hash<zel::path> {
    std::size_t operator()(zel::path const & source) const noexcept { return hash_value(source); }
};
