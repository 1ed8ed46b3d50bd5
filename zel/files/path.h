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

// The names of the host, as native_path.h has them.
ZEL_API std::string to_native(path const & source);
ZEL_API path from_native(std::string_view name);

/// `std::filesystem::path`, told by its members so that nobody pays for its header.
template <typename Type>
concept filesystem_path = requires(Type const & name)
{
    typename Type::string_type;
    name.lexically_normal();
    {
        name.native()
        } -> std::convertible_to<std::string_view>;
};

/// The place of a file or a folder: a text of at most 259 bytes with backslashes in it.
///
/// Every text that comes in is normalised: forward slashes become backslashes, and a single
/// separator in front means the current folder, so that `/a` is `.\a`. Nothing else is changed: no
/// case, no doubled separators, no `.` or `..`. Paths compare, hash and sort without regard to the
/// case of ASCII letters. A null text counts as an empty one.
///
/// A path makes one allocation, when it is constructed, and no operation makes another one, apart
/// from the paths that some of them return and the lists of `get_entries`. Pointers that members
/// return stay valid as long as the path does; their contents change with the text.
///
/// Nothing is ever cut to fit. Constructors and assignments raise `std::length_error` when a text
/// would have more than 259 bytes and `std::invalid_argument` when a `string` has a NUL inside; a
/// member that reports by `bool` or pointer gives false or null instead and leaves the text as it
/// was. The members that look at the disk raise nothing of their own.
///
/// A plain value: many readers or one writer. A copy has an array and a reference count of its own.
/// \code
///     zel::path place(zel::path::current_folder);
///     if (place.append("data/latest.txt") && place.file_exists()) { read(place); }
/// \endcode
class ZEL_API path : public ref_obj {
public:
    /// Folders that need no table.
    enum standard : std::uint32_t {
        temporary_folder = 0, ///< ends in a backslash
        current_folder = 1, ///< has none, unless it is the root
        no_folder = 2, ///< the empty text
    };

    /// Folders of the user and of the system. A value above `windows` is an identifier of the
    /// platform's own numbering.
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

    /// Empty, also when the folder can't be told or its name can't be written as a path.
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
    /// Normalised like any text. So a copy of the lone root `\` is `.\`.
    path(path const & source);
    /// Joins `name` to `folder`. Components `.` and `..` are resolved. A `name` with a root of its
    /// own takes the place of `folder`; two empty texts give a lone backslash, the root.
    path(char const * folder, char const * name);
    ~path() override;

    /// Normalised, as by the constructor of the same argument.
    path & operator=(path const & source);
    path & operator=(char const * source);
    path & operator=(string const & source);
    path & operator=(std::string const & source);
    template <filesystem_path Name> path & operator=(Name const & name)
    {
        return *this = from_native(name.native());
    }

    /// The name of the host, as `to_native` gives it: a path may be handed to what takes a
    /// `std::filesystem::path`.
    template <filesystem_path Name> operator Name() const { return Name(to_native(*this)); }
    /// The text: `std::string(place)`.
    explicit operator std::string() const { return text; }
    /// The same text.
    explicit operator string() const { return text; }

    /// A `char const *` is normalised before it is compared; one that is too long equals no path.
    bool operator==(path const & other) const noexcept;
    bool operator==(char const * other) const noexcept;
    std::weak_ordering operator<=>(path const & other) const noexcept;

    /// The text with its terminator, and how many bytes stand in front of that.
    char const * c_str() const noexcept { return text; }
    unsigned int size() const noexcept;
    bool empty() const noexcept { return *text == '\0'; }
    /// Changes letters as the locale that the program set has them, like a `string`'s.
    void to_lower() noexcept;
    void to_upper() noexcept;

    /// Writes `extension` behind the text as it is: no dot is added and none looked for.
    /// \returns false when there is no room.
    bool add_extension(char const * extension) noexcept;
    /// Removes one backslash at the end, a root's too.
    void strip_final_slash() noexcept;
    /// Resolves the components that mean their folder or the one above. A relative path stays
    /// relative and keeps each `..` in front; the root of a rooted one is never left.
    bool canonicalize() noexcept;
    /// Joins `more`, in which a leading separator counts for nothing. A network path or one with a
    /// drive takes the place of the text.
    /// \param canonical  resolves `.` and `..` once more in what came out.
    bool append(char const * more, bool canonical = false) noexcept;
    /// Becomes the relative path from `from` to `to`, whose attributes tell folders from files.
    /// \returns false when nothing relative leads there, as between two drives.
    bool relative_path_to(char const * from, std::int32_t from_attributes, char const * to,
                          std::int32_t to_attributes) noexcept;
    /// Becomes the components that both texts begin with.
    /// \returns false when there are none: the text is empty then.
    bool common_prefix(char const * first, char const * second) noexcept;

    /// The first component with the backslash behind it; the whole text when it is the only one.
    path find_first_component() const;
    /// What follows the first component and one backslash behind it, or two that stand together.
    /// Empty when nothing does, which ends a walk.
    path find_next_component() const;

