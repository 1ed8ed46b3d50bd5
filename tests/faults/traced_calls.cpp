// SPDX-License-Identifier: MIT
#include "tests/faults/traced_calls.h"

#include "tests/support/processes.h"
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <iterator>
#include <vector>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/futex.h>
#include <linux/seccomp.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>

namespace traced_calls {

// clang-format off
std::vector<refusals> const documented = {
    {{SYS_open, SYS_openat}, {EACCES, EINTR, EIO, EMFILE, ENFILE, ENOMEM, ENOSPC, EPERM, EROFS}},
    {{SYS_read, SYS_pread64}, {EINTR, EIO, falls_short}},
    {{SYS_write, SYS_pwrite64}, {EDQUOT, EFBIG, EINTR, EIO, ENOSPC, EPERM, falls_short}},
    {{SYS_copy_file_range}, {EIO, ENOMEM, ENOSPC, EOPNOTSUPP, EXDEV, falls_short}},
    {{SYS_fsync, SYS_fdatasync}, {EDQUOT, EINTR, EIO, EINVAL, ENOSPC, EROFS}},
    {{SYS_rename, SYS_renameat, SYS_link, SYS_linkat, SYS_symlinkat}, {EACCES, EBUSY, EDQUOT, EIO, ENOMEM, ENOSPC, EPERM, EROFS}},
    {{SYS_renameat2}, {EACCES, EBUSY, EDQUOT, EINVAL, EIO, ENOMEM, ENOSPC, ENOSYS, EPERM, EROFS, EXDEV}},
    {{SYS_unlink, SYS_unlinkat, SYS_rmdir, SYS_mkdir, SYS_mkdirat}, {EACCES, EBUSY, EIO, ENOMEM, ENOSPC, EPERM, EROFS}},
    {{SYS_fallocate}, {EINTR, EIO, ENOSPC, EOPNOTSUPP}},
    {{SYS_ftruncate}, {EFBIG, EINTR, EINVAL, EIO, ENOSPC, EPERM}},
    {{SYS_fchmod, SYS_fchown, SYS_utimensat}, {EIO, ENOSYS, EPERM, EROFS}},
    {{SYS_flock, SYS_fcntl}, {EINTR, EIO, ENOLCK, ENOSYS}},
    {{SYS_mmap, SYS_munmap}, {ENFILE, ENOMEM}},
    {{SYS_futex}, {EAGAIN, EINTR}},
    {{SYS_clone, SYS_clone3}, {EAGAIN, ENOMEM, EPERM}},
    {{SYS_getrandom}, {EAGAIN, EINTR, ENOSYS, falls_short}},
    {{SYS_poll, SYS_epoll_wait}, {EINTR, ENOMEM}},
    {{SYS_epoll_create1, SYS_epoll_ctl, SYS_eventfd2}, {EMFILE, ENFILE, ENOMEM, ENOSPC}},
    {{SYS_newfstatat, SYS_fstat, SYS_lseek, SYS_readlink, SYS_readlinkat, SYS_getdents64}, {EACCES, EIO, ENOMEM}},
};
// clang-format on

namespace {

constexpr int marking = SYS_personality;

/// In the child: stops at each of the calls.
void stop_at_calls()
{
    std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    auto const stop_at = [&](int call) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
    };
    for (auto const & row : documented) {
        std::for_each(row.calls.begin(), row.calls.end(), stop_at);
    }
    stop_at(marking);
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog const program{static_cast<unsigned short>(filter.size()), filter.data()};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

/// \returns the register that holds how many bytes the call is to move, null for other calls.
unsigned long long * size_of(user_regs_struct & registers)
{
    switch (registers.orig_rax) {
    case SYS_read:
    case SYS_pread64:
    case SYS_write:
    case SYS_pwrite64:
        return &registers.rdx;
    case SYS_copy_file_range:
        return &registers.r8;
    case SYS_getrandom:
        return &registers.rsi;
    default:
        return nullptr;
    }
}

/// A wake-up never fails, and nor does a number that a descriptor is asked for.
bool can_fail(user_regs_struct const & registers)
{
    int const operation = static_cast<int>(registers.rsi) & FUTEX_CMD_MASK;
    return registers.orig_rax != SYS_futex || operation == FUTEX_WAIT
        || operation == FUTEX_WAIT_BITSET;
}

class tracer {
public:
    tracer(fault const & planned, pid_t child)
        : planned_(planned)
        , child_(child)
    {
    }

