// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/platform/rectangles.h"
#include <cstdint>

/// A window, or null. It is a number in disguise: never look behind it.
using window_handle = void *;

/// A message as it lies in a queue.
struct tagMSG {
    window_handle hwnd; ///< null for a message to the thread itself
    unsigned int message; ///< its number
    std::uintptr_t wParam; ///< what the poster gave it
    std::intptr_t lParam; ///< likewise
    std::uint32_t time; ///< of the post, milliseconds of the monotonic clock, wraps
    t_point pt; ///< of the pointer at that time; there is none here, so 0, 0
};

namespace zel::platform {

using ::window_handle;

/// What a window does with a message; called on the window's thread alone, from `dispatch_message`.
/// What it raises passes through.
using window_procedure
    = std::intptr_t (*)(window_handle, unsigned int, std::uintptr_t, std::intptr_t);

/// The message that ends a program's loop: `get_message` returns 0 for it.
constexpr unsigned int message_quit = 0x0012;
/// The highest number of messages that wait in one queue.
constexpr std::uint32_t message_limit = 10'000;
/// For `peek_message`: takes the message out of the queue.
constexpr unsigned int peek_remove = 1;
/// In the place of a window: only messages to the thread itself.
inline window_handle thread_messages_only() noexcept
{
    return reinterpret_cast<window_handle>(std::intptr_t{-1});
}

/// \name Windows
/// A window is a procedure that belongs to the thread that made it. It ends with that thread, and
/// its waiting messages with it. The handle of a window that has gone is noticed and refused (last
/// error 1400) until some four thousand million later windows have been made.
/// @{

/// \param unicode  what `is_window_unicode` says.
/// \returns null with last error 87 for a null procedure, 8 when memory is exhausted, 1450 for more
///          than 65,535 windows of one thread.
ZEL_API window_handle create_window(window_procedure procedure, bool unicode = false) noexcept;

/// Ends a window of the calling thread and drops the messages that wait for it. None is sent.
/// \returns false with last error 1400 when it is no window, 5 when it belongs to another thread.
ZEL_API bool destroy_window(window_handle window) noexcept;

/// \returns false for a handle that is no window, with last error 1400.
ZEL_API bool is_window_unicode(window_handle window) noexcept;
/// @}

/// \name Posting
/// From any thread, also the queue's own. Messages of one sender keep their order. A post costs a
/// system call only when the thread sleeps for messages, or when its descriptor has been asked for
/// and the queue was empty. All fail with last error 1816 while 10,000 messages wait, and 8 when
/// memory is exhausted.
/// @{

/// Posts to the thread that owns the window; to the calling thread itself when `window` is null.
/// \returns false with last error 1400 when it is no window.
ZEL_API bool post_message(window_handle window, unsigned int message, std::uintptr_t wparam,
                          std::intptr_t lparam) noexcept;

/// Posts to a thread; the message has no window.
/// \param thread_id  the host's number, as `thread_obj::get_id` gives it.
/// \returns false with last error 1444 when it is no thread of this process, or one that has no
///          queue yet: a thread gets its queue with its first call of anything here but a post to
///          others.
ZEL_API bool post_thread_message(std::uint32_t thread_id, unsigned int message,
                                 std::uintptr_t wparam, std::intptr_t lparam) noexcept;

/// Has the calling thread's queue show `message_quit`, with `exit_code` as its wParam, as soon as
/// no other message waits that the caller asks for. It is shown whatever window and range are asked
/// for, and taken once however often this was called; the last exit code counts.
ZEL_API void post_quit_message(int exit_code) noexcept;
/// @}

/// \name Fetching
/// From the calling thread's queue, the longest waiting message first.
/// \param window  null for all messages, a window of the calling thread for its own, or
///                `thread_messages_only()`.
/// \param first,last  the range of message numbers, both included; 0 and 0 for all.
/// @{

/// Looks without waiting.
/// \param remove  bit 0 takes the message out; the others mean nothing.
/// \returns false, with `message` untouched, when there is none; also, with last error 1400, when
///          `window` is no window of the calling thread, and with 8 when there is no memory for the
///          queue.
ZEL_API bool peek_message(tagMSG & message, window_handle window, unsigned int first,
                          unsigned int last, unsigned int remove) noexcept;

/// Waits for a message, without limit, and takes it out. Both are the same: character sets differ
/// for messages that carry text, and none is made here.
/// \returns 1; 0 for `message_quit`; -1 where `peek_message` sets a last error.
ZEL_API int get_message_a(tagMSG & message, window_handle window, unsigned int first,
                          unsigned int last) noexcept;
ZEL_API int get_message_w(tagMSG & message, window_handle window, unsigned int first,
                          unsigned int last) noexcept;

/// There is no keyboard, so that no character message follows.
/// \returns whether it is one of the four messages of a key that goes down or up.
ZEL_API bool translate_message(tagMSG const & message) noexcept;

/// Calls the procedure of the message's window, on the thread that owns it.
/// \returns what it returned; 0 without a call when the message has no window, when the window has
///          gone (last error 1400) or when it belongs to another thread (5).
ZEL_API std::intptr_t dispatch_message_a(tagMSG const & message);
ZEL_API std::intptr_t dispatch_message_w(tagMSG const & message);
/// @}

/// \name Waiting with something else
/// @{

/// Waits, in one call, for the end of a thread or for a new message of the calling thread.
///
/// New are those that came since the queue was last looked at: any `peek_message` or `get_message`
/// looks at all, also at those that it was not asked for. So fetch until nothing is left before
/// waiting again.
/// \param thread        a handle of a thread.
/// \param milliseconds  0 only tests, 0xFFFFFFFF has no limit.
/// \returns 0: the thread has ended; 1: there are new messages, and the thread runs; 258: the time
///          was over; 0xFFFFFFFF with last error 6 or 8.
ZEL_API std::uint32_t msg_wait_for_thread(void * thread, std::uint32_t milliseconds) noexcept;

/// A file descriptor that is readable exactly while messages wait in the calling thread's queue,
/// the quit message included, for `poll`, `epoll` and event loops that stand on them. Never read,
/// write or close it; it ends with the thread. After a fork the child's thread has one of its own
/// under the same number, which an `epoll` set made before does not watch.
/// \returns -1 with last error 4 or 8.
ZEL_API int message_queue_descriptor() noexcept;
/// @}

} // namespace zel::platform
