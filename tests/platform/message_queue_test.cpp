// SPDX-License-Identifier: MIT
#include "zel/platform/address_wait.h"
#include "zel/platform/handles.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/threads.h"

#include "tests/sanitizers.h"
#include "tests/time_limit.h"
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

thread_local int allocations_left = -1; // of the calling thread; negative for no limit

bool may_allocate() { return allocations_left < 0 || allocations_left-- > 0; }

} // namespace

void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    return may_allocate() ? ::operator new(size) : nullptr;
}
void * operator new[](std::size_t size, std::nothrow_t const &) noexcept
{
    return may_allocate() ? ::operator new[](size) : nullptr;
}

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

template <typename Body> void on_another_thread(Body body) { std::thread(body).join(); }

// A window of a thread that waits until it is told to go.
class other_thread {
public:
    other_thread()
        : thread_([this] {
            window = create_window(sum);
            id = current_thread_id();
            ready = true;
            ready.notify_one();
            gone.wait(false);
        })
    {
        ready.wait(false);
    }
    ~other_thread() { end(); }
    void end()
    {
        gone = true;
        gone.notify_one();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    window_handle window = nullptr;
    std::uint32_t id = 0;

private:
    std::atomic<bool> ready{false};
    std::atomic<bool> gone{false};
    std::thread thread_;
};

TEST(message_queue, hands_out_what_was_posted_in_its_order)
{
    window_handle const window = create_window(sum);
    auto const before = static_cast<std::uint32_t>(monotonic_now() / 1'000'000);
    ASSERT_TRUE(post_message(window, user, 7, -8));
    ASSERT_TRUE(post_message(nullptr, user + 1, ~std::uintptr_t{0}, 0));
    ASSERT_TRUE(post_thread_message(current_thread_id(), user + 2, 0, 0));

    tagMSG message{};
    ASSERT_TRUE(peek_message(message, nullptr, 0, 0, 0));
    EXPECT_EQ(message.message, user); // a look leaves it there
    ASSERT_TRUE(peek_message(message, nullptr, 0, 0, peek_remove));
    EXPECT_EQ(message.hwnd, window);
    EXPECT_EQ(message.wParam, 7U);
    EXPECT_EQ(message.lParam, -8);
    EXPECT_LE(message.time - before, 10'000U);
    EXPECT_EQ(message.pt.x, 0);
    EXPECT_EQ(message.pt.y, 0);
    EXPECT_EQ(dispatch_message_a(message), user + 7 - 8);
    ASSERT_EQ(get_message_w(message, nullptr, 0, 0), 1);
    EXPECT_EQ(message.hwnd, nullptr);
    EXPECT_EQ(message.wParam, ~std::uintptr_t{0});
    EXPECT_EQ(dispatch_message_w(message), 0); // no window, no procedure
    ASSERT_EQ(get_message_a(message, nullptr, 0, 0), 1);
    EXPECT_EQ(message.message, user + 2);
    EXPECT_FALSE(peek_message(message, nullptr, 0, 0, peek_remove));
    EXPECT_TRUE(destroy_window(window));
}

TEST(message_queue, filters_by_window_and_range)
{
    window_handle const a = create_window(sum, true);
    window_handle const b = create_window(sum);
    EXPECT_TRUE(is_window_unicode(a));
    EXPECT_FALSE(is_window_unicode(b));
    // clang-format off
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
        {nullptr, 7, 0xFFFFFFFF, {}, {1, 2, 3, 4, 5, 6}},
        {a, 2, 4, {4}, {1, 2, 3, 5, 6}},
    };
    // clang-format on
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
    numbers expected;
    for (unsigned int i = 0; i < message_limit; ++i) {
        ASSERT_TRUE(post_message(window, user + i, 0, 0));
        expected.push_back(user + i);
    }
    EXPECT_EQ(error_of(post_message(window, 0, 0, 0)), 1816U);
    EXPECT_EQ(error_of(post_thread_message(current_thread_id(), 0, 0, 0)), 1816U);
    tagMSG message{};
    ASSERT_TRUE(peek_message(message, window, user + 5000, user + 5000, peek_remove));
    EXPECT_TRUE(post_message(window, 1, 0, 0)); // one has made room
    EXPECT_FALSE(post_message(window, 1, 0, 0));
    expected.erase(expected.begin() + 5000);
    expected.push_back(1);
    EXPECT_EQ(drain(), expected);
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
        EXPECT_EQ(message.hwnd, nullptr);
    }
    EXPECT_FALSE(peek_message(message, nullptr, 0, 0, peek_remove));
    post_quit_message(0);
    EXPECT_EQ(get_message_w(message, nullptr, 0, 0), 0);
    ASSERT_TRUE(post_message(nullptr, message_quit, 5, 0)); // posted like any other
    ASSERT_TRUE(post_message(nullptr, user, 0, 0));
    EXPECT_EQ(get_message_a(message, nullptr, user, user), 0);
    EXPECT_EQ(drain(), numbers{user});
}

