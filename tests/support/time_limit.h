// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

/// Ends the program with SIGALRM when the test that holds one has not come to its end in time, be
/// it asleep for ever. One at a time.
class time_limit {
public:
    explicit time_limit(unsigned int seconds) { ::alarm(seconds); }
    ~time_limit() { ::alarm(0); }
    time_limit(time_limit const &) = delete;
    time_limit & operator=(time_limit const &) = delete;
};
