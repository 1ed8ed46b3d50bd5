// SPDX-License-Identifier: MIT
#include "zel/platform/threads/stop_signal_linux.h"

#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace zel::platform {
namespace {

constexpr std::int64_t nanoseconds_a_millisecond = 1'000'000;
constexpr std::int64_t check_interval = 10 * nanoseconds_a_millisecond;
constexpr int looks_until_refused = 5;
constexpr int tries_to_send = 100;

// More processor time than the library's own signal handler can have used.
constexpr std::int64_t more_than_a_handler = 3 * nanoseconds_a_millisecond;

// The processor time of a thread in nanoseconds; 0 when it has ended. The number of the clock is
// computed from the thread's: all bits inverted, above three bits for the kind of clock.
std::int64_t processor_time_of(std::uint32_t id)
{
    constexpr std::uint32_t of_a_thread = 6;
    timespec time{};
    ::clock_gettime(static_cast<clockid_t>(~id << 3 | of_a_thread), &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

struct thread_status {
    bool is_asleep = false;
    bool blocks_signal = false;
};

// proc(5): each line has a name, a colon, a tab and a value. SigBlk is a mask in hexadecimal, with
// signal 1 in its lowest bit. It comes after the groups, which may be thousands. Nothing here
// allocates, and there is no cancellation point.
class status_reader {
public:
    thread_status result;

    void take(std::string_view text)
    {
        for (char const c : text) {
            if (c == '\n') {
                end_line();
            } else if (length_ < sizeof line_) {
                line_[length_++] = c;
            }
        }
    }

private:
    void end_line()
    {
        std::string_view const line(line_, length_);
        length_ = 0;
        constexpr std::string_view state = "State:\t";
        constexpr std::string_view blocked = "SigBlk:\t";
        if (line.starts_with(state)) {
            result.is_asleep = line.substr(state.size()).starts_with('S');
        } else if (line.starts_with(blocked)) {
            std::uint64_t mask = 0;
            for (char const digit : line.substr(blocked.size())) {
                mask = mask << 4
                    | static_cast<std::uint64_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
            }
            result.blocks_signal = (mask >> (stop_signal() - 1) & 1) != 0;
        }
    }

    char line_[64]; // the beginning of a longer line
    std::size_t length_ = 0;
};

thread_status status_of(std::uint32_t id)
{
    char name[64] = "/proc/self/task/";
    char digits[16];
    std::size_t length = 0;
    for (; id != 0; id /= 10) {
        digits[length++] = static_cast<char>('0' + id % 10);
    }
    char * const end = std::reverse_copy(digits, digits + length, name + std::strlen(name));
    std::memcpy(end, "/status", sizeof "/status");

    status_reader reader;
    auto const file = ::syscall(SYS_openat, AT_FDCWD, name, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return {};
    }
    char text[2048];
    for (;;) {
        auto const size = ::syscall(SYS_read, file, text, sizeof text);
        if (size <= 0) {
            break;
        }
        reader.take({text, static_cast<std::size_t>(size)});
    }
    ::syscall(SYS_close, file);
    return reader.result;
}

} // namespace

// A real-time signal: signals with one number are not merged. The C library reserves the two below
// SIGRTMIN.
int stop_signal() noexcept { return SIGRTMIN + ZEL_STOP_SIGNAL; }

bool send_stop_signal(std::uint32_t id) noexcept
{
    // The number of an ended thread may be reused, but the host assigns numbers in turn, so not
    // before all others were used. A thread for which no stop is requested ignores the signal.
    int const saved = errno;
    pid_t const process = ::getpid();
    bool sent = ::syscall(SYS_tgkill, process, id, stop_signal()) == 0 || errno != EAGAIN;
    if (!sent && id == this_thread.id) {
        // Too many signals of the user are queued. A signal of the kind that kill(2) sends is
        // always accepted, but the host lets a thread send that kind only to itself.
        siginfo_t info{};
        info.si_code = SI_USER;
        sent = ::syscall(SYS_rt_tgsigqueueinfo, process, id, stop_signal(), &info) == 0;
    }
    errno = saved;
    return sent;
}

void admit_stop_signal() noexcept
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, stop_signal());
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void stop_request::send() noexcept
{
    bool const sent = send_stop_signal(record_.id.load(std::memory_order_relaxed));
    unsent_ = sent ? 0 : unsent_ + 1;
}

bool stop_request::wait(std::uint32_t now) noexcept
{
    if (now / postponement != postponed_) {
        postponed_ = now / postponement;
        blocked_ = 0;
    }
    wake_reason const reason
        = wait_interruptibly(record_.control, now, monotonic_now() + check_interval, false);
    return reason != wake_reason::timed_out || !is_refused();
}

bool stop_request::is_refused() noexcept
{
    if (unsent_ > 0) {
        send();
        return unsent_ >= tries_to_send;
    }
    std::uint32_t const id = record_.id.load(std::memory_order_relaxed);
    thread_status const status = status_of(id);
    if (record_.start.load(std::memory_order_acquire) != stoppable || !status.blocks_signal) {
        blocked_ = 0;
        return false;
    }
    // The library's own handler blocks all signals too, and a thread in it may have to wait for a
    // processor for any time. It sleeps there only when it is stopped.
    std::int64_t const time = processor_time_of(id);
    if (blocked_ == 0) {
        asleep_ = 0;
        time_at_first_ = time;
    }
    ++blocked_;
    asleep_ += status.is_asleep ? 1 : 0;
    return blocked_ >= looks_until_refused
        && (asleep_ >= looks_until_refused || time - time_at_first_ >= more_than_a_handler);
}

} // namespace zel::platform
