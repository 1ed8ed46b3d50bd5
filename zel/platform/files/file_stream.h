// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdio>

namespace zel::platform {

/// Opens a buffered stream like `fopen`, with 64-bit offsets. A read or a write that a signal
/// interrupts is continued, also when the stream writes its buffer. `fileno` returns the stream's
/// descriptor, which is closed on exec. The stream keeps its own lock, because other threads may
/// access it too, for example with `fflush(nullptr)`.
/// \param path  a path of drive `C:` or a relative one.
/// \param mode  a mode of `fopen`; the letters `t` and `b` make no difference on this host.
/// \returns null with the last error set; a folder can't be opened, not even for reading.
std::FILE * open_stream(char const * path, char const * mode) noexcept;

/// Like `fread` and `fwrite` of single bytes. The stream's lock is skipped only if the process has
/// a single thread, which is a cheap check.
/// \returns the number of bytes.
std::size_t read_stream(std::FILE * stream, void * buffer, std::size_t size) noexcept;
std::size_t write_stream(std::FILE * stream, void const * buffer, std::size_t size) noexcept;

} // namespace zel::platform
