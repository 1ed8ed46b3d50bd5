// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/platform/message_queue.h"
#include "zel/threads/thread_obj.h"

namespace zel {

/// A thread that another one can wait for while it goes on serving its own message queue.
///
/// Unlike a `thread_obj`, its running thread holds no reference: the owner holds the object, which
/// may stand on the stack, until the thread has ended.
/// \code
///     download work(log, "download");   // derived from thread_obj_ex
///     work.start();
///     work.wait_msg_loop();             // windows of this thread go on working
/// \endcode
class ZEL_API thread_obj_ex : public thread_obj {
public:
    /// As in `thread_obj`.
    thread_obj_ex(auto_ptr<logger> log, string const & name);
    ~thread_obj_ex() override;

    /// As in `thread_obj`, without a reference.
    void start() override;

protected:
    unsigned int run() override = 0;

public:
    /// Waits until the thread has ended, without limit, and meanwhile dispatches the messages of
    /// the calling thread. While nothing happens it sleeps, and wakes up with one system call.
    ///
    /// The thread's end goes before waiting messages, which then stay in the queue. A quit message
    /// is taken and ends nothing. What a window's procedure raises passes through.
    /// \throws kernel_obj::exception  `failed_to_create_object` before `start`.
    /// \throws sync_obj::exception    `failed_to_lock` when the wait fails, as it does without
    ///                                memory for the caller's queue.
    virtual void wait_msg_loop();

protected:
    /// What the new thread runs, with the object as its argument.
    static unsigned int proc_ex(void * argument);

    /// Fetches the next message, whichever it is by now, and dispatches it unless it is the quit
    /// message.
    void translateUnicodeMessage(tagMSG & message);
    void translateMultibyteMessage(tagMSG & message);
};

static_assert(sizeof(thread_obj_ex) == sizeof(thread_obj));

} // namespace zel