TEST(message_queue, refuses_what_is_no_window_or_not_the_callers)
{
    window_handle const gone = create_window(sum);
    ASSERT_TRUE(destroy_window(gone));
    window_handle const next = create_window(sum); // in the same place
    other_thread other;
    int local = 0;
    struct {
        char const * what;
        window_handle window;
        std::uint32_t post, use; // last errors; use: of the thread that does not own it
    } const rows[] = {
        {"destroyed", gone, 1400, 1400},
        {"an address", &local, 1400, 1400},
        {"all ones", thread_messages_only(), 1400, 1400},
        {"another thread's", other.window, 0, 5},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.what);
        tagMSG message{row.window, user, 0, 0, 0, {0, 0}};
        EXPECT_EQ(error_of(post_message(row.window, user, 0, 0)), row.post);
        EXPECT_EQ(error_of(destroy_window(row.window)), row.use);
        EXPECT_EQ(error_of(dispatch_message_a(message) != 0), row.use);
        if (row.window != thread_messages_only()) {
            EXPECT_EQ(error_of(peek_message(message, row.window, 0, 0, 0)), 1400U);
            EXPECT_EQ(get_message_a(message, row.window, 0, 0), -1);
        }
    }
    EXPECT_EQ(create_window(nullptr), nullptr);
    EXPECT_EQ(last_error(), 87U);
    EXPECT_EQ(error_of(destroy_window(nullptr)), 1400U);
    EXPECT_TRUE(post_message(next, user, 0, 0));
    EXPECT_EQ(drain(next), numbers{user});
    EXPECT_TRUE(destroy_window(next));
}

TEST(message_queue, ends_with_its_thread)
{
    window_handle last = nullptr;
    for (int round = 0; round < 3; ++round) { // one thread after the other gets the same place
        other_thread other;
        EXPECT_NE(other.window, last);
        EXPECT_TRUE(post_message(other.window, user, 0, 0));
        EXPECT_TRUE(post_thread_message(other.id, user, 0, 0));
        other.end();
        EXPECT_EQ(error_of(post_message(other.window, user, 0, 0)), 1400U);
        EXPECT_EQ(error_of(post_thread_message(other.id, user, 0, 0)), 1444U);
        last = other.window;
        on_another_thread([&] {
            EXPECT_EQ(drain(), numbers{}); // what waited for the last owner is gone
            EXPECT_EQ(error_of(destroy_window(last)), 1400U);
        });
    }
    EXPECT_EQ(error_of(post_thread_message(0, user, 0, 0)), 1444U);
    std::atomic<std::uint32_t> id{0};
    std::atomic<bool> tried{false};
    std::thread without_queue([&] {
        id = current_thread_id();
        tried.wait(false);
    });
    while (id == 0) { }
    EXPECT_EQ(error_of(post_thread_message(id, user, 0, 0)), 1444U);
    tried = true;
    tried.notify_one();
    without_queue.join();
}

TEST(message_queue, outlives_threads_that_are_terminated_at_any_moment)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    time_limit const limit(60);
    window_handle const window = create_window(sum);
    for (unsigned int round = 0; round < 300; ++round) {
        std::atomic<std::uint32_t> id{0};
        void * const thread = begin_thread(
            [](void * to) -> unsigned int {
                tagMSG message{};
                while (true) {
                    post_message(to, user, 0, 0);
                    post_message(create_window(sum), user, 0, 0);
                    while (peek_message(message, nullptr, 0, 0, peek_remove)) { }
                }
            },
            window, &id);
        ASSERT_NE(thread, nullptr);
        tagMSG message{};
        for (unsigned int seen = 0; seen <= round % 50;) {
            seen += get_message_a(message, nullptr, 0, 0) == 1;
        }
        EXPECT_TRUE(terminate_thread(thread, 0));
        EXPECT_TRUE(close_thread(thread));
        EXPECT_EQ(error_of(post_thread_message(id, user, 0, 0)), 1444U);
        drain();
        ASSERT_TRUE(post_message(window, user, 0, 0)); // nobody has taken the lock along
        EXPECT_EQ(drain(), numbers{user});
    }
    EXPECT_TRUE(destroy_window(window));
}

