// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <limits>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

/// How many system calls `work` makes with all threads that it starts, counted once in a forked
/// child that is traced. The tracing slows calls down, so that threads wait for each other more
/// often than they would: an upper bound where they do.
/// \returns not a number when the host does not let a process be traced.
template <typename Work> double count_system_calls(Work work)
{
    ::pid_t const child = ::fork();
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            ::_exit(1);
        }
        ::raise(SIGSTOP);
        work();
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr,
             PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    double stops = 0;
    for (;;) {
        ::pid_t const thread = ::waitpid(-1, &status, __WALL);
        if (thread < 0 || (thread == child && !WIFSTOPPED(status))) {
            return stops / 2; // one at each end of a call
        }
        if (!WIFSTOPPED(status)) {
            continue;
        }
        int const signal = WSTOPSIG(status);
        bool const is_call = signal == (SIGTRAP | 0x80);
        stops += is_call;
        bool const is_news = is_call || signal == SIGTRAP || signal == SIGSTOP;
        ::ptrace(PTRACE_SYSCALL, thread, nullptr, is_news ? 0 : signal);
    }
}
