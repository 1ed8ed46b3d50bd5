// SPDX-License-Identifier: MIT
//
// The handler of the stop signal: the side of the thread that is stopped. thread_stops_linux.cpp is
// the other side.
//
// A thread is stopped by a signal. The handler blocks all other signals. It sleeps until the thread
// is resumed, or ends the thread by the bare system call, so that no more code of the thread runs.
// Inside `uninterrupted` the handler only interrupts a sleep; when the thread leaves
// `uninterrupted`, it stops by sending the signal to itself.
//
// The sender changes `control` before it sends. The host's delivery of a signal orders the two: the
// handler sees the change, in whatever order this processor makes its loads.
//
// A thread that is to be terminated while it may hold a lock of the C library continues, and the
// signal is sent again, until it has left the library or its grace period is over.

#include "zel/platform/threads/stop_handler_linux.h"

#include "zel/platform/threads/library_work_linux.h"
#include "zel/platform/threads/return_trap_linux.h"
#include "zel/platform/threads/stop_signal_linux.h"
#include "zel/platform/threads/thread_ends_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace zel::platform {

[[gnu::tls_model("initial-exec")]] constinit thread_local this_thread_state this_thread{
    nullptr, &never_stopped, 0, false, false, 0, {nullptr, nullptr}, 0, 0};

namespace {

constexpr std::int64_t nanoseconds_a_millisecond = 1'000'000;

std::int64_t own_processor_time()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

// How long a thread that is to be terminated may continue in order to leave the C library. While it
// runs, its own processor time counts, so that a busy machine does not shorten the time. While it
// sleeps in one call, the monotonic clock counts.
class grace_period {
public:
    /// Call it each time that the thread is stopped.
    bool is_over(library_work work, stopped_thread const & at)
    {
        if (++looks_ == most_looks) {
            return true;
        }
        if (at.sleep != stopped_thread::in_no_call) {
            std::int64_t const now = monotonic_now();
            if (at != asleep_at_) {
                asleep_at_ = at;
                asleep_since_ = now;
            }
            return now - asleep_since_
                >= (work == library_work::certainly ? long_grace : short_grace);
        }
        asleep_at_ = {};
        std::int64_t const now = own_processor_time();
        if (running_since_ == 0) {
            running_since_ = now;
        }
        // A thread that calls the library all the time is found in it for sure now and then. Only
        // one that never is has the shorter time.
        if (work == library_work::certainly) {
            certain_at_ = now;
        } else if (now - std::max(running_since_, certain_at_) >= short_grace) {
            return true;
        }
        return now - running_since_ >= long_grace;
    }

private:
    static constexpr std::int64_t short_grace = 20 * nanoseconds_a_millisecond;
    static constexpr std::int64_t long_grace = 1'000 * nanoseconds_a_millisecond;
    static constexpr int most_looks = 30'000; // for a thread that sleeps and wakes for ever

