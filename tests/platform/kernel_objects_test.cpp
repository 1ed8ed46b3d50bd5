// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"

#include "tests/platform/waited_object.h"
#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/critical_section.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

TEST(unnamed_mutex, belongs_to_one_thread_as_often_as_it_takes_it)
{
    time_limit const seconds(20);
    object const mutex(create_mutex(true, nullptr));
    EXPECT_EQ(mutex.wait(), wait_object_0);
    std::thread([&] {
        EXPECT_EQ(mutex.wait(0), wait_timeout);
        EXPECT_EQ(mutex.wait(5), wait_timeout);
        EXPECT_FALSE(release_mutex(mutex));
        EXPECT_EQ(last_error(), 288U);
    }).join();
    EXPECT_TRUE(release_mutex(mutex));
    std::thread([&] { EXPECT_EQ(mutex.wait(0), wait_timeout); }).join();
    EXPECT_TRUE(release_mutex(mutex));
    EXPECT_FALSE(release_mutex(mutex));
    std::thread([&] {
        EXPECT_TRUE(mutex.wait(0) == wait_object_0 && release_mutex(mutex));
    }).join();
}

TEST(unnamed_mutex, tells_one_waiter_that_its_owner_ended)
{
    time_limit const seconds(20);
    // Ends of a thread that nothing of this library or of the C library sees, too.
    for (bool const bare : {false, true}) {
        if (bare && under_thread_sanitizer) {
            continue;
        }
        SCOPED_TRACE(bare);
        object const mutex(create_mutex(false, nullptr));
        object const others[]
            = {object(create_mutex(false, nullptr)), object(create_mutex(false, nullptr))};
        object const go(create_event(false, false, nullptr));
        sleeper owner([&] {
            mutex.wait();
            others[0].wait();
            mutex.wait();
            others[1].wait();
            release_mutex(others[0]); // from the middle of the list
            go.wait();
            if (bare) {
                ::syscall(SYS_exit, 0);
            }
        });
        std::atomic<int> abandoned{0};
        std::atomic<int> taken{0};
        std::vector<std::unique_ptr<sleeper>> waiters;
        for (int i = 0; i < 3; ++i) {
            waiters.push_back(std::make_unique<sleeper>([&] {
                std::uint32_t const result = mutex.wait(10'000);
                (result == wait_abandoned ? abandoned : taken) += 1;
                EXPECT_TRUE(release_mutex(mutex)) << result;
            }));
        }
        EXPECT_EQ(abandoned + taken, 0);
        set_event(go);
        for (auto const & waiter : waiters) {
            (**waiter).join();
        }
        EXPECT_EQ(abandoned, 1);
        EXPECT_EQ(taken, 2);
        bare ? (*owner).detach() : (*owner).join();
        EXPECT_EQ(others[0].wait(0), wait_object_0);
        EXPECT_EQ(others[1].wait(5'000), wait_abandoned) << "nobody waited";
        EXPECT_TRUE(release_mutex(others[1]) && release_mutex(others[0]));
        EXPECT_EQ(others[1].wait(0), wait_object_0) << "told once";
        release_mutex(others[1]);
    }
}

// The host keeps one list of a thread's locks, with one place for the lock in work.
TEST(unnamed_mutex, shares_the_hosts_list_with_the_c_librarys_locks)
{
    time_limit const seconds(20);
    // In turn: a, b and the C library's p are taken, A, B and P given back; then the owner ends.
    char const * const lives[] = {"a", "apP", "apPA", "ap", "pab", "abA", "abB", "apbPA", "paPAb"};
    for (char const * const life : lives) {
        SCOPED_TRACE(life);
        object const mutexes[]
            = {object(create_mutex(false, nullptr)), object(create_mutex(false, nullptr))};
        pthread_mutex_t hosts;
        pthread_mutexattr_t wishes;
        ::pthread_mutexattr_init(&wishes);
        ::pthread_mutexattr_setrobust(&wishes, PTHREAD_MUTEX_ROBUST);
        ::pthread_mutex_init(&hosts, &wishes);
        std::thread([&] {
            for (char const * step = life; *step != '\0'; ++step) {
                if (*step == 'p' || *step == 'P') {
                    (*step == 'p' ? ::pthread_mutex_lock : ::pthread_mutex_unlock)(&hosts);
                } else if (*step >= 'a') {
                    EXPECT_EQ(mutexes[*step - 'a'].wait(0), wait_object_0);
                } else {
                    EXPECT_TRUE(release_mutex(mutexes[*step - 'A']));
                }
            }
        }).join();
        auto const is_held = [&](char taken, char given) {
            return std::strchr(life, taken) != nullptr && std::strchr(life, given) == nullptr;
        };
        EXPECT_EQ(mutexes[0].wait(0), is_held('a', 'A') ? wait_abandoned : wait_object_0);
        EXPECT_EQ(mutexes[1].wait(0), is_held('b', 'B') ? wait_abandoned : wait_object_0);
        EXPECT_EQ(::pthread_mutex_trylock(&hosts), is_held('p', 'P') ? EOWNERDEAD : 0);
        EXPECT_TRUE(release_mutex(mutexes[0]) && release_mutex(mutexes[1]));
        ::pthread_mutex_consistent(&hosts);
        ::pthread_mutex_unlock(&hosts);
        ::pthread_mutex_destroy(&hosts);
        ::pthread_mutexattr_destroy(&wishes);
    }
}

TEST(unnamed_mutex, stays_owned_when_its_handle_is_closed)
{
    time_limit const seconds(20);
    void * const mutex = create_mutex(false, nullptr);
    object const go(create_event(false, false, nullptr));
    std::atomic<bool> looked{false};
    sleeper owner([&] {
        wait_for_single_object(mutex, infinite);
        go.wait();
        object const another(create_mutex(false, nullptr));
        looked = true;
        go.wait();
    });
    zel::atomic<std::uint32_t> result{wait_failed};
    sleeper waiter([&] { result = wait_for_single_object(mutex, infinite); });
    EXPECT_TRUE(close_handle(mutex));
    EXPECT_FALSE(close_handle(mutex));
    EXPECT_EQ(last_error(), 6U);
    EXPECT_EQ(wait_for_single_object(mutex, 0), wait_failed);
    set_event(go);
    while (!looked) {
        std::this_thread::yield();
    }
    EXPECT_EQ(result, wait_failed) << "the owner lives";
    set_event(go);
    (*owner).join();
    (*waiter).join();
    EXPECT_EQ(result, wait_abandoned);
    object const later(create_mutex(true, nullptr)); // the slot may serve again
    EXPECT_TRUE(release_mutex(later));
}

TEST(handles_of_objects, are_refused_where_they_do_not_belong)
{
    object const event(create_event(false, false, nullptr));
    object const mutex(create_mutex(false, nullptr));
    object const semaphore(create_semaphore(0, 1, nullptr));
    set_last_error(0);
    int nothing = 0;
    void * const wrongs[] = {nullptr, mutex, semaphore, &nothing};
    for (void * const wrong : wrongs) {
        EXPECT_FALSE(set_event(wrong) || reset_event(wrong) || pulse_event(wrong));
        EXPECT_EQ(last_error(), 6U);
    }
    EXPECT_FALSE(release_mutex(event) || release_semaphore(event, 1, nullptr));
    EXPECT_EQ(wait_for_single_object(nullptr, 0), wait_failed);
    EXPECT_FALSE(close_handle(nullptr));
}

TEST(unnamed_objects, are_the_childs_own_after_a_fork)
{
    time_limit const seconds(20);
    object const event(create_event(false, false, nullptr));
    object const mutex(create_mutex(true, nullptr));
    object const semaphore(create_semaphore(0, 3, nullptr));
    object const theirs(create_mutex(false, nullptr));
    object const go(create_event(false, false, nullptr));
    sleeper waiter([&] { event.wait(); });
    sleeper owner([&] {
        theirs.wait();
        go.wait();
        release_mutex(theirs);
    });
    EXPECT_EQ(in_child([&] {
                  if (release_mutex(mutex) || last_error() != 288U) {
                      return 1; // the parent's thread owns it, not the child's
                  }
                  if (mutex.wait(0) != wait_abandoned || !release_mutex(mutex)) {
                      return 2;
                  }
                  if (theirs.wait(0) != wait_abandoned || !release_mutex(theirs)) {
                      return 3;
                  }
                  // The parent's waiter is not here.
                  if (!set_event(event) || event.wait(0) != 0 || event.wait(1) != wait_timeout) {
                      return 4;
                  }
                  return release_semaphore(semaphore, 3, nullptr) && semaphore.wait(0) == 0 ? 0 : 5;
              }),
              0);
    EXPECT_EQ(semaphore.wait(0), wait_timeout);
    EXPECT_TRUE(release_mutex(mutex)) << "the parent still owns it";
    set_event(event);
    set_event(go);
    (*waiter).join();
    (*owner).join();
    EXPECT_EQ(theirs.wait(0), wait_object_0);
    release_mutex(theirs);
}

TEST(critical_section, excludes_and_counts)
{
    time_limit const seconds(20);
    critical_section section;
    initialize_critical_section(section);
    enter_critical_section(section);
    EXPECT_TRUE(try_enter_critical_section(section));
    std::thread([&] {
        EXPECT_FALSE(try_enter_critical_section(section));
        leave_critical_section(section); // not its own
    }).join();
    leave_critical_section(section);
    sleeper waiter([&] {
        enter_critical_section(section);
        leave_critical_section(section);
    });
    EXPECT_EQ(in_child([&] {
                  leave_critical_section(section); // the child's one thread holds it
                  return try_enter_critical_section(section) ? 0 : 1;
              }),
              0);
    leave_critical_section(section);
    (*waiter).join();
    EXPECT_TRUE(try_enter_critical_section(section));
    leave_critical_section(section);
    delete_critical_section(section);
}

TEST(terminated_threads, leave_the_waiters_and_abandon_what_they_own)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    time_limit const seconds(20);
    std::string const name = "zel test victim " + std::to_string(::getpid());
    for (char const * const which : {"", name.c_str()}) {
        SCOPED_TRACE(which);
        void * const awaited = create_semaphore(0, 1, which);
        object const mutex(create_mutex(false, (which + std::string(*which ? "m" : "")).c_str()));
        struct {
            void * mutex;
            void * awaited;
            zel::atomic<std::uint32_t> id;
        } shared{mutex, awaited, {0}};
        auto const body = [](void * argument) {
            auto & objects = *static_cast<decltype(shared) *>(argument);
            wait_for_single_object(objects.mutex, infinite);
            objects.id = current_thread_id();
            wait_for_single_object(objects.awaited, infinite);
            return 0U;
        };
        object const victim(begin_thread(body, &shared, nullptr));
        while (shared.id == 0) {
            std::this_thread::yield();
        }
        until_asleep(static_cast<int>(shared.id));
        sleeper heir([&] { EXPECT_EQ(mutex.wait(10'000), wait_abandoned); });
        EXPECT_TRUE(terminate_thread(victim, 3));
        (*heir).join();
        EXPECT_TRUE(release_semaphore(awaited, 1, nullptr));
        EXPECT_EQ(wait_for_single_object(awaited, 0), wait_object_0) << "nobody waits there";
        EXPECT_TRUE(close_handle(awaited));
        if (*which != '\0') {
            EXPECT_EQ(open_semaphore(synchronize, false, which), nullptr);
        }
    }
}

// What a wake-up is raced against a suspension over.
struct contender {
    char const * kind;
    bool is_lock; // given back by whoever took it; else one is let through for each `give`
    void * (*create)();
};

void * create_section()
{
    static critical_section section;
    initialize_critical_section(section);
    return &section;
}

std::string name_of_race() { return "zel test race " + std::to_string(::getpid()); }

contender const contenders[] = {
    {"event", false, [] { return create_event(false, false, nullptr); }},
    {"semaphore", false, [] { return create_semaphore(0, 2, nullptr); }},
    {"mutex", true, [] { return create_mutex(false, nullptr); }},
    {"section", true, create_section},
    {"named_event", false, [] { return create_event(false, false, name_of_race().c_str()); }},
    {"named_semaphore", false, [] { return create_semaphore(0, 2, name_of_race().c_str()); }},
    {"named_mutex", true, [] { return create_mutex(false, name_of_race().c_str()); }},
};

class suspended_waiters : public testing::TestWithParam<contender> {
protected:
    bool is(char const * kind) const { return std::string_view(GetParam().kind).ends_with(kind); }

    bool take(std::uint32_t milliseconds)
    {
        if (!is("section")) {
            return wait_for_single_object(object_, milliseconds) == wait_object_0;
        }
        auto & section = *static_cast<critical_section *>(object_);
        if (milliseconds == 0) {
            return try_enter_critical_section(section);
        }
        enter_critical_section(section);
        return true;
    }

    void give()
    {
        if (is("section")) {
            leave_critical_section(*static_cast<critical_section *>(object_));
        } else {
            EXPECT_TRUE(is("event")           ? set_event(object_)
                            : is("semaphore") ? release_semaphore(object_, 1, nullptr)
                                              : release_mutex(object_));
        }
    }

    static unsigned call(void * self) { return static_cast<suspended_waiters *>(self)->work(); }

    // Takes once a round, or keeps waiting into the next.
    unsigned work()
    {
        for (std::uint32_t round = 0;;) {
            await(round_, round);
            round = round_;
            if (done_ || !take(infinite) || done_) {
                return 0;
            }
            if (GetParam().is_lock) {
                give();
            }
            passed_ += 1;
        }
    }

    static void await(zel::atomic<std::uint32_t> const & word, std::uint32_t old)
    {
        while (word == old) {
            wait_on_address(word, old, -1, false);
        }
    }
    static void advance(zel::atomic<std::uint32_t> & word)
    {
        word += 1;
        wake_address(word, 9, false);
    }

    bool has_passed(std::uint32_t count, std::chrono::microseconds time) const
    {
        auto const end = std::chrono::steady_clock::now() + time;
        while (passed_ < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        return passed_ >= count;
    }

    static void dawdle(unsigned steps)
    {
        for (; steps != 0; --steps) {
            std::atomic_signal_fence(std::memory_order_seq_cst);
        }
    }

    void * object_ = nullptr;
    zel::atomic<std::uint32_t> round_{0};
    zel::atomic<std::uint32_t> go_{0};
    zel::atomic<std::uint32_t> taken_{0};
    zel::atomic<std::uint32_t> given_{0};
    zel::atomic<std::uint32_t> over_{0};
    zel::atomic<std::uint32_t> passed_{0};
    std::atomic<bool> done_{false};
};

// One waiter is suspended while the object is given away. The other, which runs, must be let
// through as long as the first is suspended, unless the first had the object in its hands before.
TEST_P(suspended_waiters, leave_no_other_asleep_beside_a_free_object)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    time_limit const seconds(110);
    constexpr std::uint32_t rounds = 100'000;
    bool const is_lock = GetParam().is_lock;
    object_ = GetParam().create();
    ASSERT_NE(object_, nullptr);

    std::thread giver([&] {
        for (std::uint32_t round = 0; round < rounds; ++round) {
            if (is_lock) {
                take(infinite);
                advance(taken_);
            }
            await(go_, round);
            give();
            advance(given_);
            await(over_, round);
        }
    });
    void * const victim = begin_thread(call, this, nullptr);
    std::thread other([&] { work(); });

    std::uint32_t expected = 0;
    unsigned seed = 1;
    for (std::uint32_t round = 0; round < rounds; ++round) {
        if (is_lock) {
            await(taken_, round);
        }
        expected += is_lock ? 2 : 1;
        seed = seed * 1103515245 + 12345;
        advance(round_);
        dawdle(seed / 65536 % 4096);
        advance(go_);
        dawdle(seed / 65536 % 61 * 8);
        ASSERT_NE(suspend_thread(victim), 0xFFFFFFFF);
        await(given_, round);
        // Both pass a lock, one passes on a unit.
        if (!has_passed(expected - (is_lock ? 1 : 0), 1'000us)) {
            if (take(0)) { // the other has not come yet
                give();
                ASSERT_TRUE(has_passed(expected - (is_lock ? 1 : 0), 10s)) << round;
            } else if (!is_lock) { // the first has it, and a second one is for the other
                give();
                expected += 1;
                ASSERT_TRUE(has_passed(expected - 1, 10s)) << round;
            }
        }
        ASSERT_EQ(resume_thread(victim), 1U);
        ASSERT_TRUE(has_passed(expected, 10s)) << round;
        advance(over_);
    }
    done_ = true;
    advance(round_);
    for (int i = 0; i < 2 && !is_lock; ++i) {
        give();
        std::this_thread::sleep_for(1ms);
    }
    giver.join();
    other.join();
    EXPECT_EQ(wait_for_single_object(victim, 10'000), wait_object_0);
    EXPECT_TRUE(close_handle(victim));
    EXPECT_TRUE(is("section") || close_handle(object_));
}

INSTANTIATE_TEST_SUITE_P(over, suspended_waiters, testing::ValuesIn(contenders),
                         [](auto const & row) { return std::string(row.param.kind); });

} // namespace
