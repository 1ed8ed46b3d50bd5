// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"

#include "tests/support/allocations.h"
#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "tests/support/time_limit.h"
#include <atomic>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

constexpr unsigned int user = 0x0400;

std::intptr_t sum(window_handle, unsigned int message, std::uintptr_t wparam, std::intptr_t lparam)
{
    return static_cast<std::intptr_t>(message + wparam) + lparam;
}

// What waits, in its order; the queue is empty then.
std::vector<unsigned int> drain(window_handle window = nullptr, unsigned int first = 0,
                                unsigned int last = 0)
{
    std::vector<unsigned int> numbers;
    tagMSG message{};
    while (peek_message(message, window, first, last, peek_remove)) {
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

TEST(message_queue, hands_out_what_was_posted_and_dispatches_it)
{
    window_handle const window = create_window(sum);
    auto const before = static_cast<std::uint32_t>(monotonic_now() / 1'000'000);
    ASSERT_TRUE(post_message(window, user, 7, -8));
    ASSERT_TRUE(post_message(nullptr, user + 1, ~std::uintptr_t{0}, 0));
    ASSERT_TRUE(post_thread_message(current_thread_id(), user + 2, 0, 0));
    tagMSG message{};
    ASSERT_TRUE(peek_message(message, nullptr, 0, 0, 0)); // a look leaves it there
    ASSERT_TRUE(peek_message(message, nullptr, 0, 0, peek_remove));
    EXPECT_EQ(message.hwnd, window);
    EXPECT_LE(message.time - before, 10'000U);
    EXPECT_EQ(dispatch_message_a(message), user + 7 - 8);
    ASSERT_EQ(get_message_w(message, nullptr, 0, 0), 1);
    EXPECT_EQ(message.wParam, ~std::uintptr_t{0});
    EXPECT_EQ(dispatch_message_w(message), 0); // no window, no procedure
    EXPECT_EQ(drain(), numbers{user + 2});
    EXPECT_TRUE(destroy_window(window));
}

TEST(message_queue, filters_by_window_and_range)
{
    window_handle const a = create_window(sum, true);
    window_handle const b = create_window(sum);
    EXPECT_TRUE(is_window_unicode(a) && !is_window_unicode(b));
    struct {
        window_handle window;
        unsigned int first, last;
        numbers taken, left;
    } const rows[] = {
        {nullptr, 0, 0, {1, 2, 3, 4, 5, 6}, {}},
        {a, 0, 0, {1, 4}, {2, 3, 5, 6}},
        {b, 0, 0, {2, 5}, {1, 3, 4, 6}},
        {thread_messages_only(), 0, 0, {3, 6}, {1, 2, 4, 5}},
        {nullptr, 2, 4, {2, 3, 4}, {1, 5, 6}}, // both ends are in
        {nullptr, 4, 2, {}, {1, 2, 3, 4, 5, 6}},
        {nullptr, 0, 3, {1, 2, 3}, {4, 5, 6}}, // only 0 and 0 is everything
        {a, 2, 4, {4}, {1, 2, 3, 5, 6}},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(&row - rows);
        window_handle const turns[] = {a, b, nullptr};
        for (unsigned int number = 1; number <= 6; ++number) {
            ASSERT_TRUE(post_message(turns[(number - 1) % 3], number, 0, 0));
        }
        EXPECT_EQ(drain(row.window, row.first, row.last), row.taken);
        EXPECT_EQ(drain(), row.left);
    }
    EXPECT_TRUE(destroy_window(a) && destroy_window(b));
}

TEST(message_queue, refuses_the_post_beyond_ten_thousand)
{
    window_handle const window = create_window(sum);
    for (unsigned int i = 0; i < message_limit; ++i) {
        ASSERT_TRUE(post_message(window, user + i, 0, 0));
    }
    EXPECT_EQ(error_of(post_message(window, 0, 0, 0)), 1816U);
    EXPECT_EQ(error_of(post_thread_message(current_thread_id(), 0, 0, 0)), 1816U);
    tagMSG message{};
    ASSERT_TRUE(peek_message(message, window, user + 5000, user + 5000, peek_remove));
    EXPECT_TRUE(post_message(window, 1, 0, 0)); // one has made room
    EXPECT_FALSE(post_message(window, 1, 0, 0));
    numbers const all = drain();
    ASSERT_EQ(all.size(), message_limit);
    EXPECT_EQ(all[5000], user + 5001);
    EXPECT_EQ(all.back(), 1U);
    EXPECT_TRUE(destroy_window(window));
}

TEST(message_queue, shows_the_quit_message_once_nothing_else_waits)
{
    tagMSG message{};
    post_quit_message(3);
    post_quit_message(-4); // the last code counts, and one message comes of both
    ASSERT_TRUE(post_message(nullptr, user, 0, 0));
    ASSERT_EQ(get_message_a(message, nullptr, 0, 0), 1);
    for (unsigned int const remove : {0U, peek_remove}) {
        ASSERT_TRUE(peek_message(message, nullptr, user, user, remove)); // in every range
        EXPECT_EQ(message.message, message_quit);
        EXPECT_EQ(static_cast<int>(message.wParam), -4);
    }
    EXPECT_FALSE(peek_message(message, nullptr, 0, 0, peek_remove));
    ASSERT_TRUE(post_message(nullptr, message_quit, 5, 0)); // posted like any other
    ASSERT_TRUE(post_message(nullptr, user, 0, 0));
    EXPECT_EQ(get_message_w(message, nullptr, user, user), 0);
    EXPECT_EQ(drain(), numbers{user});
}

TEST(message_queue, refuses_what_is_no_window_or_not_the_callers)
{
    window_handle const gone = create_window(sum);
    ASSERT_TRUE(destroy_window(gone));
    window_handle const next = create_window(sum); // in the same place
    other_thread const other;
    int local = 0;
    struct {
        window_handle window;
        std::uint32_t post, use; // last errors; use: of the thread that does not own it
    } const rows[] = {
        {gone, 1400, 1400},
        {&local, 1400, 1400},
        {thread_messages_only(), 1400, 1400},
        {other.window, 0, 5},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(&row - rows);
        tagMSG message{row.window, user, 0, 0, 0, {0, 0}};
        EXPECT_EQ(error_of(post_message(row.window, user, 0, 0)), row.post);
        EXPECT_EQ(error_of(destroy_window(row.window)), row.use);
        EXPECT_EQ(error_of(dispatch_message_a(message) != 0), row.use);
        if (row.window != thread_messages_only()) {
            EXPECT_EQ(error_of(peek_message(message, row.window, 0, 0, 0)), 1400U);
            EXPECT_EQ(get_message_a(message, row.window, 0, 0), -1);
        }
    }
    EXPECT_EQ(error_of(create_window(nullptr) != nullptr), 87U);
    EXPECT_TRUE(post_message(next, user, 0, 0));
    EXPECT_EQ(drain(next), numbers{user});
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
        std::thread([&] {
            EXPECT_EQ(error_of(post_thread_message(0, user, 0, 0)), 1444U);
            EXPECT_EQ(drain(), numbers{}); // what waited for the last owner is gone
            EXPECT_EQ(error_of(destroy_window(window)), 1400U);
        }).join();
    }
}

// The host hands out the numbers behind this one next. False where it does not let the caller say.
bool set_last_number(std::uint32_t number)
{
    std::ofstream file("/proc/sys/kernel/ns_last_pid");
    return static_cast<bool>(file << number << std::flush);
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
        if (!set_last_number(id - 1)) {
            close_thread(own);
            GTEST_SKIP() << "only the superuser decides about numbers";
        }
        bool is_same = false;
        std::thread([&] {
            is_same = current_thread_id() == id;
            if (is_same) {
                std::thread([&] { // is no queue of the thread's yet
                    EXPECT_EQ(error_of(post_thread_message(id, user, 0, 0)), 1444U);
                })
                    .join();
                window_handle const window = create_window(sum);
                EXPECT_TRUE(close_thread(own)); // has no part in the queue any more
                EXPECT_NE(other_thread().window, window);
                EXPECT_TRUE(post_message(window, user, 0, 0));
                EXPECT_EQ(drain(), numbers{user});
            }
        }).join();
        if (is_same) {
            return;
        }
        close_thread(own);
    }
    GTEST_SKIP() << "other processes are faster";
}

TEST(message_queue, a_window_takes_its_messages_along)
{
    window_handle const stays = create_window(sum);
    std::vector<window_handle> go(20); // more than there is room for at first
    for (auto & window : go) {
        window = create_window(sum);
    }
    numbers expected;
    for (unsigned int i = 0; i < 1000; ++i) {
        bool const is_kept = i % 7 == 0 && i / 100 % 2 == 0; // whole stretches go
        ASSERT_TRUE(post_message(is_kept ? stays : go[0], user + i, 0, 0));
        if (is_kept) {
            expected.push_back(user + i);
        }
    }
    for (auto const & window : go) {
        EXPECT_TRUE(destroy_window(window));
    }
    EXPECT_EQ(drain(), expected);
    EXPECT_TRUE(destroy_window(stays));
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
    tagMSG message{};
    for (std::size_t i = 0; i < next.size() * posts; ++i) {
        ASSERT_EQ(get_message_a(message, nullptr, 0, 0), 1);
        ASSERT_EQ(message.wParam, next[message.message - user]++);
    }
    for (auto & thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(destroy_window(window));
}

bool is_readable(int descriptor)
{
    pollfd watched{descriptor, POLLIN, 0};
    return ::poll(&watched, 1, 0) == 1;
}

TEST(message_queue, has_a_descriptor_that_is_readable_while_messages_wait)
{
    time_limit const limit(20);
    window_handle window = create_window(sum);
    ASSERT_TRUE(post_message(window, user, 0, 0)); // before anybody asked for it
    int const descriptor = message_queue_descriptor();
    EXPECT_EQ(message_queue_descriptor(), descriptor);
    tagMSG message{};
    std::function<void()> const steps[] = {
        [&] { window = destroy_window(window) ? create_window(sum) : nullptr; }, // empties it
        [] { post_quit_message(0); },
        [&] { post_message(window, user, 0, 0); },
        [] { post_message(nullptr, user, 0, 0); },
        [&] { peek_message(message, window, 0, 0, peek_remove); },
        [&] { peek_message(message, nullptr, 0, 0, peek_remove); },
    };
    std::minstd_rand random;
    for (int i = 0; i < 2000; ++i) {
        steps[random() % std::size(steps)]();
        ASSERT_EQ(peek_message(message, nullptr, 0, 0, 0), is_readable(descriptor));
    }
    drain();
    EXPECT_TRUE(destroy_window(window));

    int const set = ::epoll_create1(EPOLL_CLOEXEC);
    epoll_event wanted{EPOLLIN | EPOLLET, {}};
    ASSERT_EQ(::epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &wanted), 0);
    std::uint32_t const id = current_thread_id();
    std::thread poster([=] { EXPECT_TRUE(post_thread_message(id, user, 0, 0)); });
    EXPECT_EQ(::epoll_wait(set, &wanted, 1, -1), 1);
    poster.join();
    EXPECT_EQ(drain(), numbers{user});
    ::close(set);
}

TEST(message_queue, fails_whole_when_memory_is_exhausted)
{
    std::thread([] {
        allocations::left = 0;
        EXPECT_EQ(create_window(sum), nullptr);
        EXPECT_EQ(last_error(), 8U);
        std::size_t posted = 0;
        for (unsigned int i = 0; i < 1000; ++i) {
            allocations::left = i % 2;
            posted += post_message(nullptr, user + i, 0, 0) ? 1U : 0U;
        }
        allocations::left = allocations::all;
        EXPECT_LT(posted, 1000U);
        EXPECT_EQ(drain().size(), posted);
    }).join();
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
    tagMSG message{};
    EXPECT_EQ(msg_wait_for_thread(thread, 30), 258U);
    ASSERT_TRUE(post_message(nullptr, user, 0, 0));
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 1U);
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 1U); // until it is looked at
    ASSERT_TRUE(peek_message(message, nullptr, user + 1, user + 1, 0) == false);
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 258U); // the one that waits is no longer new
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
    other_thread other;
    ASSERT_TRUE(post_message(window, user, 0, 0));
    std::uint32_t const parent = current_thread_id();
    child_process child([&] {
        bool const starts_with_a_copy = is_readable(descriptor) && drain() == numbers{user};
        bool const reaches_back
            = post_thread_message(parent, user, 0, 0) || post_message(other.window, user, 0, 0);
        bool const works = !is_readable(descriptor) && post_message(window, user + 1, 0, 0)
            && post_thread_message(current_thread_id(), user, 0, 0) && is_readable(descriptor);
        return starts_with_a_copy && !reaches_back && works;
    });
    EXPECT_EQ(child.result(), 0);
    EXPECT_TRUE(is_readable(descriptor));
    EXPECT_EQ(drain(), numbers{user});
    EXPECT_TRUE(destroy_window(window));
}

} // namespace
