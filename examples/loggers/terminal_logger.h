// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <unistd.h>
#include <zel/zel.h>

/// Shows messages on a stream, one a line: "error    disk is full  (config.cpp:12)".
///
/// Any number of threads may write plain messages at once. On a terminal, each message first erases
/// the current line, so that a progress bar below it makes room.
class terminal_logger : public zel::logger {
public:
    explicit terminal_logger(std::FILE * stream = stdout)
        : stream_(stream)
        , is_terminal_(::isatty(::fileno(stream)) != 0)
    {
    }

    static char const * word_for(log_type type)
    {
        switch (type) {
        case info:
            return "info";
        case error:
            return "error";
        case warning:
            return "warning";
        default:
            return "note";
        }
    }

protected:
    void output_buffer(log_type type, zel::string const & text, zel::string const & url) override
    {
        zel::single_lock const held(guard_);
        std::fprintf(stream_, "%s%-8s %s", is_terminal_ ? "\r\033[K" : "", word_for(type),
                     text.c_str());
        if (!url.empty()) {
            std::fprintf(stream_, "  (%s)", url.c_str());
        }
        std::fputc('\n', stream_);
        std::fflush(stream_);
    }

    void output_buffer_grouped(log_type type, zel::string const &, zel::string const & text,
                               zel::string const & url) override
    {
        output_buffer(type, text, url);
    }

private:
    std::FILE * stream_;
    bool is_terminal_;
    zel::crit_sect guard_;
};