TEST(message_queue, a_window_takes_its_messages_along)
{
    std::vector<window_handle> others(20);
    for (int round = 0; round < 2; ++round) { // in fresh places, then in used ones
        for (auto & other : others) {
            other = create_window(sum, true);
            ASSERT_TRUE(post_message(other, user, 0, 0));
        }
        for (auto const & other : others) {
            EXPECT_TRUE(is_window_unicode(other) && destroy_window(other));
        }
    }
    window_handle const goes = create_window(sum);
    window_handle const stays = create_window(sum);
    numbers expected;
    for (unsigned int i = 0; i < 1000; ++i) {
        bool const stay = i % 7 == 0 && i / 100 % 2 == 0; // whole stretches go
        ASSERT_TRUE(post_message(stay ? stays : goes, user + i, 0, 0));
        if (stay) {
            expected.push_back(user + i);
        }
    }
    EXPECT_TRUE(destroy_window(goes));
    ASSERT_TRUE(post_message(stays, 1, 0, 0));
    expected.push_back(1);
    EXPECT_EQ(drain(), expected);
    EXPECT_TRUE(destroy_window(stays));
}

TEST(message_queue, keeps_the_order_of_each_sender)
{
    time_limit const limit(60);
    constexpr unsigned int senders = 4;
    constexpr unsigned int posts = 20'000;
    window_handle const window = create_window(sum);
    std::vector<std::thread> threads;
    for (unsigned int sender = 0; sender < senders; ++sender) {
        threads.emplace_back([=] {
            for (unsigned int i = 0; i < posts; ++i) {
                while (!post_message(window, user + sender, i, 0)) {
                    ASSERT_EQ(last_error(), 1816U);
                    std::this_thread::yield();
                }
            }
        });
    }
    std::uintptr_t next[senders] = {};
    tagMSG message{};
    for (unsigned int i = 0; i < senders * posts; ++i) {
        ASSERT_EQ(get_message_a(message, nullptr, 0, 0), 1);
        ASSERT_EQ(message.wParam, next[message.message - user]++);
    }
    for (auto & thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(peek_message(message, nullptr, 0, 0, 0));
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
    window_handle const window = create_window(sum);
    tagMSG message{};
    ASSERT_TRUE(post_message(window, user, 0, 0)); // before anybody asked for it
    int const descriptor = message_queue_descriptor();
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(message_queue_descriptor(), descriptor);
    EXPECT_TRUE(is_readable(descriptor));
    ASSERT_TRUE(peek_message(message, nullptr, 0, 0, 0));
    EXPECT_TRUE(is_readable(descriptor));
    drain();
    EXPECT_FALSE(is_readable(descriptor));

    post_quit_message(0);
    EXPECT_TRUE(is_readable(descriptor));
    drain();
    EXPECT_FALSE(is_readable(descriptor));

    ASSERT_TRUE(post_message(window, user, 0, 0));
    EXPECT_TRUE(destroy_window(window)); // and its message with it
    EXPECT_FALSE(is_readable(descriptor));

    int const set = ::epoll_create1(EPOLL_CLOEXEC);
    epoll_event wanted{EPOLLIN | EPOLLET, {}};
    ASSERT_EQ(::epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &wanted), 0);
    std::uint32_t const id = current_thread_id();
    std::thread poster([=] { EXPECT_TRUE(post_thread_message(id, user, 0, 0)); });
    EXPECT_EQ(::epoll_wait(set, &wanted, 1, -1), 1);
    poster.join();
    EXPECT_EQ(drain(), numbers{user});
    ::close(set);

    int ended = -1;
    on_another_thread([&] { ended = message_queue_descriptor(); });
    EXPECT_LT(::fcntl(ended, F_GETFD), 0); // closed with its thread
}

TEST(message_queue, passes_on_what_a_procedure_raises)
{
    window_handle const window
        = create_window([](window_handle, unsigned int, std::uintptr_t, std::intptr_t) {
              throw std::runtime_error("from the procedure");
              return std::intptr_t{0};
          });
    ASSERT_TRUE(post_message(window, user, 0, 0));
    tagMSG message{};
    ASSERT_EQ(get_message_a(message, nullptr, 0, 0), 1);
    EXPECT_THROW(dispatch_message_a(message), std::runtime_error);
    EXPECT_TRUE(destroy_window(window));

    numbers keys;
    for (message.message = 0; message.message < 0x200; ++message.message) {
        if (translate_message(message)) {
            keys.push_back(message.message);
        }
    }
    EXPECT_EQ(keys, (numbers{0x100, 0x101, 0x104, 0x105}));
}

