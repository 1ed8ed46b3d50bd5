// SPDX-License-Identifier: MIT
#pragma once

#include "window_messages.h"
#include <atomic>
#include <cstdint>
#include <zel/zel.h>

namespace notebook {

/// Lets one notebook run at a time for one file of settings: a mutex with a name says which process
/// that is, and two events call it and tell that it has heard.
///
/// The thread that makes the object has to use and destroy it, for it may own the mutex.
class instance {
public:
    enum outcome {
        first,
        first_after_crash, ///< the other one ended without leaving
        another_runs,
    };

    /// \param name  as long as it may be.
    explicit instance(zel::string const & name);
    ~instance();
    instance(instance const &) = delete;
    instance & operator=(instance const &) = delete;

    /// \param patience  milliseconds to wait for the end of another one, `infinite` for no limit.
    outcome enter(std::uint32_t patience);

    /// Calls the one that runs.
    /// \returns false when it has not answered: it has just gone, or stands still.
    bool call();
    /// What the one that runs says to that.
    void answer() { answered_.set(); }

    zel::event & called() { return called_; }

private:
    zel::mutex running_;
    zel::event called_;
    zel::event answered_;
    bool entered_ = false;
};

/// Waits for the calls of other starts, and posts each to a window.
class call_listener : public zel::thread_obj {
public:
    call_listener(zel::auto_ptr<zel::logger> log, zel::event & called, window_handle window);

    /// Returns when the thread has ended.
    void end();

protected:
    unsigned int run() override;

private:
    zel::event & called_;
    window_handle window_;
    std::atomic<bool> over_{false};
};

} // namespace notebook
