// SPDX-License-Identifier: MIT
#pragma once

#include "terminal_logger.h"
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <zel/zel.h>

/// Appends messages to a file, one per line after the local time.
///
/// Each line is passed to the host at once and as a whole, so several threads and processes may
/// append to one file, and a process that is killed loses nothing. A line that the host refuses,
/// for example on a full disk, is counted; the program is not stopped.
class file_logger : public zel::logger {
public:
    /// \throws zel::exception  the file cannot be opened.
    explicit file_logger(char const * name)
        : file_(std::fopen(name, "a"), std::fclose)
    {
        if (file_ == nullptr) {
            zel::string reason;
            throw zel::exception(reason.format("%s: %s", name, std::strerror(errno)));
        }
    }

    /// Lines that could not be written.
    unsigned int lost() const { return lost_; }

protected:
    void output_buffer(log_type type, zel::string const & text, zel::string const & url) override
    {
        zel::time const now;
        zel::string line;
        line.format("%04d-%02d-%02d %02d:%02d:%02d.%03d %-8s %s%s%s\n", now.get_year(),
                    static_cast<int>(now.get_month()), now.get_day(), now.get_hour(),
                    now.get_minute(), now.get_second(), now.get_milliseconds(),
                    terminal_logger::word_for(type), text.c_str(), url.empty() ? "" : "  ",
                    url.c_str());

        zel::single_lock const held(guard_);
        bool const written = std::fwrite(line.data(), 1, line.size(), file_.get()) == line.size();
        if (std::fflush(file_.get()) != 0 || !written) {
            ++lost_;
        }
    }

    void output_buffer_grouped(log_type type, zel::string const & group, zel::string const & text,
                               zel::string const & url) override
    {
        output_buffer(type, "[" + group + "] " + text, url);
    }

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file_;
    unsigned int lost_ = 0;
    zel::crit_sect guard_;
};