    /// True when the file name is `spec`, or matches one of the wild-card patterns in it, which
    /// are parted by `;`. `*.*` matches every name; `*.` matches those that end in a dot.
    bool match_spec(char const * spec) const noexcept;

    /// Adds a backslash at the end of a text that has none and isn't empty.
    /// \returns the end of the text, or null when there is no room.
    char const * add_back_slash() noexcept;
    /// Removes one backslash at the end unless the text is a root.
    /// \returns the end of the text, a root's being its backslash.
    char const * remove_back_slash() noexcept;
    /// \param extension  with its dot.
    bool rename_extension(char const * extension) noexcept;
    /// The last dot of the file name, or the end of the text.
    char const * find_extension() const noexcept;
    void remove_extension() noexcept;
    /// Puts a text that holds a blank in double quotes; one for which they have no room stays.
    void quote_spaces() noexcept;
    void unquote_spaces() noexcept;
    /// What follows the first blank outside double quotes, or the end of the text.
    char const * get_arguments() const noexcept;
    void remove_arguments() noexcept;
    /// Cuts off the last component and the separator in front of it; false when there is none. A
    /// root stays, but of `\\server\share` only the server does.
    bool remove_file_spec() noexcept;
    /// The last component. One backslash at the end belongs to it.
    char const * find_filename() const noexcept;
    /// What follows the root; null when there is none.
    char const * skip_root() const noexcept;
    /// Becomes the root of drive 0 to 25, and stays as it is for any other number.
    char const * build_root(std::int32_t drive) noexcept;
    /// 0 to 25, or -1 when the text begins with no drive.
    std::int32_t get_drive_number() const noexcept;
    /// Leaves the root alone; false and an empty text when there is none.
    bool strip_to_root() noexcept;
    void strip_path() noexcept;
    /// Makes every letter small when none is small yet; false when there was nothing to change.
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
    /// Makes it the current folder of the whole process.
    bool set_current() noexcept;
    /// False: the host marks no folder as one of the system's, and so `unmake_system_folder` is
    /// true for every folder.
    bool make_system_folder() noexcept;
    bool unmake_system_folder() noexcept;
    /// Bytes of the file; 0xFFFFFFFF when there is no such file, or when its size doesn't fit.
    unsigned int file_size() const noexcept;

    /// Creates every folder of the chain that is missing, the last component included.
    /// \returns true when all of them exist.
    bool create();
    /// Moves the file or folder and becomes `target`, whose folder is created first. An existing
    /// target is never replaced.
    /// \param flag  means nothing.
    bool rename(path const & target, bool flag = false);
    /// Copies the file with its rights and times; the folder of `target` is created first. An
    /// existing target is replaced in one step, and stays whole when the copy fails; one that is
    /// read-only is refused.
    bool copy(path const & target);
    /// Creates an empty file with a name of its own, which begins with `temp`. Empty on failure.
    static path get_temp_filename(path const & folder);
    /// True when both are plain files that can be read and hold the same bytes.
    static bool compare_files(path const & first, path const & second);
    /// Lists the entries of the folder that match `spec`, files and folders alike, in no order. One
    /// whose name no path can hold is left out. An empty path lists the current folder, a lone
    /// backslash the root with `C:\` in front of its entries.
    /// \param spec   one wild-card pattern, in which a `;` is a byte like any other. `*.` lists the
    ///               names without an extension too.
    /// \param clear  empties the list first; else the entries are added behind what is there.
    void get_entries(std::list<auto_ptr<path>> & entries, char const * spec = "*.*",
                     bool clear = true);
    /// Removes what is in the folder, as `remove` does; false when it is none or an entry stays.
    bool empty_folder();
    /// Removes the file, or the folder with all that is in it. A symbolic link goes and what it
    /// leads to stays, whatever other processes exchange meanwhile. False, with what is left in
    /// place, when an entry is read-only, can't be removed or has a name that no path can hold. The
    /// host's root is never touched.
    bool remove();

protected:
    /// Bytes of the array, the terminator among them.
    static constexpr unsigned int max_path = 260;

    /// The zero-terminated text in an array of `max_path` bytes.
    char * text;
};

static_assert(sizeof(path) == sizeof(ref_obj) + sizeof(char *));

/// Writes the text, padded to the width of the stream.
ZEL_API std::ostream & operator<<(std::ostream & out, path const & source);
/// Reads the rest of a line behind white space, since names hold blanks. A line that is too long
/// sets `failbit` and leaves the path as it was.
ZEL_API std::istream & operator>>(std::istream & in, path & target);

/// Equal for paths that compare equal.
ZEL_API std::size_t hash_value(path const & source) noexcept;

} // namespace zel

template <> struct std::hash<zel::path> {
    std::size_t operator()(zel::path const & source) const noexcept { return hash_value(source); }
};
