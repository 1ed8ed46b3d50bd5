// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/platform/message_queue.h"
#include "zel/threads/thread_obj.h"

namespace zel {

/// A thread that another thread can wait for while it keeps serving its own message queue.
///
/// Unlike that of a `thread_obj`, its running thread holds no reference: the owner has to keep the
/// object, which may be a local, until the thread has ended.
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
    /// Waits without limit until the thread has ended, and meanwhile dispatches the messages of the
    /// calling thread. It sleeps while there is nothing to do, and wakes up with one system call.
    ///
    /// The thread's end takes precedence over waiting messages, which then stay in the queue. A
    /// quit message is removed and has no effect. Exceptions of a window's procedure pass through.
    /// \throws kernel_obj::exception  `failed_to_create_object` before `start`.
    /// \throws sync_obj::exception    `failed_to_lock` when the wait fails, for example without
    ///                                memory for the caller's queue.
    virtual void wait_msg_loop();

protected:
    /// What the new thread runs, with the object as its argument.
    static unsigned int proc_ex(void * argument);

    /// Fetches the next message, which may be another one than `message`, and dispatches it unless
    /// it is the quit message.
    void translateUnicodeMessage(tagMSG & message);
    void translateMultibyteMessage(tagMSG & message);
};

static_assert(sizeof(thread_obj_ex) == sizeof(thread_obj));

} // namespace zel
