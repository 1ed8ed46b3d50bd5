// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/waits/brief_lock.h"
#include "zel/platform/waits/uninterrupted.h"
#include <cstdint>

/// Threads that can be suspended and terminated.
///
/// Stopping uses one real-time signal, SIGRTMIN + 6 unless the build says otherwise (the CMake
/// variable ZEL_STOP_SIGNAL). stop_handler_linux.cpp handles it. The handler is installed when the
/// first thread starts, and a new thread unblocks the signal whatever mask it inherits. When a
/// stopped thread continues, an interrupted system call behaves as after any handler with
/// SA_RESTART: signal(7) lists the calls that fail with EINTR nevertheless, among them sleeps,
/// poll, epoll_wait and waits with a timeout for sockets and message queues.
///
/// Only threads that `begin_thread` started can be stopped; any thread may call the other
/// functions. In all other respects a thread is a thread of the host's library: `pthread_exit` ends
/// it with the exit code 0xFFFFFFFF. A thread whose body has returned has ended when the
/// destructors of its keys have returned too. A terminated thread leaks its heap memory, including
/// what the host's library keeps of the heap for each thread. For a main thread that ends by
/// `pthread_exit` it still counts as a running thread.
///
/// A forked child has only the forking thread. In the child, handles of other running threads are
/// handles of ended threads, with the exit code 0xFFFFFFFF.
namespace zel::platform {

/// The exit code of a thread that runs.
constexpr std::uint32_t still_active = 259;
/// The result of `get_thread_priority` on failure.
constexpr std::int32_t priority_error = 0x7FFFFFFF;

/// Starts a thread. Both results are stored before `proc` runs, and are not accessed after that.
/// The thread starts with priority 0 whatever the priority of its creator, if the host permits
/// raising it to that.
/// \param proc    returns the exit code; it must not raise.
/// \param id      receives the host's number of the thread, readable by any thread; may be null.
/// \param handle  receives the returned handle too; may be null.
/// \returns a handle for `wait_for_single_object` and `close_handle`; null with the last error set.
void * begin_thread(unsigned int (*proc)(void *), void * argument, atomic<std::uint32_t> * id,
                    void ** handle = nullptr) noexcept;

/// Stores the exit code, 259 while the thread runs.
bool get_exit_code_thread(void * handle, std::uint32_t & code) noexcept;

/// Ends the thread where it is, suspended or not: none of its destructors and handlers runs.
/// Mutexes that it owned are abandoned; its waiters wake. Returns when it has ended. Has no effect
/// after the thread's end. For the calling thread it does not return, and nothing is postponed.
///
/// The thread leaves no lock of the C library locked, neither of its heap nor of its loader or its
/// streams. While it may hold such a lock it runs on, also if it was suspended. That is the case
/// while it is in the library's code or waits for a lock of the library, while the library has
/// called it (a constructor of a module that is being loaded), and in a signal handler that
/// interrupted either. The exceptions, after which it is terminated nevertheless:
/// - a thread that every check finds inside the library for a second of its own processor time, or
///   that sleeps for a second in one call, waiting for such a lock or holding the loader's lock;
/// - a thread that sleeps for 20 ms in any other call that the library makes for it: a stream for
///   whose file it waits then stays locked;
/// - a thread that the library has called, after 20 ms of its own processor time, unless the loader
///   called it.
/// \returns false with last error 6, or 156 when the thread blocks the stop signal (it was seen
///          running or sleeping with the signal blocked for 50 ms), or when the host could not queue
///          the signal for about a second (the user's limit RLIMIT_SIGPENDING).
bool terminate_thread(void * handle, std::uint32_t exit_code) noexcept;

/// Suspends the thread wherever it is, and increments its suspend count. Returns when the thread
/// has stopped; for the calling thread, when it was resumed. A stopped thread leaves the queue of
/// an object that it waits for.
/// \returns the count before, 0 to 126; 0xFFFFFFFF with last error 156 when the count is 127 or the
///          thread blocks the stop signal, as above; 5 when it has ended or is being terminated; 6.
std::uint32_t suspend_thread(void * handle) noexcept;
/// \returns the count before; the thread runs on when it was 1 or 0.
std::uint32_t resume_thread(void * handle) noexcept;

/// -15, -2 to 2 or 15, which stand for the host's nice values 19, 10, 5, 0, -5, -10 and -20. If
/// another program has set a different value, the nearest of these.
/// \returns `priority_error` with last error 5 when the thread has ended, or 6.
std::int32_t get_thread_priority(void * handle) noexcept;
/// \returns false, with nothing changed, and last error 5 when the host refuses or the thread has
///          ended, 87 for another value, 6.
bool set_thread_priority(void * handle, std::int32_t priority) noexcept;

/// Sets the name under which the host shows the calling thread, cut to 15 bytes.
void set_thread_name(char const * name) noexcept;

/// The host's number of the calling thread.
std::uint32_t current_thread_id() noexcept;

/// Registers `function(data)`, called once at the calling thread's end; the thread need not come
/// from `begin_thread`. It is called on the thread itself after its own destructors, or by
/// `terminate_thread` once the thread has gone; not at the end of the process. Each thread has one;
/// a null function removes it.
/// \returns false when the host is out of memory.
bool set_thread_teardown(void (*function)(void *), void * data) noexcept;

/// Reaps every terminated thread that the host has cleaned up: calls its teardown and wakes its
/// waiters. Costs one load when there is none. Call it inside `uninterrupted`.
void reap_threads() noexcept;

/// Waits for the end of a thread or for a change of `word`. The thread that changes the word calls
/// `wake_address(word, 1, false)`. Linux before 5.16 cannot wait for both; there the end of a
/// thread is noticed after up to 5 ms.
/// \returns 0: the thread has ended; 1: the word differs from `expected`; 258: timed out;
///          0xFFFFFFFF with last error 6: not a handle of a thread.
std::uint32_t wait_for_thread_or_change(void * handle, atomic<std::uint32_t> const & word,
                                        std::uint32_t expected,
                                        std::uint32_t milliseconds) noexcept;

} // namespace zel::platform
