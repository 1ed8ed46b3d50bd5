// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"
#include "zel/threads/event.h"
#include "zel/threads/thread_obj_ex.h"

#include "tests/time_limit.h"
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace zel::platform;

// Runs until it is told to end.
class gate : public zel::thread_obj_ex {
public:
    gate()
        : thread_obj_ex(nullptr, "gate")
    {
    }
    void open() { end_.set(); }

protected:
    unsigned int run() override
    {
        end_.lock(infinite);
        return 0;
    }

private:
    zel::event end_;
};

gate * outer = nullptr;
gate * inner = nullptr;
std::vector<unsigned int> seen;

enum : unsigned int { plain = 0x0400, nests, ends_inner, raises, ends };

std::intptr_t on_message(window_handle window, unsigned int message, std::uintptr_t, std::intptr_t)
{
    seen.push_back(message);
    if (message == nests) {
        post_message(window, ends_inner, 0, 0);
        inner->wait_msg_loop();
    } else if (message == ends_inner) {
        inner->open();
        inner->wait();
    } else if (message == raises) {
        throw std::runtime_error("from the procedure");
    } else if (message == ends) {
        outer->open();
        outer->wait();
    }
    return 0;
}

TEST(thread_obj_ex, serves_the_queue_until_the_thread_has_ended)
{
    time_limit const limit(20);
    gate first; // on the stack: no thread holds it
    gate second;
    outer = &first;
    inner = &second;
    EXPECT_THROW(first.wait_msg_loop(), zel::kernel_obj::exception);
    first.start();
    second.start();
    EXPECT_EQ(first.ref_count(), 0U);
    window_handle const window = create_window(on_message, true);
    EXPECT_TRUE(post_message(window, raises, 0, 0));
    EXPECT_THROW(first.wait_msg_loop(), std::runtime_error);

    EXPECT_TRUE(post_message(window, nests, 0, 0));
    EXPECT_TRUE(post_message(nullptr, plain, 0, 0)); // nobody's: taken and dropped
    post_quit_message(0); // is taken and ends nothing
    std::thread poster([=] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        for (unsigned int const message : {plain, ends, plain}) {
            EXPECT_TRUE(post_message(window, message, 0, 0));
        }
    });
    first.wait_msg_loop();
    poster.join();
    EXPECT_FALSE(first.is_started() || second.is_started());
    EXPECT_EQ(seen, (std::vector<unsigned int>{raises, nests, ends_inner, plain, ends}));
    first.wait_msg_loop(); // has ended: at once, with a message left
    tagMSG left{};
    EXPECT_TRUE(peek_message(left, window, plain, plain, peek_remove));
    EXPECT_FALSE(peek_message(left, nullptr, 0, 0, 0));
    EXPECT_TRUE(destroy_window(window));
}

} // namespace
