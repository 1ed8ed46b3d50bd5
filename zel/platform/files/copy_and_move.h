// SPDX-License-Identifier: MIT
#pragma once

/// Copies and moves that appear whole or not at all. Paths are those of file_attributes.h.
namespace zel::platform {

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

} // namespace zel::platform
