// SPDX-License-Identifier: MIT
#include "zel/threads/thread_obj.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/threads/threads.h"
#include "zel/threads/handle_wait.h"
#include "zel/threads/sync_obj.h"
#include <exception>

namespace zel {
namespace {

constexpr unsigned int failed = 0xFFFFFFFF; // the exit code after an exception

// For use in a `catch (...)` block. When a thread calls pthread_exit, the C library unwinds it with
// a non-standard exception of its own, and ends the process if that exception is not rethrown.
void let_the_host_unwind()
{
    if (std::current_exception() == nullptr) {
        throw;
    }
}

} // namespace

thread_obj::thread_obj(auto_ptr<logger> log, string const & name)
    : kernel_obj(name)
    , log_(std::move(log))
{
}

thread_obj::~thread_obj() = default;

void thread_obj::start()
{
    [[maybe_unused]] std::uint32_t const holders = inc_ref(); // for the new thread
#ifndef NDEBUG
    if (holders == 1) {
        require_from_new(this);
    }
#endif
    try {
        start_on(proc);
    } catch (...) {
        undo_inc_ref();
        throw;
    }
}

void thread_obj::start_on(unsigned int (*body)(void *))
{
    // The layer stores both results before the body runs. After that the object may be deleted at
    // any moment.
    if (platform::begin_thread(body, this, &id_, &handle) == nullptr) {
        throw kernel_obj::exception(kernel_obj::exception::failed_to_create_object,
                                    "thread_obj::start()");
    }
}

unsigned int thread_obj::proc(void * argument)
{
    auto_ptr<thread_obj> const self(static_cast<thread_obj *>(argument));
    self->dec_ref(); // the reference that start() took; `self` has its own
    return self->work();
}

unsigned int thread_obj::work()
{
    // A destructor, so that it also runs when the host unwinds the thread.
    struct end_of_work {
        std::atomic<bool> & started;
        ~end_of_work() { started.store(false, std::memory_order_release); }
    };

    started_.store(true, std::memory_order_release);
    end_of_work const end{started_};
    platform::set_thread_name(get_name().c_str());
    try {
        if (log_ != nullptr) {
            log_->write(logger::trace, "Thread '%s' started.", get_name().c_str());
        }
        unsigned int const code = run_and_report();
        if (log_ != nullptr) {
            log_->write(logger::trace, "Thread (id=0x%x) '%s' finished.", get_id(),
                        get_name().c_str());
        }
        return code;
    } catch (...) {
        let_the_host_unwind();
        return failed; // the logger raised, so this cannot be reported
    }
}

unsigned int thread_obj::run_and_report()
{
    try {
        return run();
    } catch (zel::exception & failure) {
        if (log_ != nullptr) {
            log_->write(logger::error, "Exception '%s' occured in thread (id=0x%x) '%s'!",
                        failure.get_message().c_str(), get_id(), get_name().c_str());
        }
    } catch (...) {
        let_the_host_unwind();
        if (log_ != nullptr) {
            log_->write(logger::error, "Unknown exception occured in thread (id=0x%x) '%s'!",
                        get_id(), get_name().c_str());
        }
    }
    return failed;
}

void thread_obj::require_thread() const
{
    if (handle == nullptr) {
        throw kernel_obj::exception(kernel_obj::exception::failed_to_create_object,
                                    "thread_obj::wait()");
    }
}

void thread_obj::wait()
{
    require_thread();
    if (!wait_for_handle(handle, platform::infinite)) {
        throw sync_obj::exception(sync_obj::exception::failed_to_lock, "thread_obj::wait()");
    }
}

bool thread_obj::terminate(std::uint32_t exit_code)
{
    require_thread();
    return platform::terminate_thread(handle, exit_code);
}

std::int32_t thread_obj::get_priority()
{
    require_thread();
    return platform::get_thread_priority(handle);
}

bool thread_obj::set_priority(std::int32_t priority)
{
    require_thread();
    return platform::set_thread_priority(handle, priority);
}

std::uint32_t thread_obj::suspend()
{
    require_thread();
    return platform::suspend_thread(handle);
}

std::uint32_t thread_obj::resume()
{
    require_thread();
    return platform::resume_thread(handle);
}

} // namespace zel
