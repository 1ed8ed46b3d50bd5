// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"

#include "tests/support/allocations.h"
#include "tests/support/processes.h"
#include "tests/support/property.h"
#include "tests/support/sanitizers.h"
#include "tests/support/time_limit.h"
#include <atomic>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

extern "C" property message_store_property;

namespace {

using namespace zel::platform;

constexpr unsigned int user = 0x0400;

std::intptr_t sum(window_handle, unsigned int message, std::uintptr_t wparam, std::intptr_t lparam)
{
    return static_cast<std::intptr_t>(message + wparam) + lparam;
}

// What waits, in its order; the queue is empty then.
std::vector<unsigned int> drain()
{
    std::vector<unsigned int> numbers;
    tagMSG message{};
    while (peek_message(message, nullptr, 0, 0, peek_remove)) {
        numbers.push_back(message.message);
    }
    return numbers;
}

using numbers = std::vector<unsigned int>;

std::uint32_t error_of(bool succeeded) { return succeeded ? 0 : last_error(); }

// A window of a thread that waits until it is told to go.
class other_thread {
public:
    other_thread()
        : thread_([this] {
            id = current_thread_id();
            post_quit_message(0); // for itself
            window = create_window(sum);
            window.notify_one();
            gone_.wait(false);
        })
    {
        window.wait(nullptr);
    }
    ~other_thread()
    {
        gone_ = true;
        gone_.notify_one();
        thread_.join();
    }

