// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"
#include "zel/files/path.h"

namespace zel {

/// The root of the classes for files on disk: it holds the file's path and nothing else.
class ZEL_API file_obj : public ref_obj {
public:
    /// The file's path; empty for an object without a file.
    path const & get_path() const noexcept { return file_path; }

protected:
    /// Without a path, or with a copy of one.
    file_obj();
    explicit file_obj(path const & source);
    ~file_obj() override;

    path file_path; ///< empty until one is given
};

} // namespace zel
