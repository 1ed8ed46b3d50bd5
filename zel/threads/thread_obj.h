// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_ptr.h"
#include "zel/log/logger.h"
#include "zel/threads/kernel_obj.h"
#include <atomic>
#include <cstdint>

namespace zel {

/// A thread that runs the `run` of a derived class.
///
/// The object is counted, and its running thread holds a reference. So the object has to come from
/// `new`, and its owner may release it right after `start`. An exception of `run` ends in the
/// thread and is reported to the logger, if there is one. The host shows the thread under the
/// object's name, cut to 15 bytes.
///
/// Any thread may call any member once `start` has returned. There is no lock in the object or
/// around the logger; several threads may share a logger only if it allows that.
/// \code
///     class download : public zel::thread_obj {
///     public:
///         using thread_obj::thread_obj;
///
///     protected:
///         unsigned int run() override { return fetch() ? 0 : 1; }
///     };
///     zel::auto_ptr<zel::thread_obj> work(new download(log, "download"));
///     work->start();
///     work->wait();
/// \endcode
class ZEL_API thread_obj : public kernel_obj {
public:
    /// Starts no thread yet.
    /// \param log  receives reports of failures; null for none.
    thread_obj(auto_ptr<logger> log, string const & name);

    /// Neither waits for the thread nor stops it.
    ~thread_obj() override;

    /// Starts the thread, once for each object. It runs at normal priority whatever the caller's
    /// priority is, if the host permits raising it to that. Handle and id are set when `run`
    /// begins. `is_started` becomes true on the thread itself, perhaps after this returns.
    /// \throws kernel_obj::exception  `failed_to_create_object` when the host has no room for
    ///                                another thread; the reference taken for it is given back.
    virtual void start();

    /// Waits without limit until the thread has ended, and the destructors of its thread-specific
    /// data have returned.
    /// \throws kernel_obj::exception  `failed_to_create_object` before `start`. The members below
    ///                                that return something about the thread raise it too.
    /// \throws sync_obj::exception    `failed_to_lock` when the wait fails.
    void wait();

    /// Ends the thread where it is: none of its destructors and handlers runs, and it reports
    /// nothing. It leaves no lock of the C library locked: a thread that may hold such a lock runs
    /// on until it has released it, within the limits of `zel/platform/threads/threads.h`.
    /// `is_started` stays true. The thread's reference is never released, so the count never
    /// deletes the object. Mutexes that the thread owned are abandoned. Has no effect when the
    /// thread has ended.
    /// \param exit_code  the result of `platform::get_exit_code_thread` from then on.
    /// \returns false when the host cannot end it.
    bool terminate(std::uint32_t exit_code);

    /// \returns -15, -2 to 2 or 15; 0x7FFFFFFF when the thread has ended.
    std::int32_t get_priority();
    /// \param priority  one of those.
    /// \returns false, with nothing changed, for another value, or when the host refuses, as it
    ///          does for most users when the priority is raised.
    bool set_priority(std::int32_t priority);

    /// Suspends the thread wherever it is, and returns when it has stopped.
    /// \returns how many suspends were in effect before, up to 126; 0xFFFFFFFF when there are 127
    ///          or the thread has ended.
    std::uint32_t suspend();
    /// Takes one `suspend` back; the thread runs on when none is left.
    /// \returns how many suspends were in effect before; 0 also when the thread has ended.
    std::uint32_t resume();

    /// True while `run` is running.
    bool is_started() const noexcept { return started_.load(std::memory_order_acquire); }

    /// The host's number of the thread; 0 before `start`. It stays set after the thread's end, when
    /// the host may reuse the number.
    std::uint32_t get_id() const noexcept { return id_.load(std::memory_order_relaxed); }

protected:
    /// The work of the thread. Its result becomes the thread's exit code. An exception is reported
    /// and makes the exit code 0xFFFFFFFF: an `exception` of this library with its message,
    /// anything else as unknown.
    virtual unsigned int run() = 0;

    /// What the new thread runs, with the object as its argument.
    static unsigned int proc(void * argument);

private:
    friend class thread_obj_ex;

    // Starts the thread on `body`, which gets this object.
    void start_on(unsigned int (*body)(void *));
    // Everything that the new thread does, except for the references.
    unsigned int work();
    unsigned int run_and_report();
    void require_thread() const;

    auto_ptr<logger> log_;
    std::atomic<std::uint32_t> id_{0};
    std::atomic<bool> started_{false};
};

} // namespace zel