    std::atomic<window_handle> window{nullptr};
    std::uint32_t id = 0;

private:
    std::atomic<bool> gone_{false};
    std::thread thread_;
};

TEST(message_queue, stores_messages_as_a_plain_list_does)
{
    expect_for_any(message_store_property, 300,
                   [](auto & random) { return any_bytes(random, 400, "\1\2\5\6"); });
}

TEST(message_queue, hands_out_what_was_asked_for_and_dispatches_it)
{
    window_handle const window = create_window(sum, true);
    auto const before = static_cast<std::uint32_t>(monotonic_now() / 1'000'000);
    ASSERT_TRUE(post_message(nullptr, user, ~std::uintptr_t{0}, 0));
    ASSERT_TRUE(post_message(window, user + 1, 7, -8));
    ASSERT_TRUE(post_thread_message(current_thread_id(), user + 2, 0, 0));
    tagMSG message{};
    ASSERT_TRUE(peek_message(message, nullptr, user + 2, user + 2, 0)); // a look leaves it there
    ASSERT_TRUE(peek_message(message, window, 0, 0, peek_remove));
    EXPECT_EQ(message.hwnd, window);
    EXPECT_TRUE(is_window_unicode(window));
    EXPECT_LE(message.time - before, 10'000U);
    EXPECT_EQ(dispatch_message_a(message), user + 1 + 7 - 8);
    ASSERT_EQ(get_message_w(message, thread_messages_only(), 0, 0), 1);
    EXPECT_EQ(message.wParam, ~std::uintptr_t{0});
    EXPECT_EQ(dispatch_message_w(message), 0); // no window, no procedure

    post_quit_message(3);
    post_quit_message(-4); // the last code counts, and one message comes of both
    ASSERT_TRUE(post_message(window, message_quit, 5, 0)); // posted like any other
    for (auto const & [number, code] : {std::pair(user + 2, 0), {message_quit, 5}}) {
        ASSERT_EQ(get_message_a(message, nullptr, 0, 0), number == message_quit ? 0 : 1);
        EXPECT_EQ(message.message, number);
        EXPECT_EQ(static_cast<int>(message.wParam), code);
    }
    for (unsigned int const remove : {0U, peek_remove}) { // nothing else waits, in any range
        ASSERT_TRUE(peek_message(message, nullptr, user, user, remove));
        EXPECT_EQ(message.message, message_quit);
        EXPECT_EQ(static_cast<int>(message.wParam), -4);
    }
    EXPECT_EQ(drain(), numbers{});
    EXPECT_TRUE(destroy_window(window));
}

TEST(message_queue, refuses_the_post_beyond_ten_thousand_or_without_memory)
{
    std::thread([] { // which has no memory from before
        allocations::left = 0;
        EXPECT_EQ(error_of(create_window(sum) != nullptr), 8U);
        EXPECT_EQ(error_of(post_message(nullptr, user, 0, 0)), 8U);
        allocations::left = allocations::all;
        for (unsigned int i = 0; i < message_limit; ++i) {
            ASSERT_TRUE(post_message(nullptr, user + i, 0, 0));
        }
        tagMSG message{};
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(error_of(post_message(nullptr, 0, 0, 0)), 1816U);
            EXPECT_EQ(error_of(post_thread_message(current_thread_id(), 0, 0, 0)), 1816U);
            ASSERT_TRUE(peek_message(message, nullptr, user + 5, user + 9999, peek_remove));
            EXPECT_TRUE(post_message(nullptr, 1, 0, 0)); // one has made room
        }
        EXPECT_EQ(drain().size(), message_limit);
    })
        .join();
}

TEST(message_queue, refuses_what_is_no_window_or_not_the_callers)
{
    window_handle const gone = create_window(sum);
    ASSERT_TRUE(destroy_window(gone));
    window_handle const next = create_window(sum); // in the same place
    other_thread const other;
    int local = 0;
    for (window_handle const window :
         {gone, window_handle{&local}, thread_messages_only(), other.window.load()}) {
        SCOPED_TRACE(window);
        bool const is_another = window == other.window;
        tagMSG message{window, user, 0, 0, 0, {0, 0}};
        EXPECT_EQ(error_of(post_message(window, user, 0, 0)), is_another ? 0U : 1400U);
        EXPECT_EQ(error_of(destroy_window(window)), is_another ? 5U : 1400U);
        EXPECT_EQ(error_of(dispatch_message_a(message) != 0), is_another ? 5U : 1400U);
        if (window != thread_messages_only()) {
            EXPECT_EQ(error_of(peek_message(message, window, 0, 0, 0)), 1400U);
            EXPECT_EQ(get_message_a(message, window, 0, 0), -1);
        }
    }
    EXPECT_EQ(error_of(create_window(nullptr) != nullptr), 87U);
    EXPECT_TRUE(post_message(next, user, 0, 0));
    EXPECT_EQ(drain(), numbers{user});
    EXPECT_TRUE(destroy_window(next));
}

TEST(message_queue, ends_with_its_thread)
{
    for (int round = 0; round < 3; ++round) { // one thread after the other gets the same place
        window_handle window = nullptr;
        std::uint32_t id = 0;
        {
            other_thread const other;
            window = other.window;
            id = other.id;
            EXPECT_TRUE(post_message(window, user, 0, 0) && post_thread_message(id, user, 0, 0));
        }
        EXPECT_EQ(error_of(post_message(window, user, 0, 0)), 1400U);
        EXPECT_EQ(error_of(post_thread_message(id, user, 0, 0)), 1444U);
        EXPECT_EQ(error_of(post_thread_message(0, user, 0, 0)), 1444U);
        std::thread([&] {
            EXPECT_EQ(drain(), numbers{}); // what waited for the last owner is gone
            EXPECT_EQ(error_of(destroy_window(window)), 1400U);
        }).join();
    }
}

TEST(message_queue, is_not_that_of_a_thread_that_ended_itself_under_the_same_number)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    time_limit const limit(20);
    for (int attempt = 0; attempt < 50; ++attempt) { // others may get the number
        zel::atomic<std::uint32_t> id{0};
        static std::atomic<void *> own;
        own = nullptr;
        own = begin_thread(
            [](void *) {
                create_window(sum);
                while (own == nullptr) { }
                terminate_thread(own, 0);
                return 0U;
            },
            nullptr, &id);
        while (::access(("/proc/self/task/" + std::to_string(id)).c_str(), F_OK) == 0) { }
        std::ofstream("/proc/sys/kernel/ns_last_pid") << id - 1; // the superuser may
        bool is_same = false;
        std::thread([&] {
            is_same = current_thread_id() == id;
            std::thread([&] { // is no queue of the thread's yet
                EXPECT_TRUE(!is_same || error_of(post_thread_message(id, user, 0, 0)) == 1444U);
            })
                .join();
        }).join();
        EXPECT_TRUE(close_thread(own));
        if (is_same) {
            return;
        }
    }
    GTEST_SKIP() << "no other thread gets the number";
}

bool is_readable(int descriptor)
{
    pollfd watched{descriptor, POLLIN, 0};
    return ::poll(&watched, 1, 0) == 1;
}

