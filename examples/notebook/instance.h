// SPDX-License-Identifier: MIT
#pragma once

#include "window_messages.h"
#include <atomic>
#include <cstdint>
#include <zel/zel.h>

namespace notebook {

/// Lets only one notebook run at a time for one file of settings. A named mutex tells which process
/// runs; one event calls that process, and another one is its answer.
///
/// The thread that creates the object has to use and destroy it, because it may own the mutex.
class instance {
public:
    enum outcome {
        first,
        first_after_crash, ///< the previous one ended without releasing the mutex
        another_runs,
    };

    /// \param name  of any length.
    explicit instance(zel::string const & name);
    ~instance();
    instance(instance const &) = delete;
    instance & operator=(instance const &) = delete;

    /// \param patience  milliseconds to wait for another notebook to end, `infinite` for no limit.
    outcome enter(std::uint32_t patience);

    /// Calls the notebook that runs.
    /// \returns false when it has not answered: it has just ended, or it hangs.
    bool call();
    /// The answer of the notebook that runs.
    void answer() { answered_.set(); }

    zel::event & called() { return called_; }

private:
    zel::mutex running_;
    zel::event called_;
    zel::event answered_;
    bool entered_ = false;
};

/// Waits for calls of other processes, and posts each to a window.
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
