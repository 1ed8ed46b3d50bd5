// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <vector>

/// Runs code in a traced child, and has the host refuse one of its calls. The calls are met at the
/// border of the kernel (seccomp(2), ptrace(2)): also those of the C library's own, and those that
/// a library makes without it.
namespace traced_calls {

enum special_fault { none = 0, falls_short = -1, kills = -2 }; // else a number of errno

struct fault {
    int call = 0; // number of the system call
    int nth = 0; // of its calls between two marks, from 1
    int error = none;
};

struct outcome {
    int status; // exit status; -1: killed, -2: it had not ended after 20 seconds
    bool hit; // the call was made
    std::map<int, int> calls; // that could have failed, by number
};

/// What can go wrong with each call whatever the state of things is: an error that would be a lie,
/// such as ENOENT for what is there, is not among them.
struct refusals {
    std::vector<int> calls, errors;
};
extern std::vector<refusals> const documented;

/// \returns whether this machine lets a process trace its children.
bool are_possible();

/// Runs `body` in a child. Calls count from its first `mark` to its second one.
outcome run(fault const & planned, std::function<int()> const & body);
void mark();

} // namespace traced_calls