TEST(message_queue, has_a_descriptor_that_is_readable_while_messages_wait)
{
    struct {
        window_handle handle = create_window(sum);
        int waiting = 0;
    } windows[6]; // more than there is room for at first
    ASSERT_TRUE(post_message(windows[0].handle, user, 0, 0)); // before anybody asked for it
    int const descriptor = message_queue_descriptor();
    EXPECT_EQ(message_queue_descriptor(), descriptor);
    EXPECT_TRUE(is_readable(descriptor));
    EXPECT_EQ(drain(), numbers{user});
    int quits = 0;
    std::minstd_rand random;
    for (int i = 0; i < 2000; ++i) {
        auto & window = windows[random() % std::size(windows)];
        tagMSG message{};
        switch (random() % 4) {
        case 0:
            window.waiting += post_message(window.handle, user, 0, 0) ? 1 : 0;
            break;
        case 1:
            if (peek_message(message, window.handle, 0, 0, peek_remove)) {
                (message.message == user ? window.waiting : quits) -= 1;
            }
            break;
        case 2:
            post_quit_message(0);
            quits = 1;
            break;
        default:
            EXPECT_TRUE(destroy_window(window.handle));
            window = {}; // which takes its messages along
        }
        bool const any = std::any_of(std::begin(windows), std::end(windows),
                                     [=](auto const & each) { return each.waiting + quits != 0; });
        ASSERT_EQ(is_readable(descriptor), any);
        ASSERT_EQ(peek_message(message, nullptr, 0, 0, 0), any);
    }
    drain();
    for (auto const & window : windows) {
        EXPECT_TRUE(destroy_window(window.handle));
    }
}

TEST(message_queue, keeps_the_order_of_each_sender)
{
    time_limit const limit(60);
    constexpr unsigned int posts = 20'000;
    window_handle const window = create_window(sum);
    std::vector<std::thread> threads;
    std::vector<std::uintptr_t> next(8);
    for (unsigned int sender = 0; sender < next.size(); ++sender) {
        threads.emplace_back([=] {
            for (unsigned int i = 0; i < posts;) {
                i += post_message(window, user + sender, i, 0) ? 1U : 0U; // or it is full
            }
        });
    }
    int const set = ::epoll_create1(EPOLL_CLOEXEC);
    epoll_event wanted{EPOLLIN | EPOLLET, {}};
    tagMSG message{};
    for (std::size_t i = 0; i < next.size() * posts; ++i) {
        if (i == next.size() * posts / 2) { // from here on it waits for the descriptor's edges
            ASSERT_EQ(::epoll_ctl(set, EPOLL_CTL_ADD, message_queue_descriptor(), &wanted), 0);
        }
        if (i < next.size() * posts / 2) {
            ASSERT_EQ(get_message_a(message, nullptr, 0, 0), 1);
        } else {
            while (!peek_message(message, nullptr, 0, 0, peek_remove)) {
                ASSERT_EQ(::epoll_wait(set, &wanted, 1, -1), 1);
            }
        }
        ASSERT_EQ(message.wParam, next[message.message - user]++);
    }
    for (auto & thread : threads) {
        thread.join();
    }
    ::close(set);
    EXPECT_TRUE(destroy_window(window));
}

TEST(message_queue, waits_for_a_thread_or_for_new_messages)
{
    time_limit const limit(20);
    std::atomic<bool> go{false};
    void * const thread = begin_thread(
        [](void * gate) {
            static_cast<std::atomic<bool> *>(gate)->wait(false);
            return 0U;
        },
        &go, nullptr);
    EXPECT_EQ(msg_wait_for_thread(thread, 30), 258U);
    ASSERT_TRUE(post_message(nullptr, user, 0, 0));
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 1U);
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 1U); // until it is looked at
    tagMSG message{};
    ASSERT_FALSE(peek_message(message, nullptr, user + 1, user + 1, 0));
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 258U); // what waits is no longer new
    post_quit_message(0);
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 1U);
    go = true;
    go.notify_one();
    wait_for_thread(thread, -1);
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 0U); // the end goes before messages
    EXPECT_EQ(drain(), (numbers{user, message_quit}));
    EXPECT_TRUE(close_thread(thread));
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 0xFFFFFFFF);
    EXPECT_EQ(last_error(), 6U);
}

TEST(message_queue, a_forked_child_has_a_queue_of_its_own)
{
    time_limit const limit(20);
    window_handle const window = create_window(sum);
    int const descriptor = message_queue_descriptor();
    other_thread const other;
    ASSERT_TRUE(post_message(window, user, 0, 0));
    std::uint32_t const parent = current_thread_id();
    EXPECT_TRUE(holds_in_child([&] { // which starts with a copy, and does not reach back
        return is_readable(descriptor) && drain() == numbers{user}
        && !post_thread_message(parent, user, 0, 0) && !post_message(other.window, user, 0, 0)
            && !is_readable(descriptor) && post_message(window, user, 0, 0)
            && post_thread_message(current_thread_id(), user, 0, 0) && is_readable(descriptor)
            && drain().size() == 2;
    }));
    EXPECT_TRUE(is_readable(descriptor));
    EXPECT_EQ(drain(), numbers{user});
    EXPECT_TRUE(destroy_window(window));
}

} // namespace
