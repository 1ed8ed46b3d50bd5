// SPDX-License-Identifier: MIT
// Events and semaphores, each without a name and with one. Those that wait for a named one are
// processes where that makes a difference. tests/explorer goes through the interleavings.
#include "tests/platform/waited_object.h"
#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "tests/support/threads_at_once.h"
#include "zel/platform/threads/threads.h"
#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

class waitables : public testing::TestWithParam<bool> {
protected:
    bool is_named() const { return GetParam(); }
    std::string fresh_name() const
    {
        static int count = 0;
        return is_named()
            ? "zel waitable " + std::to_string(::getpid()) + " " + std::to_string(++count)
            : "";
    }
    void * event(bool manual, bool set = false) const
    {
        return create_event(manual, set, fresh_name().c_str());
    }
    void * semaphore(std::int32_t initial, std::int32_t maximum) const
    {
        return create_semaphore(initial, maximum, fresh_name().c_str());
    }
    time_limit const limit_{60};
};

INSTANTIATE_TEST_SUITE_P(of, waitables, testing::Bool(),
                         [](auto const & row) { return row.param ? "named" : "unnamed"; });

// Three that have come to their wait one after the other.
class crowd {
public:
    crowd(bool processes, object const & waited)
    {
        for (int i = 0; i < 3; ++i) {
            auto const body = [this, &waited, i] {
                if (waited.wait(30'000) == wait_object_0) {
                    shared_.order[shared_.entered++] = i;
                    ++shared_.written;
                }
                return 0;
            };
            if (processes) {
                until_asleep(processes_.emplace_back(body).id());
            } else {
                threads_.emplace_back(body);
            }
        }
    }
    void kill(std::size_t which) { processes_.at(which).kill(); }
    // Who has passed as soon as there are so many, and a little later.
    std::vector<int> passed(int count) const
    {
        for (int i = 0; i < 10'000 && shared_.written < count; ++i) {
            std::this_thread::sleep_for(1ms);
        }
        std::this_thread::sleep_for(5ms);
        return {shared_.order, shared_.order + shared_.written};
    }

private:
    struct results {
        std::atomic<int> entered, written;
        std::atomic<int> order[3];
    };
    results & shared_ = *new (::mmap(nullptr, sizeof(results), PROT_READ | PROT_WRITE,
                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0)) results{};
    std::deque<child_process> processes_;
    std::deque<sleeper> threads_;
};

TEST_P(waitables, pass_in_turn)
{
    // s set, r reset, p pulse; t a test that is let through, x one that is not, X a wait likewise.
    struct {
        bool manual, set;
        char const * steps;
    } const rows[] = {
        {false, false, "xstxsstx"}, // two sets are one
        {false, true, "txXsrxspxXXst"},
        {true, true, "ttpxsttrXXspXstt"},
    };
    for (auto const & row : rows) {
        object const event(this->event(row.manual, row.set));
        for (char const * step = row.steps; *step != '\0'; ++step) {
            SCOPED_TRACE(step);
            EXPECT_TRUE(*step == 's'       ? set_event(event)
                            : *step == 'r' ? reset_event(event)
                            : *step == 'p' ? pulse_event(event)
                            : *step == 't' ? event.wait(0) == wait_object_0
                                           : event.wait(*step == 'x' ? 0 : 1) == wait_timeout);
        }
    }
}

TEST_P(waitables, serve_in_the_order_of_arrival)
{
    object const objects[] = {object(event(false)), object(semaphore(0, 2))};
    for (object const & waited : objects) {
        auto const give = [&] {
            EXPECT_TRUE(&waited == objects ? set_event(waited)
                                           : release_semaphore(waited, 1, nullptr));
        };
        crowd waiters(is_named(), waited);
        std::vector<int> expected{0};
        give();
        EXPECT_EQ(waited.wait(0), wait_timeout) << "it is given, not put down";
        EXPECT_EQ(waiters.passed(1), expected);
        if (is_named()) {
            waiters.kill(1); // the next is let through in its place
        } else {
            give();
            expected.push_back(1);
            EXPECT_EQ(waiters.passed(2), expected);
        }
        give();
        EXPECT_EQ(waited.wait(0), wait_timeout);
        expected.push_back(2);
        EXPECT_EQ(waiters.passed(static_cast<int>(expected.size())), expected);
        give();
        EXPECT_EQ(waited.wait(0), wait_object_0) << "nobody is left";
    }
}

TEST_P(waitables, pulse_for_those_that_wait_and_for_nobody_later)
{
    for (bool const manual : {false, true}) {
        object const event(this->event(manual));
        crowd const waiters(is_named(), event);
        EXPECT_TRUE(pulse_event(event));
        EXPECT_EQ(event.wait(0), wait_timeout);
        std::vector<int> const passed = waiters.passed(manual ? 3 : 1);
        EXPECT_EQ(passed.size(), manual ? 3U : 1U);
        EXPECT_TRUE(manual || passed.front() == 0);
        for (int i = 0; i < 3; ++i) {
            pulse_event(event);
        }
    }
}

TEST_P(waitables, count_and_refuse_what_passes_the_maximum)
{
    for (auto const & [initial, maximum] : {std::pair{-1, 1}, {2, 1}, {0, 0}, {0, -1}}) {
        EXPECT_EQ(semaphore(initial, maximum), nullptr);
        EXPECT_EQ(last_error(), 87U);
    }
    object const units(semaphore(1, 0x7FFFFFFF));
    std::int32_t previous = -7;
    EXPECT_FALSE(release_semaphore(units, 0x7FFFFFFF, &previous));
    EXPECT_EQ(last_error(), 298U);
    EXPECT_FALSE(release_semaphore(units, 0, &previous));
    EXPECT_EQ(last_error(), 87U);
    EXPECT_EQ(previous, -7);
    EXPECT_TRUE(release_semaphore(units, 0x7FFFFFFE, &previous));
    EXPECT_EQ(previous, 1);

    object const few(semaphore(0, 3));
    EXPECT_EQ(few.wait(1), wait_timeout);
    EXPECT_FALSE(release_semaphore(few, 4, &previous)) << "the one that waited has left";
    crowd const waiters(is_named(), few);
    EXPECT_FALSE(release_semaphore(few, 4, nullptr));
    EXPECT_TRUE(release_semaphore(few, 2, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_EQ(waiters.passed(2).size(), 2U);
    EXPECT_TRUE(release_semaphore(few, 3, nullptr));
    EXPECT_EQ(waiters.passed(3).back(), 2);
    EXPECT_EQ(few.wait(0) + few.wait(0), 0U) << "one was for the third";
    EXPECT_EQ(few.wait(0), wait_timeout);
}

struct passer {
    void * waited;
    std::atomic<std::uint32_t> id, passed;
    static constexpr std::uint32_t rounds = 40;
    static unsigned run(void * argument)
    {
        auto & self = *static_cast<passer *>(argument);
        self.id = current_thread_id();
        while (self.passed < rounds && wait_for_single_object(self.waited, infinite) == 0) {
            self.passed += 1;
        }
        return 0;
    }
};

TEST_P(waitables, take_nothing_back_from_a_waiter_that_is_suspended)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    object const event(this->event(false));
    passer shared{event, {0}, {0}};
    object const thread(begin_thread(passer::run, &shared, nullptr));
    while (shared.id == 0) {
        std::this_thread::yield();
    }
    for (std::uint32_t round = 0; round < passer::rounds - 1; ++round) {
        until_asleep(static_cast<int>(shared.id));
        EXPECT_TRUE(set_event(event));
        EXPECT_EQ(suspend_thread(thread), 0U);
        EXPECT_TRUE(set_event(event)); // the first one was the waiter's
        EXPECT_EQ(event.wait(0), wait_object_0) << round;
        resume_thread(thread);
        for (int i = 0; i < 10'000 && shared.passed <= round; ++i) {
            std::this_thread::sleep_for(1ms);
        }
        ASSERT_EQ(shared.passed, round + 1);
    }
    set_event(event);
    EXPECT_EQ(thread.wait(), wait_object_0);
}

// A second of `work(thread, random)` on six threads.
template <typename Work> void under_load(Work const & work)
{
    auto const end = steady_clock::now() + 1s;
    run_at_once(6, [&](int thread) {
        std::minstd_rand random(static_cast<unsigned>(thread) + 1);
        while (steady_clock::now() < end) {
            work(thread, random);
        }
    });
}

TEST_P(waitables, let_nobody_in_beyond_the_units)
{
    object const units(semaphore(3, 3));
    std::atomic<int> inside{0};
    under_load([&](int, auto & random) {
        std::uint32_t const limits[] = {0, 1, 2, 20'000};
        if (units.wait(limits[random() % 4]) == wait_object_0) {
            EXPECT_LE(++inside, 3);
            if (random() % 8 == 0) {
                std::this_thread::sleep_for(50us);
            }
            --inside;
            EXPECT_TRUE(release_semaphore(units, 1, nullptr));
        }
    });
    EXPECT_EQ(units.wait(0) + units.wait(0) + units.wait(0), 0U);
    EXPECT_EQ(units.wait(0), wait_timeout);
}

TEST_P(waitables, lose_and_make_no_unit)
{
    object const units(semaphore(2, 5));
    std::atomic<long> given{2};
    std::atomic<long> taken{0};
    under_load([&](int thread, auto & random) {
        if (thread < 3) {
            std::int32_t const count = thread + 1;
            given += release_semaphore(units, count, nullptr) ? count : 0;
        } else {
            taken += units.wait(random() % 2 == 0 ? 0 : 2) == wait_object_0 ? 1 : 0;
        }
    });
    while (units.wait(0) == wait_object_0) {
        taken += 1;
    }
    EXPECT_EQ(given, taken);
}

TEST_P(waitables, lose_no_wake_up)
{
    object const ping(event(false));
    object const pong(event(false));
    std::atomic<bool> done{false};
    run_at_once(2, [&](int thread) {
        auto const end = steady_clock::now() + 1s;
        while (thread == 0 && steady_clock::now() < end) {
            set_event(ping);
            ASSERT_EQ(pong.wait(10'000), wait_object_0);
        }
        if (thread == 0) {
            done = true;
            set_event(ping);
        } else {
            while (ping.wait() == wait_object_0 && !done) {
                set_event(pong);
            }
        }
    });
}

TEST_P(waitables, set_an_event_that_stays_set_though_its_waiters_come_again_at_once)
{
    object const gate(event(true));
    std::atomic<bool> done{false};
    run_at_once(9, [&](int thread) {
        for (int i = 0; thread == 0 && i < 20'000; ++i) {
            EXPECT_TRUE(set_event(gate));
            EXPECT_EQ(gate.wait(0), wait_object_0);
            EXPECT_TRUE(reset_event(gate));
        }
        if (thread == 0) {
            done = true;
            set_event(gate);
        }
        while (!done) {
            gate.wait();
        }
    });
}

} // namespace
