// SPDX-License-Identifier: MIT
#include "zel/threads/thread_obj_ex.h"

#include "zel/platform/kernel_objects.h"
#include "zel/threads/sync_obj.h"

namespace zel {

thread_obj_ex::thread_obj_ex(auto_ptr<logger> log, string const & name)
    : thread_obj(std::move(log), name)
{
}

thread_obj_ex::~thread_obj_ex() = default;

void thread_obj_ex::start() { start_on(proc_ex); }

unsigned int thread_obj_ex::proc_ex(void * argument)
{
    auto * const self = static_cast<thread_obj *>(argument);
    return self->work();
}

void thread_obj_ex::wait_msg_loop()
{
    require_thread();
    for (;;) {
        std::uint32_t const result = platform::msg_wait_for_thread(handle, platform::infinite);
        if (result == platform::wait_object_0) {
            return;
        }
        if (result != platform::wait_object_0 + 1) {
            throw sync_obj::exception(sync_obj::exception::failed_to_lock, "thread_obj::wait()");
        }
        tagMSG message;
        while (platform::peek_message(message, nullptr, 0, 0, 0)) {
            // The message that is fetched later may be another one. The peek only chooses the
            // character set.
            if (platform::is_window_unicode(message.hwnd)) {
                translateUnicodeMessage(message);
            } else {
                translateMultibyteMessage(message);
            }
            if (platform::wait_for_single_object(handle, 0) == platform::wait_object_0) {
                return;
            }
        }
    }
}

void thread_obj_ex::translateUnicodeMessage(tagMSG & message)
{
    if (platform::get_message_w(message, nullptr, 0, 0) > 0) {
        platform::translate_message(message);
        platform::dispatch_message_w(message);
    }
}

void thread_obj_ex::translateMultibyteMessage(tagMSG & message)
{
    if (platform::get_message_a(message, nullptr, 0, 0) > 0) {
        platform::translate_message(message);
        platform::dispatch_message_a(message);
    }
}

} // namespace zel
