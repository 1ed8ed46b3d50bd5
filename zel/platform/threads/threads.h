// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/waits/brief_lock.h"
#include "zel/platform/waits/uninterrupted.h"
#include <cstdint>

/// Threads that can be suspended and terminated.
///
/// Stopping takes one real-time signal, SIGRTMIN + 6 unless the build says otherwise (the CMake
/// variable ZEL_STOP_SIGNAL); its handler is set when the first thread starts, and a new thread
/// lets it in whatever mask it inherits. To a thread that is stopped and runs on, a system call
/// that was in progress goes on as after any handler with SA_RESTART: signal(7) lists the calls
/// that fail with EINTR all the same, among them sleeps, poll, epoll_wait and waits with a limit
/// for sockets and message queues.
///
/// Only threads that `begin_thread` made can be stopped; any thread may call the rest. A thread is
/// a thread of the host's library in everything else: `pthread_exit` ends it with the exit code
/// 0xFFFFFFFF. A thread whose body has returned has ended when the destructors of its keys have
/// returned too. A terminated one leaves the memory that it has from the heap, with what the host's
/// library keeps of the heap for each thread, and still counts as a thread for a main thread that
/// ends by `pthread_exit`.
///
/// A forked child has the forking thread alone. Handles of others that were running are handles of
/// ended threads there, with the exit code 0xFFFFFFFF.
namespace zel::platform {

/// The exit code of a thread that runs.
constexpr std::uint32_t still_active = 259;
/// What `get_thread_priority` returns when it fails.
constexpr std::int32_t priority_error = 0x7FFFFFFF;

/// Starts a thread. Both results are stored before `proc` runs, and are not touched once it does.
/// The thread begins at priority 0 whatever its maker's is, as far as the host lets it be raised.
/// \param proc    returns the exit code; nothing it raises may leave it.
/// \param id      takes the host's number of the thread, for any thread to read; may be null.
/// \param handle  takes what is returned too; may be null.
/// \returns a handle for `wait_for_single_object` and `close_handle`; null with the last error set.
void * begin_thread(unsigned int (*proc)(void *), void * argument, atomic<std::uint32_t> * id,
                    void ** handle = nullptr) noexcept;

/// Stores the exit code, 259 while the thread runs.
bool get_exit_code_thread(void * handle, std::uint32_t & code) noexcept;

/// Ends the thread where it is, suspended or not: no destructor, no handler, no cleaning up.
/// Mutexes that it owned are abandoned; waiters for it wake. Returns when it has ended. Harmless
/// after the thread's end. For the calling thread it does not return, and nothing is postponed.
///
/// The thread leaves no lock of the C library behind, neither of its heap nor of its loader or its
/// streams: while it may hold one it runs on, also if it was suspended. That is so while it is in
/// the library's code or waits for a lock of it, while the library has called it (a constructor of
/// a module that is being loaded), and in a signal handler that interrupted either. The limits:
/// - a thread that comes out of it at no look for a second of its own processor time, or that sleeps
///   for a second in one call, waiting for such a lock or under the loader's lock;
/// - one that sleeps for 20 ms in any other call that the library makes for it, so that a stream for
///   whose file it waits stays locked;
/// - one that the library has called, for 20 ms of its own processor time, but for the loader.
/// \returns false with last error 6, or 156 when the thread blocks the signal that this takes: when
///          it was seen to run or to sleep so for 50 ms; or when the host lets no signal wait for
///          about a second (the limit RLIMIT_SIGPENDING of the user).
bool terminate_thread(void * handle, std::uint32_t exit_code) noexcept;

/// Stops the thread wherever it is and counts; returns when it has stopped, for the calling thread
/// when it was resumed. A stopped thread waits for no object of this layer.
/// \returns the count before, 0 to 126; 0xFFFFFFFF with last error 156 at a count of 127 or when
///          the thread blocks the signal that this takes, as above; 5 when it has ended or is being
///          terminated; 6.
std::uint32_t suspend_thread(void * handle) noexcept;
/// \returns the count before; the thread runs on when it was 1 or 0.
std::uint32_t resume_thread(void * handle) noexcept;

/// -15, -2 to 2 or 15, which are the nice values 19, 10, 5, 0, -5, -10 and -20 of the host; the
/// nearest of them when somebody else has set another.
/// \returns `priority_error` with last error 5 when the thread has ended, or 6.
std::int32_t get_thread_priority(void * handle) noexcept;
/// \returns false, with nothing changed, and last error 5 when the host refuses or the thread has
///          ended, 87 for another value, 6.
bool set_thread_priority(void * handle, std::int32_t priority) noexcept;

/// Names the calling thread where the host shows it, cut to 15 bytes.
void set_thread_name(char const * name) noexcept;

/// The host's number of the calling thread.
std::uint32_t current_thread_id() noexcept;

/// Has `function(data)` called once at the calling thread's end, whoever made the thread: on the
/// thread itself after its own destructors, or by `terminate_thread` once it is gone. Not at the
/// end of the process. One a thread; a null function takes it back.
/// \returns false when the host is out of memory.
bool set_thread_teardown(void (*function)(void *), void * data) noexcept;

/// Finishes every terminated thread that the host has cleared away: calls its teardown and tells
/// those who wait. Costs one load when there is none. Inside `uninterrupted`.
void reap_threads() noexcept;

/// Waits in one call for the end of a thread or for a change of `word`, which its changer tells by
/// `wake_address(word, 1, false)`. Linux before 5.16 cannot wait for both: there a thread's end is
/// noticed up to 5 ms late.
/// \returns 0: the thread has ended; 1: the word holds something else than `expected`; 258: the
///          time was over; 0xFFFFFFFF with last error 6: no handle of a thread.
std::uint32_t wait_for_thread_or_change(void * handle, atomic<std::uint32_t> const & word,
                                        std::uint32_t expected,
                                        std::uint32_t milliseconds) noexcept;

} // namespace zel::platform
