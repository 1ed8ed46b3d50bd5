// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_ptr.h"
#include "zel/log/logger.h"
#include "zel/threads/kernel_obj.h"
#include <atomic>
#include <cstdint>

namespace zel {

/// A thread whose work a derived class writes in `run`.
///
/// The object is counted, and its running thread holds a reference: it comes from `new`, and its
/// owner may let go right after `start`. Whatever `run` raises ends in the thread; a logger, if
/// there is one, is told. The host shows the thread under the object's name, cut to 15 bytes.
///
/// Any thread may call any member once `start` has returned. Nothing of the object is locked, and
/// neither is the logger, which several threads may share if it can bear that.
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
    /// No thread starts yet.
    /// \param log  takes the reports of what goes wrong; null for none.
    thread_obj(auto_ptr<logger> log, string const & name);

    /// Neither waits for the thread nor stops it.
    ~thread_obj() override;

    /// Starts the thread, once for an object, at normal priority whatever the caller's is, as far as
    /// the host lets it be raised. Handle and id are complete when `run` begins;
    /// `is_started` becomes true on the thread itself, perhaps after this returns.
    /// \throws kernel_obj::exception  `failed_to_create_object` when the host has no room for
    ///                                another thread; the reference taken for it is given back.
    virtual void start();

    /// Waits until the thread has ended, without limit. That is when the destructors of its keys have
    /// returned too.
    /// \throws kernel_obj::exception  `failed_to_create_object` before `start`; so do all members
    ///                                below that return something of the thread.
    /// \throws sync_obj::exception    `failed_to_lock` when the wait is given up.
    void wait();

    /// Ends the thread where it is: no destructor and no handler of it runs, and it reports
    /// nothing. It leaves no lock of the C library behind: one that may hold such a lock runs on
    /// until it has given it back, within the limits of `zel/platform/threads/threads.h`. `is_started` stays true, and the reference that the thread had is lost, so that the
    /// object is never deleted by its count. Mutexes that it owned are abandoned. Harmless when the
    /// thread has ended.
    /// \param exit_code  what `platform::get_exit_code_thread` then says.
    /// \returns false when the host cannot end it.
    bool terminate(std::uint32_t exit_code);

    /// \returns -15, -2 to 2 or 15; 0x7FFFFFFF when the thread has ended.
    std::int32_t get_priority();
    /// \param priority  one of those.
    /// \returns false, with nothing changed, for another value or when the host refuses, as it does
    ///          a raise for most users.
    bool set_priority(std::int32_t priority);

    /// Stops the thread wherever it is, and returns when it has stopped.
    /// \returns how often it was suspended already, up to 126; 0xFFFFFFFF when that is 127 or the
    ///          thread has ended.
    std::uint32_t suspend();
    /// Takes one `suspend` back; the thread runs on with the last of them.
    /// \returns how often it was suspended before: 0 also when the thread has ended.
    std::uint32_t resume();

    /// Whether the body runs.
    bool is_started() const noexcept { return started_.load(std::memory_order_acquire); }

    /// The host's number of the thread; 0 before `start`. It stays after the end, when the host may
    /// give the number to another thread.
    std::uint32_t get_id() const noexcept { return id_.load(std::memory_order_relaxed); }

protected:
    /// The work. Its result becomes the thread's exit code. What it raises is reported and makes
    /// that 0xFFFFFFFF: an `exception` of this library with its message, anything else as unknown.
    virtual unsigned int run() = 0;

    /// What the new thread runs, with the object as its argument.
    static unsigned int proc(void * argument);

private:
    friend class thread_obj_ex;

    // Starts the thread on `body`, which gets this object.
    void start_on(unsigned int (*body)(void *));
    // Everything on the new thread but the references.
    unsigned int work();
    unsigned int run_and_report();
    void require_thread() const;

    auto_ptr<logger> log_;
    std::atomic<std::uint32_t> id_{0};
    std::atomic<bool> started_{false};
};

} // namespace zel
