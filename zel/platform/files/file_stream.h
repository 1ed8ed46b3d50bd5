// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>

namespace zel::platform {

/// Opens a buffered stream as `fopen` does, with 64-bit offsets. A read or a write that a signal
/// interrupts goes on, also where the stream writes what it buffered. The stream takes no lock: one
/// thread at a time uses it. It is not inherited by programs that the process starts.
/// \param path  a path of drive `C:` or a relative one.
/// \param mode  a mode of `fopen`; the letters `t` and `b` make no difference on this host.
/// \returns null with the last error set; a folder can't be opened, not even for reading.
std::FILE * open_stream(char const * path, char const * mode) noexcept;

} // namespace zel::platform
