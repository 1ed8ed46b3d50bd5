// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include "zel/files/file_obj.h"
#include "zel/text/string.h"
#include <cstdint>
#include <cstdio>

namespace zel {

/// A buffered stream of bytes over a file.
///
/// Text and binary streams are the same on this host: there is no translation of line ends. Files
/// may be larger than 4 GiB. A read or a write continues when a signal interrupts it. Written data
/// may stay in the buffer until `close()`, which reports whether all of it was written. The
/// destructor closes too, but reports nothing. Use an object in one thread at a time; the C library
/// may flush it meanwhile, for example by `fflush(nullptr)` in another thread.
///
/// Without an open stream `read` and the write members return 0 (`write_char` returns `EOF`), `eof`
/// is true, and `close` raises.
/// \code
///     zel::file log("C:\\tmp\\log.txt", zel::file::mode_append, zel::file::kind_binary);
///     log.write_string("started\n");
///     log.close();
/// \endcode
class ZEL_API file : public file_obj {
public:
    /// Raised when a stream can't be opened or closed.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            cannot_open = 1,
            cannot_close = 2,
            end_of_file = 3, ///< raised by no member: ask `eof`
        };

        /// \param text  follows the text of the reason; null for none.
        exception(exc_type type, char const * text = nullptr);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    /// How the stream is used. An update mode allows reads and writes.
    enum mode : std::uint32_t {
        mode_read = 0,
        mode_write = 1, ///< empties the file
        mode_append = 2,
        mode_read_update = 3,
        mode_write_update = 4, ///< empties the file
        mode_append_update = 5,
    };

    /// Has no effect on this host.
    enum kind : std::uint32_t {
        kind_text = 0,
        kind_binary = 1,
    };

    /// Without a path and without a stream.
    file();
    /// \throws file::exception  as `open` does.
    file(path const & source, mode wanted_mode, kind wanted_kind);
    ~file() override;

    /// Opens a stream. One that is open is closed first; an error of that is ignored.
    /// \throws file::exception  `cannot_open` with the path's text. The object then has the new
    ///                          path and no stream.
    void open(path const & source, mode wanted_mode, kind wanted_kind);

    /// \throws file::exception  `cannot_close` when buffered bytes could not be written, or when
    ///                          there was no stream. In both cases there is no stream afterwards.
    void close();

    /// True once a read has reached the end of the file.
    bool eof() const noexcept;

    /// \returns the number of bytes read; less than `size` at the end of the file or after an
    /// error.
    std::uint32_t read(void * buffer, std::uint32_t size) noexcept;
    /// \returns the number of bytes accepted; less than `size` after an error, which also loses
    ///          data that was buffered before.
    std::uint32_t write(void const * buffer, std::uint32_t size) noexcept;
    /// Writes up to the terminator, without it. A null text counts as an empty one.
    std::uint32_t write_string(char const * text) noexcept;
    /// Writes the whole text, zero bytes inside included.
    std::uint32_t write_string(string const & text) noexcept;
    /// \returns the byte as a number from 0 to 255, not a count; 0xFFFFFFFF after an error.
    std::uint32_t write_char(char ch) noexcept;

protected:
    /// The host's letters for modes and kinds.
    static char const * const ms_Modes[6];
    static char const * const ms_Kinds[2];

    mode open_mode; ///< of the last `open` that succeeded
    kind open_kind; ///< likewise
    std::FILE * stream; ///< null while none is open; `fileno` gives its descriptor
};

} // namespace zel
