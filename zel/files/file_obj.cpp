// SPDX-License-Identifier: MIT
#include "zel/files/file_obj.h"

namespace zel {

file_obj::file_obj() = default;

file_obj::file_obj(path const & source)
    : file_path(source)
{
}

file_obj::~file_obj() = default;

} // namespace zel
