// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <map>
#include <string_view>

namespace zel {

/// Formats messages, counts them by their kind and passes them to a derived class, which decides
/// where the text goes. This class itself discards it.
///
/// Each message is formatted once, completely and without a limit, on the calling thread, and the
/// output is called before the write returns. Nothing is added to the text. A url is a second text
/// that is passed along with the message. A grouped message belongs to a named group; only a
/// limited number of messages of a group is output, but all are counted.
///
/// There is no lock. If several threads use one logger, the derived class needs a lock in its
/// output, and calls of the grouped members and of `clean` need one around them. The counters of a
/// shared logger may then miss some messages. A null format raises `memory_exception` with
/// `null_pointer`. Exceptions of an output pass to the caller, with the message already counted.
/// \code
///     class terminal_logger : public zel::logger {
///     protected:
///         void output_buffer(log_type, zel::string const & text, zel::string const &) override
///         {
///             std::puts(text.c_str());
///         }
///     };
///     zel::auto_ptr<zel::logger> log(new terminal_logger);
///     log->write(zel::logger::error, "%s: line %d", name, line);
/// \endcode
class ZEL_API logger : public ref_obj {
public:
    /// The kind of a message. Any other value is passed on unchanged and not counted.
    enum log_type : std::uint32_t {
        info = 0,
        error = 1,
        warning = 2,
        note = 3, ///< not counted
        trace = 4, ///< formatted, then dropped
    };

    logger();
    ~logger() override;

    /// Writes a message that belongs to no group.
    void write(log_type type, char const * format, ...) ZEL_PRINTF(3, 4);
    void write_v(log_type type, char const * format, std::va_list arguments) ZEL_PRINTF(3, 0);
    /// \param url  null for none.
    void write_url(log_type type, char const * url, char const * format, ...) ZEL_PRINTF(4, 5);
    void write_url_v(log_type type, char const * url, char const * format, std::va_list arguments)
        ZEL_PRINTF(4, 0);

    /// Writes a message of a group. The first message of a group is always output, later ones while
    /// the group's count does not exceed the limit. Messages of all types, also `trace`, share the
    /// count.
    /// \param group  compared byte by byte; null means the group with the empty name.
    void write_grouped(log_type type, char const * group, char const * format, ...)
        ZEL_PRINTF(4, 5);
    void write_grouped_v(log_type type, char const * group, char const * format,
                         std::va_list arguments) ZEL_PRINTF(4, 0);
    void write_grouped_url(log_type type, char const * url, char const * group, char const * format,
                           ...) ZEL_PRINTF(5, 6);
    void write_grouped_url_v(log_type type, char const * url, char const * group,
                             char const * format, std::va_list arguments) ZEL_PRINTF(5, 0);

    /// Sets how many messages of one group are output; 64 at first. The counts are kept, so that
    /// raising the limit lets a group output messages again.
    void set_group_limitation(std::uint32_t limit) noexcept;

    /// Sets the counters to 0 and forgets all groups; the limit stays.
    virtual void clean();

    /// The number of messages of a type since construction or the last `clean`, including those
    /// that were not output.
    std::uint32_t get_info_counter() const noexcept;
    std::uint32_t get_warning_counter() const noexcept;
    std::uint32_t get_error_counter() const noexcept;

protected:
    /// Outputs a formatted message. Never called for `trace`.
    virtual void output_buffer(log_type type, string const & text, string const & url);
    /// Outputs a formatted message of a group that is within its limit.
    virtual void output_buffer_grouped(log_type type, string const & group, string const & text,
                                       string const & url);

private:
    struct by_bytes {
        using is_transparent = void; // a group is looked up without building a key
        bool operator()(std::string_view a, std::string_view b) const noexcept { return a < b; }
    };

    void count(log_type type) noexcept;

    // Atomic only so that a shared logger has no data race; increments may get lost.
    std::atomic<std::uint32_t> info_counter_{0};
    std::atomic<std::uint32_t> warning_counter_{0};
    std::atomic<std::uint32_t> error_counter_{0};
    std::uint32_t group_limitation_ = 64;
    std::map<string, std::uint32_t, by_bytes> groups_; // messages of the group so far
};

} // namespace zel
