// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

/// What a path's members do with the disk.
///
/// Paths are texts of drive `C:` or relative to the current folder, at most 259 bytes long; `..` is
/// resolved in the text, before the host sees it. Symbolic links on the way are followed, and so is
/// one at the end unless the function says otherwise. A failure sets the last error. Nothing is
/// raised and nothing but `list_directory`'s callback allocates what its caller sees.
namespace zel::platform {

inline constexpr std::int32_t file_attribute_readonly = 1;
inline constexpr std::int32_t file_attribute_hidden = 2;
inline constexpr std::int32_t file_attribute_normal = 128;
inline constexpr std::int32_t invalid_file_attributes = -1;

/// Read-only when nobody has the right to write, hidden when the name begins with a dot, directory,
/// or normal when none of them holds. The host has no other attributes.
/// \returns `invalid_file_attributes` when there is no such file or folder.
std::int32_t get_file_attributes(char const * path) noexcept;

/// Takes the right to write from everybody, or gives it back to the owner when nobody has it. The
/// other attributes can't be changed here and are ignored.
bool set_file_attributes(char const * path, std::int32_t attributes) noexcept;

bool path_file_exists(char const * path) noexcept;
bool path_is_directory(char const * path) noexcept;
/// True for a folder itself, false for a link to one.
bool path_is_unlinked_directory(char const * path) noexcept;

/// Fails: no folder of this host can be told to be one of the system's.
bool path_make_system_folder(char const * path) noexcept;
/// True for every folder, since none has the attribute.
bool path_unmake_system_folder(char const * path) noexcept;

/// \returns false for a missing file and for everything that isn't a plain file.
bool get_file_size(char const * path, std::uint64_t & size) noexcept;

/// Of the whole process.
bool set_current_directory(char const * path) noexcept;

/// Creates one folder; an existing one is `error_already_exists`.
bool create_directory(char const * path) noexcept;

/// Removes an empty folder; a link to one is `error_path_not_found`.
bool remove_directory(char const * path) noexcept;

/// Removes all that is in the folder, and stops at the first that can't be removed. Links inside
/// go, their targets stay, also when a folder is exchanged for a link meanwhile. An entry that no
/// path can name stays, with all that is in it, while the others go. The host's root is refused.
/// \param through_link  false refuses a path that is itself a link.
bool empty_directory(char const * path, bool through_link) noexcept;

/// Removes a file or a link; a read-only file and a folder are `error_access_denied`.
bool delete_file(char const * path) noexcept;

/// Renames a file, a folder or a link. An existing target is `error_already_exists` whatever other
/// processes do meanwhile. A file and a link also move to another file system, by a copy that
/// appears whole under its name; when the source can't be removed then, the copy goes again. A
/// folder is `error_not_same_device` there.
bool move_file(char const * source, char const * target) noexcept;

/// Copies content, access rights and times of a plain file, and its holes as holes. The target is
/// replaced in one step when the copy is complete, so that every failure leaves it as it was; a
/// target that is a link stays one and what it leads to is replaced. A read-only target, a folder
/// and a device are `error_access_denied`, the source itself is `error_sharing_violation`. Needs
/// the right to create files beside the target. A process that is killed meanwhile leaves a file
/// there whose name begins with `.zel-`.
bool copy_file(char const * source, char const * target) noexcept;

/// Creates an empty file named `prefix`, four hexadecimal digits and `.TMP`, which did not exist
/// before, readable by its owner alone.
/// \param result  an array of `max_path` bytes, empty on failure.
bool get_temp_file_name(char const * folder, char const * prefix, char * result) noexcept;

/// Calls `take` for each name in the folder but `.` and `..`, in the order of the host. A name is
/// as the host has it, whatever its bytes; it is valid during the call.
bool list_directory(char const * path, void (*take)(void * context, std::string_view name),
                    void * context);

} // namespace zel::platform
