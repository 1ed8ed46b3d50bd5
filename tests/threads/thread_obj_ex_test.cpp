// SPDX-License-Identifier: MIT
#include "zel/threads/event.h"
#include "zel/threads/thread_obj_ex.h"

#include "tests/time_limit.h"
#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

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
        end_.lock(0xFFFFFFFF);
        return 0;
    }

private:
    zel::event end_;
};

gate * current_gate = nullptr;
std::vector<unsigned int> seen;
constexpr unsigned int last = 0x0500; // opens the gate

std::intptr_t record(window_handle, unsigned int message, std::uintptr_t, std::intptr_t)
{
    seen.push_back(message);
    if (message == last) {
        current_gate->open();
        current_gate->wait();
    }
    return 0;
}

class thread_obj_ex : public testing::Test {
protected:
    thread_obj_ex()
    {
        seen.clear();
        current_gate = &thread;
    }
    ~thread_obj_ex() override { destroy_window(window); }

    time_limit const limit{20};
    gate thread; // on the stack: no thread holds it
    window_handle const window = create_window(record);
};

TEST_F(thread_obj_ex, has_no_thread_before_its_start)
{
    EXPECT_THROW(thread.wait_msg_loop(), zel::kernel_obj::exception);
}

TEST_F(thread_obj_ex, serves_the_queue_until_the_thread_has_ended)
{
    thread.start();
    EXPECT_EQ(thread.ref_count(), 0U);
    for (unsigned int const message : {0x0401U, 0x0402U}) {
        ASSERT_TRUE(post_message(window, message, 0, 0));
    }
    ASSERT_TRUE(post_thread_message(static_cast<std::uint32_t>(::gettid()), 0x0403, 0,
                                    0)); // nobody's: taken and dropped
    post_quit_message(0); // is taken and ends nothing
    std::thread poster([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        for (unsigned int const message : {0x0404U, last, 0x0405U}) {
            ASSERT_TRUE(post_message(window, message, 0, 0));
        }
    });
    thread.wait_msg_loop();
    poster.join();
    EXPECT_FALSE(thread.is_started());
    EXPECT_EQ(seen, (std::vector<unsigned int>{0x0401, 0x0402, 0x0404, last}));
    tagMSG left{};
    EXPECT_TRUE(peek_message(left, window, 0, 0, peek_remove)); // the end went before it
    EXPECT_EQ(left.message, 0x0405U);
    EXPECT_FALSE(peek_message(left, nullptr, 0, 0, 0));

    ASSERT_TRUE(post_message(window, 0x0406, 0, 0));
    thread.wait_msg_loop(); // has ended: at once
    EXPECT_EQ(seen.size(), 4U);
}

TEST_F(thread_obj_ex, lets_through_what_a_procedure_raises)
{
    window_handle const raising = create_window(
        [](window_handle, unsigned int, std::uintptr_t, std::intptr_t) -> std::intptr_t {
            throw std::runtime_error("from the procedure");
        },
        true);
    thread.start();
    ASSERT_TRUE(post_message(raising, 1, 0, 0));
    EXPECT_THROW(thread.wait_msg_loop(), std::runtime_error);
    thread.open();
    thread.wait();
    EXPECT_TRUE(destroy_window(raising));
}

TEST_F(thread_obj_ex, uses_no_time_while_nothing_happens)
{
    thread.start();
    std::thread opener([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        thread.open();
    });
    ::rusage before{};
    ::rusage after{};
    ::getrusage(RUSAGE_THREAD, &before);
    thread.wait_msg_loop();
    ::getrusage(RUSAGE_THREAD, &after);
    opener.join();
    EXPECT_LE(after.ru_nvcsw - before.ru_nvcsw, 3); // slept through
}

} // namespace
