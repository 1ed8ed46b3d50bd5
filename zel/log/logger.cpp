// SPDX-License-Identifier: MIT
#include "zel/log/logger.h"

#include "zel/core/exception.h"
#include "zel/text/format.h"

namespace zel {
namespace {

// Calls va_end even if an exception leaves.
struct list_end {
    std::va_list & arguments;
    ~list_end() { va_end(arguments); }
};

void step(std::atomic<std::uint32_t> & counter) noexcept
{
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

// Formats a message that is not output, so that a wrong format still raises.
void check_format(char const * format, std::va_list arguments) ZEL_PRINTF(1, 0);
void check_format(char const * format, std::va_list arguments)
{
    if (format == nullptr) {
        throw memory_exception(memory_exception::null_pointer, "zel::string");
    }
    format_and_drop(format, arguments);
}

} // namespace

logger::logger() = default;
logger::~logger() = default;

void logger::write(log_type type, char const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    list_end const end{arguments};
    write_v(type, format, arguments);
}

void logger::write_v(log_type type, char const * format, std::va_list arguments)
{
    write_url_v(type, nullptr, format, arguments);
}

void logger::write_url(log_type type, char const * url, char const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    list_end const end{arguments};
    write_url_v(type, url, format, arguments);
}

void logger::write_url_v(log_type type, char const * url, char const * format,
                         std::va_list arguments)
{
    if (type == trace) {
        check_format(format, arguments);
        return;
    }
    string text;
    text.format_v(format, arguments);
    count(type);
    output_buffer(type, text, url);
}

void logger::write_grouped(log_type type, char const * group, char const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    list_end const end{arguments};
    write_grouped_v(type, group, format, arguments);
}

void logger::write_grouped_v(log_type type, char const * group, char const * format,
                             std::va_list arguments)
{
    write_grouped_url_v(type, nullptr, group, format, arguments);
}

void logger::write_grouped_url(log_type type, char const * url, char const * group,
                               char const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    list_end const end{arguments};
    write_grouped_url_v(type, url, group, format, arguments);
}

void logger::write_grouped_url_v(log_type type, char const * url, char const * group,
                                 char const * format, std::va_list arguments)
{
    std::string_view const key = group == nullptr ? "" : group;
    auto found = groups_.find(key);
    bool suppressed = false; // the first message of a group always comes out
    if (found == groups_.end()) {
        found = groups_.emplace(key, 1U).first;
    } else {
        suppressed = ++found->second > group_limitation_;
    }

    if (type == trace || suppressed) {
        check_format(format, arguments);
        count(type);
        return;
    }
    string text;
    text.format_v(format, arguments);
    count(type);
    // A copy, because the output may call clean(), which destroys the key.
    output_buffer_grouped(type, string(found->first), text, url);
}

void logger::set_group_limitation(std::uint32_t limit) noexcept { group_limitation_ = limit; }

void logger::clean()
{
    info_counter_.store(0, std::memory_order_relaxed);
    warning_counter_.store(0, std::memory_order_relaxed);
    error_counter_.store(0, std::memory_order_relaxed);
    groups_.clear();
}

std::uint32_t logger::get_info_counter() const noexcept
{
    return info_counter_.load(std::memory_order_relaxed);
}

std::uint32_t logger::get_warning_counter() const noexcept
{
    return warning_counter_.load(std::memory_order_relaxed);
}

std::uint32_t logger::get_error_counter() const noexcept
{
    return error_counter_.load(std::memory_order_relaxed);
}

void logger::output_buffer(log_type, string const &, string const &) { }

void logger::output_buffer_grouped(log_type, string const &, string const &, string const &) { }

void logger::count(log_type type) noexcept
{
    switch (type) {
    case info:
        step(info_counter_);
        break;
    case error:
        step(error_counter_);
        break;
    case warning:
        step(warning_counter_);
        break;
    default:
        break;
    }
}

} // namespace zel
