// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace notebook {

/// A progress bar as wide as the terminal. It shows nothing if the output is not a terminal.
class progress_bar {
public:
    void show(std::uint32_t percent)
    {
        ::winsize window{};
        if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0) {
            return;
        }
        std::size_t const width = window.ws_col > 20 ? window.ws_col - 10u : 10;
        std::string bar(width, '.');
        std::fill_n(bar.begin(), width * std::min(percent, 100u) / 100, '#');
        std::printf("\r[%s] %3u %%", bar.c_str(), percent);
        std::fflush(stdout);
        shown_ = true;
    }

    /// Erases the line, for the next output.
    void end()
    {
        if (shown_) {
            std::fputs("\r\033[K", stdout);
            shown_ = false;
        }
    }

private:
    bool shown_ = false;
};

} // namespace notebook
