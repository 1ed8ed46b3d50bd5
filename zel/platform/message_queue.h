// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/platform/rectangles.h"
#include <cstdint>

/// A window, or null. It is a number in the form of a pointer: never dereference it.
using window_handle = void *;

/// A message in a queue.
struct tagMSG {
    window_handle hwnd; ///< null for a message to the thread itself
    unsigned int message; ///< its number
    std::uintptr_t wParam; ///< from the poster
    std::intptr_t lParam; ///< likewise
    std::uint32_t time; ///< of the post, in milliseconds of the monotonic clock; wraps
    t_point pt; ///< the mouse position; there is none here, so 0, 0
};

namespace zel::platform {

using ::window_handle;

/// Handles a message of a window. `dispatch_message` calls it, only on the window's thread.
/// Exceptions pass through.
using window_procedure
    = std::intptr_t (*)(window_handle, unsigned int, std::uintptr_t, std::intptr_t);

/// The message that ends a program's loop: `get_message` returns 0 for it.
constexpr unsigned int message_quit = 0x0012;
/// The maximum number of messages waiting in one queue.
constexpr std::uint32_t message_limit = 10'000;
/// For `peek_message`: takes the message out of the queue.
constexpr unsigned int peek_remove = 1;
/// Used in place of a window: only messages to the thread itself.
inline window_handle thread_messages_only() noexcept
{
    return reinterpret_cast<window_handle>(std::intptr_t{-1});
}

/// \name Windows
/// A window is a procedure that belongs to the thread that created it. It ends with that thread,
/// together with its waiting messages. The handle of a window that has ended is detected and
/// refused (last error 1400), until about four thousand million more windows have been created.
/// @{

/// \param unicode  the result of `is_window_unicode`.
/// \returns null with last error 87 for a null procedure, 8 when memory is exhausted, 1450 for more
///          than 65,535 windows of one thread.
ZEL_API window_handle create_window(window_procedure procedure, bool unicode = false) noexcept;

/// Ends a window of the calling thread and discards its waiting messages. No message is sent.
/// \returns false with last error 1400 when this is not a window, 5 when it belongs to another
///          thread.
ZEL_API bool destroy_window(window_handle window) noexcept;

/// \returns false, with last error 1400, for a handle that is not a window.
ZEL_API bool is_window_unicode(window_handle window) noexcept;
/// @}

/// \name Posting
/// Any thread may post, also the owner of the queue. Messages of one sender keep their order. A
/// post makes a system call only when the owner sleeps for messages, or when the queue's descriptor
/// is in use and the queue was empty. All fail with last error 1816 while 10,000 messages wait, and
/// with 8 when memory is exhausted.
/// @{

/// Posts to the thread that owns the window, or to the calling thread when `window` is null.
/// \returns false with last error 1400 when this is not a window.
ZEL_API bool post_message(window_handle window, unsigned int message, std::uintptr_t wparam,
                          std::intptr_t lparam) noexcept;

/// Posts to a thread; the message has no window.
/// \param thread_id  the host's number of the thread, from `thread_obj::get_id`.
/// \returns false with last error 1444 when this is not a thread of this process, or the thread has
///          no queue yet. A thread gets its queue with its first call of any function here, except
///          posts to other threads.
ZEL_API bool post_thread_message(std::uint32_t thread_id, unsigned int message,
                                 std::uintptr_t wparam, std::intptr_t lparam) noexcept;

/// Makes the calling thread's queue return `message_quit`, with `exit_code` as its wParam, as soon
/// as no other message waits that the caller asks for. It is returned for every window and range.
/// It is removed once, however often this was called, with the last exit code.
ZEL_API void post_quit_message(int exit_code) noexcept;
/// @}

/// \name Fetching
/// These read the calling thread's queue, the oldest message first.
/// \param window  null for all messages, a window of the calling thread for its own, or
///                `thread_messages_only()`.
/// \param first,last  the range of message numbers, both included; 0 and 0 for all.
/// @{

/// Reads without waiting.
/// \param remove  bit 0 removes the message from the queue; other bits have no effect.
/// \returns false, with `message` unchanged, when there is none. Also false with last error 1400
///          when `window` is not a window of the calling thread, and with 8 when there is no memory
///          for the queue.
ZEL_API bool peek_message(tagMSG & message, window_handle window, unsigned int first,
                          unsigned int last, unsigned int remove) noexcept;

/// Waits for a message, without limit, and removes it from the queue. Both forms are the same:
/// character sets matter only for messages with text, and there are none here.
/// \returns 1; 0 for `message_quit`; -1 when `peek_message` would set a last error.
ZEL_API int get_message_a(tagMSG & message, window_handle window, unsigned int first,
                          unsigned int last) noexcept;
ZEL_API int get_message_w(tagMSG & message, window_handle window, unsigned int first,
                          unsigned int last) noexcept;

/// There is no keyboard, so no character message follows.
/// \returns true for the four messages about a key that goes down or up.
ZEL_API bool translate_message(tagMSG const & message) noexcept;

/// Calls the procedure of the message's window. Must be called on the thread that owns the window.
/// \returns the procedure's result. 0 without a call when the message has no window, when the
///          window has ended (last error 1400), or when it belongs to another thread (5).
ZEL_API std::intptr_t dispatch_message_a(tagMSG const & message);
ZEL_API std::intptr_t dispatch_message_w(tagMSG const & message);
/// @}

/// \name Waiting with something else
/// @{

/// Waits for the end of a thread or for a new message of the calling thread.
///
/// A message is new if it came after the queue was last read: any `peek_message` or `get_message`
/// counts as reading all messages, also those that it did not ask for. So read until nothing is
/// left before waiting again.
/// \param thread        a handle of a thread.
/// \param milliseconds  0 only tests, 0xFFFFFFFF has no limit.
/// \returns 0: the thread has ended; 1: there are new messages, and the thread runs; 258: timed
///          out; 0xFFFFFFFF with last error 6 or 8.
ZEL_API std::uint32_t msg_wait_for_thread(void * thread, std::uint32_t milliseconds) noexcept;

/// A file descriptor that is readable exactly while messages wait in the calling thread's queue,
/// including the quit message. It is meant for `poll`, `epoll` and event loops. Never read, write
/// or close it; it ends with the thread. After a fork, the child's thread has its own descriptor
/// under the same number, which an `epoll` set made before the fork does not watch.
/// \returns -1 with last error 4 or 8.
ZEL_API int message_queue_descriptor() noexcept;
/// @}

} // namespace zel::platform
