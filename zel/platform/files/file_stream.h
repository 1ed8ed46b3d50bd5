// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdio>

namespace zel::platform {

/// Opens a buffered stream as `fopen` does, with 64-bit offsets. A read or a write that a signal
/// interrupts goes on, also where the stream writes what it buffered. `fileno` gives the stream's
/// descriptor, which programs that the process starts do not inherit. The stream keeps the lock of
/// its own: others come to it too, such as `fflush(nullptr)` in another thread.
/// \param path  a path of drive `C:` or a relative one.
/// \param mode  a mode of `fopen`; the letters `t` and `b` make no difference on this host.
/// \returns null with the last error set; a folder can't be opened, not even for reading.
std::FILE * open_stream(char const * path, char const * mode) noexcept;

/// As `fread` and `fwrite` of single bytes do. The stream's lock is taken unless the process has one
/// thread only, which costs nothing to know.
/// \returns the number of bytes.
std::size_t read_stream(std::FILE * stream, void * buffer, std::size_t size) noexcept;
std::size_t write_stream(std::FILE * stream, void const * buffer, std::size_t size) noexcept;

} // namespace zel::platform
