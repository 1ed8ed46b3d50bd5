// SPDX-License-Identifier: MIT
#pragma once

/// Copies and moves that are complete or have no effect. Paths are those of file_attributes.h.
namespace zel::platform {

/// Renames a file, a folder or a link. An existing target gives `error_already_exists`, even if it
/// appears during the call. A file or a link can also move to another file system: it is copied
/// there, and the copy gets its name only when it is complete. If the source can't be removed then,
/// the copy is removed again. A folder that would move to another file system gives
/// `error_not_same_device`.
bool move_file(char const * source, char const * target) noexcept;

/// Copies content, access rights and times of a plain file, and keeps its holes. The target is
/// replaced in one step when the copy is complete, so every failure leaves the target as it was. If
/// the target is a link, the link stays and its target is replaced. A read-only target, a folder
/// and a device give `error_access_denied`; the source itself as the target gives
/// `error_sharing_violation`. The caller needs the right to create files in the target's folder. If
/// the process is killed meanwhile, a file whose name begins with `.zel-` stays there.
bool copy_file(char const * source, char const * target) noexcept;

} // namespace zel::platform
