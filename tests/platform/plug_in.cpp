// SPDX-License-Identifier: MIT
// A module that has the library, shared or as a part of itself, and is loaded and unloaded.
#include "zel/platform/message_queue.h"
#include "zel/threads/event.h"
#include "zel/threads/mutex.h"
#include "zel/threads/thread_obj.h"

#include <atomic>

namespace {

// Takes a while, in which a thread can be stopped inside the loader.
struct slow_to_load {
    slow_to_load()
    {
        for (int i = 0; i < 20'000; ++i) {
            std::atomic_signal_fence(std::memory_order_seq_cst); // the loop stays
        }
    }
} const at_load;

class setter : public zel::thread_obj {
public:
    explicit setter(zel::event & done)
        : thread_obj(nullptr, "setter")
        , done_(done)
    {
    }

protected:
    unsigned int run() override
    {
        done_.set();
        return 0;
    }

private:
    zel::event & done_;
};

} // namespace

extern "C" [[gnu::visibility("default")]] bool use_library()
{
    zel::event done;
    zel::auto_ptr<setter> const thread(new setter(done));
    thread->start();
    zel::mutex const mutex(true);
    bool const good = done.lock(0xFFFFFFFF)
        && zel::platform::post_message(nullptr, 1, 0, 0); // has this thread a queue, which it ends
    thread->wait();
    return good;
}