    outcome follow()
    {
        for (;;) {
            int told = 0;
            pid_t const thread = ::waitpid(-1, &told, __WALL);
            if (thread < 0) { // the alarm
                ::kill(child_, SIGKILL);
                result_.status = -2;
                ::waitpid(child_, &told, __WALL);
                return result_;
            }
            if (thread == child_ && !WIFSTOPPED(told)) {
                result_.status = WIFEXITED(told) ? WEXITSTATUS(told) : -1;
                return result_;
            }
            if (WIFSTOPPED(told)) {
                int const event = told >> 16;
                if (event == PTRACE_EVENT_SECCOMP) {
                    meet(thread);
                }
                ::ptrace(PTRACE_CONT, thread, 0, event == 0 ? WSTOPSIG(told) : 0);
            }
        }
    }

private:
    void meet(pid_t thread)
    {
        user_regs_struct registers{};
        ::ptrace(PTRACE_GETREGS, thread, 0, &registers);
        auto const call = static_cast<int>(registers.orig_rax);
        if (call == marking) {
            counts_ = !counts_;
            return;
        }
        auto * const size = size_of(registers);
        if (!counts_ || !can_fail(registers)
            || (planned_.error == falls_short && (size == nullptr || *size < 2))) {
            return;
        }
        if (++result_.calls[call] != planned_.nth || call != planned_.call) {
            return;
        }
        result_.hit = true;
        if (planned_.error == kills) {
            ::kill(child_, SIGKILL);
        } else if (planned_.error == falls_short) {
            *size /= 2;
        } else { // no call at all
            registers.orig_rax = static_cast<unsigned long long>(-1);
            registers.rax = static_cast<unsigned long long>(-planned_.error);
        }
        ::ptrace(PTRACE_SETREGS, thread, 0, &registers);
    }

    fault planned_;
    pid_t child_;
    bool counts_ = false;
    outcome result_{};
};

} // namespace

void mark() { ::personality(0xFFFFFFFF); }

outcome run(fault const & planned, std::function<int()> const & body)
{
    struct sigaction ends_a_wait { };
    ends_a_wait.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &ends_a_wait, nullptr);
    int gate[2];
    if (::pipe(gate) != 0) {
        return {-1, false, {}};
    }
    child_process child([&]() -> int {
        char byte;
        ::close(gate[1]);
        if (::read(gate[0], &byte, 1) != 1) {
            return 254; // nobody traces
        }
        ::close(gate[0]);
        stop_at_calls();
        return body();
    });
    bool const is_traced = ::ptrace(PTRACE_SEIZE, child.id(), 0,
                                    PTRACE_O_TRACESECCOMP | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL)
        == 0;
    if (!is_traced || ::write(gate[1], "", 1) != 1) {
        ::close(gate[1]);
        ::close(gate[0]);
        return {child.result(), false, {}};
    }
    ::close(gate[1]);
    ::close(gate[0]);
    ::alarm(20);
    outcome const result = tracer(planned, child.release()).follow();
    ::alarm(0);
    return result;
}

bool are_possible()
{
    outcome const tried = run({}, [] {
        mark();
        ::getpid();
        ::fcntl(0, F_GETFD);
        mark();
        return 7;
    });
    return tried.status == 7 && tried.calls.contains(SYS_fcntl);
}

} // namespace traced_calls