TEST(message_queue, fails_whole_when_memory_is_exhausted)
{
    on_another_thread([] {
        int tries = 0;
        window_handle window = nullptr;
        for (; window == nullptr && tries < 10; ++tries) {
            allocations_left = tries;
            window = create_window(sum);
            EXPECT_TRUE(window != nullptr || last_error() == 8);
        }
        EXPECT_GT(tries, 1); // it did fail
        allocations_left = -1;

        unsigned int posted = 0;
        unsigned int refused = 0;
        for (unsigned int i = 0; i < 1000; ++i) {
            allocations_left = static_cast<int>(i % 2);
            if (post_message(window, user + i, 0, 0)) {
                ++posted;
            } else {
                EXPECT_EQ(last_error(), 8U);
                ++refused;
            }
        }
        allocations_left = -1;
        EXPECT_GT(refused, 0U);
        EXPECT_EQ(drain().size(), posted);
    });
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
    ASSERT_NE(thread, nullptr);
    tagMSG message{};
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 258U);
    EXPECT_EQ(msg_wait_for_thread(thread, 30), 258U);
    ASSERT_TRUE(post_message(nullptr, user, 0, 0));
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 1U);
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 1U); // until it is looked at
    ASSERT_TRUE(peek_message(message, nullptr, user + 1, user + 1, 0) == false);
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 258U); // the one that waits is no longer new
    post_quit_message(0);
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 1U);
    EXPECT_EQ(drain(), (numbers{user, message_quit}));

    std::uint32_t const id = current_thread_id();
    std::thread poster([=] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_TRUE(post_thread_message(id, user, 0, 0));
    });
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 1U);
    poster.join();

    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        go = true;
        go.notify_one();
    });
    drain();
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 0U);
    opener.join();
    ASSERT_TRUE(post_message(nullptr, user, 0, 0));
    EXPECT_EQ(msg_wait_for_thread(thread, infinite), 0U); // the end goes before messages
    EXPECT_EQ(drain(), numbers{user});
    EXPECT_TRUE(close_thread(thread));
    EXPECT_EQ(msg_wait_for_thread(thread, 0), 0xFFFFFFFF);
    EXPECT_EQ(last_error(), 6U);
}

// Runs the body in a forked child; its result is the child's status.
template <typename Body> int status_in_child(Body body)
{
    ::pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

TEST(message_queue, a_forked_child_has_a_queue_of_its_own)
{
    time_limit const limit(20);
    window_handle const window = create_window(sum);
    int const descriptor = message_queue_descriptor();
    other_thread other;
    ASSERT_TRUE(post_message(window, user, 0, 0));
    std::uint32_t const parent = current_thread_id();
    int const step = status_in_child([&] {
        std::uint32_t const self = current_thread_id();
        if (!is_readable(descriptor) || message_queue_descriptor() != descriptor) {
            return 1;
        }
        if (drain() != numbers{user} || is_readable(descriptor)) {
            return 2;
        }
        if (post_thread_message(parent, user, 0, 0) || post_message(other.window, user, 0, 0)) {
            return 3; // nothing reaches back
        }
        if (!post_thread_message(self, user, 0, 0) || !post_message(window, user + 1, 0, 0)) {
            return 4;
        }
        return drain() == numbers{user, user + 1} ? 0 : 5;
    });
    EXPECT_EQ(step, 0);
    EXPECT_TRUE(is_readable(descriptor));
    EXPECT_EQ(drain(), numbers{user});
    EXPECT_TRUE(destroy_window(window));
}

// Any other call then ends the process with SIGSYS, but for the clock's on a host that does not map
// its clock into processes.
bool forbid_all_calls_but_exit()
{
    ::sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(::seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clock_gettime, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    ::sock_fprog const program{std::size(rules), rules};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
        && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(message_queue, costs_no_system_call_while_nobody_sleeps)
{
    int status = -1;
    on_another_thread([&] { // whose queue has no descriptor yet
        window_handle const window = create_window(sum);
        tagMSG message{};
        auto const use_it = [&](std::uint32_t id) {
            for (int i = 0; i < 50; ++i) {
                post_message(window, user, 0, 0);
                post_thread_message(id, user, 0, 0);
            }
            while (peek_message(message, nullptr, 0, 0, 0)) {
                get_message_a(message, nullptr, 0, 0);
                dispatch_message_a(message);
            }
        };
        status = status_in_child([&] {
            std::uint32_t const id = current_thread_id();
            use_it(id); // takes the memory that is then kept
            if (!forbid_all_calls_but_exit()) {
                return 77;
            }
            use_it(id);
            ::syscall(SYS_exit, 0);
            return 1;
        });
    });
    if (status == 77) {
        GTEST_SKIP() << "the host does not let a process forbid itself system calls";
    }
    EXPECT_EQ(status, 0);
}

} // namespace