    int looks_ = 0;
    std::int64_t running_since_ = 0; // the thread's processor time at the first check
    std::int64_t certain_at_ = 0; // and when it was last certainly in the library
    std::int64_t asleep_since_ = 0;
    stopped_thread asleep_at_{};
};

[[gnu::tls_model("initial-exec")]] constinit thread_local grace_period grace{};

/// \name A thread that is to be terminated and comes out of the C library
/// @{
struct way_out {
    std::uintptr_t goes_on_at; // the replaced return address; 0 when there is none
    std::uintptr_t * frame; // the place on the stack that contained that address
    bool has_come_out;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local way_out out{0, nullptr, false};

// Called when the thread has returned from the library: it stops here, and continues if it may not
// end yet.
std::uintptr_t come_out(std::uintptr_t * frame) noexcept
{
    out.frame = frame;
    *frame = out.goes_on_at; // for the unwinder
    out.has_come_out = true;
    signal_fence();
    stop_here();
    signal_fence();
    std::uintptr_t const goes_on_at = out.goes_on_at;
    out = {0, nullptr, false};
    return goes_on_at;
}

// The library does not return: an exception passes it, as from a comparison that it called. The
// unwinder passes twice, and the second time may still know the address that it has read before.
void pass_by() noexcept
{
    if (out.goes_on_at != 0) {
        *out.frame = out.goes_on_at;
        signal_fence();
        out = {0, nullptr, false};
    }
}
/// @}

[[noreturn]] void leave_for_good(handle_slot & slot)
{
    abandon_holds(false);

    // The next thread on this stack gets the C library's thread descriptor unchanged: it must not
    // find this thread's values under its keys, or call destructors with them. This takes no lock
    // and no heap memory.
    for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key) {
        ::pthread_setspecific(key, nullptr);
    }
    hand_to_reaper(slot);
    for (;;) {
        // Ends only this thread; the kernel then clears the word in the C library's thread
        // descriptor.
        ::syscall(SYS_exit, 0);
    }
}

bool may_end_here(thread_record const & record, std::uint32_t control, void const * context,
                  std::uintptr_t restorer)
{
    if ((control & end_forced) != 0) {
        return true;
    }
    stopped_thread const at = stopped_thread_of(context, is_library_code);
    library_work work = library_work::none;
    if (out.has_come_out) {
        work = library_work_behind(out.goes_on_at, reinterpret_cast<std::uintptr_t>(out.frame + 1),
                                   record.stack_end, restorer);
    } else if (this_thread.at_rest.load(std::memory_order_relaxed)) {
        work = library_work_below(at, record.stack_end, restorer);
    } else {
        work = library_work_at(at, record.stack_end, restorer);
    }
    if (work == library_work::none || grace.is_over(work, at)) {
        return true;
    }
    if (out.goes_on_at == 0 && !out.has_come_out && is_library_code(at.place)) {
        std::uintptr_t * const frame = frames_from(at.place, record.stack_end).way_out;
        if (frame != nullptr) {
            out.frame = frame;
            out.goes_on_at = catch_return(frame, come_out, pass_by);
        }
    }
    return false;
}

// Runs in the signal handler of the thread that is to stop.
void park(handle_slot & slot, void const * context, std::uintptr_t restorer)
{
    thread_record & record = record_of(slot);
    atomic<std::uint32_t> & control = record.control;
    std::uint32_t now = control.load(std::memory_order_acquire);
    for (;;) {
        if ((now & end_wanted) != 0) {
            if (may_end_here(record, now, context, restorer)) {
                leave_for_good(slot);
            }
            // It continues; the terminating thread sees that and sends the signal again.
            while (!control.compare_exchange_weak(now, (now & ~parked) + postponement)) { }
            wake_address(control, INT_MAX, false);
            return;
        }
        if ((now & suspensions_mask) == 0) {
            // In one step: a suspending thread either sees this thread parked, or does not and
            // sends the signal again.
            if (control.compare_exchange_weak(now, now & ~parked)) {
                return;
            }
        } else if ((now & parked) == 0) {
            if (control.compare_exchange_weak(now, now | parked)) {
                now |= parked;
                wake_address(control, INT_MAX, false);
            }
        } else {
            wait_on_address(control, now, -1, false);
            now = control.load(std::memory_order_acquire);
        }
    }
}

// The handler that was installed before: another copy of this library, in a plug-in, uses the same
// signal for its own threads. Set before this copy's handler is installed.
using signal_handler = void (*)(int, siginfo_t *, void *);
constinit signal_handler previous_handler = nullptr;

void on_stop_signal(int signal, siginfo_t * info, void * context)
{
    handle_slot * const slot = this_thread.slot;
    if (slot == nullptr) {
        if (previous_handler != nullptr) {
            previous_handler(signal, info, context);
        }
        return;
    }
    if (this_thread.depth.load(std::memory_order_relaxed) != 0) {
        if ((this_thread.control->load(std::memory_order_relaxed) & stop_mask) != 0) {
            leave_interruptible_wait(context);
        }
        return;
    }
    int const saved = errno;
    park(*slot, context, reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)));
    errno = saved;
}

} // namespace

void prepare_stops() noexcept
{
    prepare_library_work();

    // System calls of the stopped thread continue after its resume where the host supports that.
    struct sigaction action { };
    action.sa_sigaction = on_stop_signal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    ::sigfillset(&action.sa_mask);
    struct sigaction previous { };
    ::sigaction(stop_signal(), nullptr, &previous);
    if ((previous.sa_flags & SA_SIGINFO) != 0 && previous.sa_sigaction != on_stop_signal) {
        previous_handler = previous.sa_sigaction;
    }
    ::sigaction(stop_signal(), &action, nullptr);
}

void stop_here() noexcept
{
    if (!told_to_stop()) {
        return;
    }
    int const saved = errno;
    this_thread.at_rest.store(true, std::memory_order_relaxed);
    signal_fence();
    send_stop_signal(current_thread_id()); // delivered before the call returns
    signal_fence();
    this_thread.at_rest.store(false, std::memory_order_relaxed);
    errno = saved;
}

uninterrupted::uninterrupted() noexcept
{
    atomic<std::uint32_t> & depth = this_thread.depth;
    depth.store(depth.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    signal_fence();
}

uninterrupted::~uninterrupted()
{
    signal_fence();
    atomic<std::uint32_t> & depth = this_thread.depth;
    std::uint32_t const left = depth.load(std::memory_order_relaxed) - 1;
    depth.store(left, std::memory_order_relaxed);
    signal_fence();
    // A request that comes after this check finds the depth at 0.
    if (left == 0) {
        stop_here();
    }
}

bool told_to_stop() noexcept
{
    return (this_thread.control->load(std::memory_order_acquire) & stop_mask) != 0;
}

void stop_if_told() noexcept
{
    if (!told_to_stop()) {
        return;
    }
    this_thread.depth.store(0, std::memory_order_relaxed);
    stop_here();
    this_thread.depth.store(1, std::memory_order_relaxed);
    signal_fence();
}

} // namespace zel::platform
