// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"

#include "tests/platform/waited_object.h"
#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "zel/platform/objects/critical_section.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"
#include <cerrno>
#include <deque>
#include <random>
#include <string_view>
#include <vector>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

class mutexes : public testing::TestWithParam<bool> {
protected:
    static bool is_named() { return GetParam(); }
    static void * create(bool owned = false)
    {
        return create_mutex(owned, is_named() ? fresh_name().c_str() : nullptr);
    }
    time_limit const limit_{20};
};

INSTANTIATE_TEST_SUITE_P(of, mutexes, testing::Bool(),
                         [](auto const & row) { return row.param ? "named" : "unnamed"; });

TEST_P(mutexes, belong_to_one_thread_as_often_as_it_takes_them)
{
    object const mutex(create(true));
    EXPECT_EQ(mutex.wait(), wait_object_0);
    auto const holds_elsewhere = [&](auto const & check) {
        if (is_named()) {
            return holds_in_child(check);
        }
        bool result = false;
        std::thread([&] { result = check(); }).join();
        return result;
    };
    auto const is_refused = [&] {
        return mutex.wait(0) == wait_timeout && mutex.wait(5) == wait_timeout
            && !release_mutex(mutex) && last_error() == 288U;
    };
    for (int holds = 2; holds > 0; --holds) {
        EXPECT_TRUE(holds_elsewhere(is_refused)) << holds;
        EXPECT_TRUE(release_mutex(mutex));
    }
    EXPECT_TRUE(!release_mutex(mutex) && last_error() == 288U);
    EXPECT_TRUE(
        holds_elsewhere([&] { return mutex.wait(0) == wait_object_0 && release_mutex(mutex); }));
}

TEST_P(mutexes, tell_one_waiter_that_their_owner_ended)
{
    // Ends of a thread that nothing of this library or of the C library sees, too.
    for (bool const bare : {false, true}) {
        if (bare && under_thread_sanitizer) {
            continue;
        }
        SCOPED_TRACE(bare);
        object const mutex(create());
        object const go(create_event(false, false, nullptr));
        sleeper owner([&] {
            mutex.wait();
            mutex.wait();
            go.wait();
            if (bare) {
                ::syscall(SYS_exit, 0);
            }
        });
        std::atomic<int> abandoned{0};
        std::atomic<int> taken{0};
        {
            std::deque<sleeper> waiters;
            for (int i = 0; i < 3; ++i) {
                waiters.emplace_back([&] {
                    (mutex.wait(10'000) == wait_abandoned ? abandoned : taken) += 1;
                    EXPECT_TRUE(release_mutex(mutex));
                });
            }
            set_event(go);
        }
        EXPECT_EQ(abandoned, 1);
        EXPECT_EQ(taken, 2);
        bare ? (*owner).detach() : (*owner).join();
    }
}

// The host keeps one list of a thread's locks, with one place for the lock in work.
TEST_P(mutexes, share_the_hosts_list_with_the_c_librarys_locks)
{
    pthread_mutex_t hosts;
    pthread_mutexattr_t wishes;
    ::pthread_mutexattr_init(&wishes);
    ::pthread_mutexattr_setrobust(&wishes, PTHREAD_MUTEX_ROBUST);
    ::pthread_mutex_init(&hosts, &wishes);
    // In turn: a, b and the C library's p are taken, A, B and P given back; then the owner ends.
    for (std::string const life :
         {"a", "apP", "apPA", "ap", "pab", "abA", "abB", "apbPA", "paPAb"}) {
        SCOPED_TRACE(life);
        object const locks[] = {object(create()), object(create())};
        std::thread([&] {
            for (char const step : life) {
                if (step == 'p' || step == 'P') {
                    (step == 'p' ? ::pthread_mutex_lock : ::pthread_mutex_unlock)(&hosts);
                } else if (step >= 'a') {
                    EXPECT_EQ(locks[step - 'a'].wait(0), wait_object_0);
                } else {
                    EXPECT_TRUE(release_mutex(locks[step - 'A']));
                }
            }
        }).join();
        auto const is_held = [&](char taken, char given) {
            return life.find(taken) != life.npos && life.find(given) == life.npos;
        };
        EXPECT_EQ(locks[0].wait(0), is_held('a', 'A') ? wait_abandoned : wait_object_0);
        EXPECT_EQ(locks[1].wait(0), is_held('b', 'B') ? wait_abandoned : wait_object_0);
        EXPECT_EQ(::pthread_mutex_trylock(&hosts), is_held('p', 'P') ? EOWNERDEAD : 0);
        EXPECT_TRUE(release_mutex(locks[0]) && release_mutex(locks[1]));
        EXPECT_EQ(locks[1].wait(0), wait_object_0) << "told once";
        release_mutex(locks[1]);
        ::pthread_mutex_consistent(&hosts);
        ::pthread_mutex_unlock(&hosts);
    }
}

TEST_P(mutexes, stay_owned_when_their_owner_closes_its_handle)
{
    std::string const name = is_named() ? fresh_name() : "";
    void * const mutex = create_mutex(false, name.c_str());
    void * const own = is_named() ? open_mutex(mutex_all_access, false, name.c_str()) : mutex;
    object const go(create_semaphore(0, 2, nullptr));
    sleeper owner([&] {
        wait_for_single_object(own, infinite);
        go.wait();
        EXPECT_TRUE(close_handle(own));
        EXPECT_TRUE(!close_handle(own) && last_error() == 6U);
        EXPECT_EQ(wait_for_single_object(own, 0), wait_failed);
        object const another(create());
        go.wait();
    });
    std::atomic<std::uint32_t> result{wait_failed};
    sleeper waiter([&] { result = wait_for_single_object(mutex, infinite); });
    release_semaphore(go, 1, nullptr);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(result, wait_failed) << "the owner lives";
    release_semaphore(go, 1, nullptr);
    (*owner).join();
    (*waiter).join();
    EXPECT_EQ(result, wait_abandoned);
    EXPECT_EQ(close_handle(mutex), is_named());
    void * const later = create_mutex(true, name.c_str()); // the slot may serve again
    EXPECT_EQ(last_error(), 0U);
    EXPECT_TRUE(close_handle(later));
    EXPECT_EQ(open_mutex(mutex_all_access, false, name.c_str()), nullptr)
        << "an owner without a handle does not keep the name";
}

TEST_P(mutexes, are_abandoned_by_a_terminated_thread_which_waits_for_nothing_any_more)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    std::string const name = is_named() ? fresh_name() : "";
    object const mutex(create());
    struct {
        void * mutex;
        void * awaited;
        std::atomic<std::uint32_t> id;
    } shared{mutex, create_semaphore(0, 1, name.c_str()), {0}};
    auto const body = [](void * argument) {
        auto & objects = *static_cast<decltype(shared) *>(argument);
        wait_for_single_object(objects.mutex, infinite);
        objects.id = current_thread_id();
        return wait_for_single_object(objects.awaited, infinite);
    };
    object const victim(begin_thread(body, &shared, nullptr));
    while (shared.id == 0) {
        std::this_thread::yield();
    }
    until_asleep(static_cast<int>(shared.id));
    {
        sleeper const heir([&] { EXPECT_EQ(mutex.wait(10'000), wait_abandoned); });
        EXPECT_TRUE(terminate_thread(victim, 3));
    }
    EXPECT_TRUE(release_semaphore(shared.awaited, 1, nullptr));
    EXPECT_EQ(wait_for_single_object(shared.awaited, 0), wait_object_0) << "nobody waits there";
    EXPECT_TRUE(close_handle(shared.awaited));
    EXPECT_EQ(open_semaphore(synchronize, false, name.c_str()), nullptr);
}

TEST(handles_of_objects, are_refused_where_they_do_not_belong)
{
    object const event(create_event(false, true, nullptr));
    object const mutex(create_mutex(false, nullptr));
    object const semaphore(create_semaphore(0, 1, nullptr));
    int nothing = 0;
    auto const value = reinterpret_cast<std::uintptr_t>(static_cast<void *>(event));
    std::uintptr_t const no_handles[] = {
        0,
        1,
        ~std::uintptr_t{0},
        value + 1,
        value + 500 * slots_a_block * sizeof(handle_slot), // of a block that is not there
        value ^ (std::uintptr_t{1} << 32), // another kind
        value ^ (std::uintptr_t{1} << 63), // another generation
        value & word_mask,
        value | 0x80000000,
        reinterpret_cast<std::uintptr_t>(&nothing),
        reinterpret_cast<std::uintptr_t>(slot_of(event)),
    };
    std::vector<void *> wrongs{mutex, semaphore};
    for (std::uintptr_t const none : no_handles) {
        SCOPED_TRACE(none);
        void * const handle = reinterpret_cast<void *>(none);
        EXPECT_FALSE(close_handle(handle) || release_mutex(handle));
        EXPECT_EQ(wait_for_single_object(handle, 0), wait_failed);
        wrongs.push_back(handle);
    }
    for (void * const wrong : wrongs) {
        set_last_error(0);
        EXPECT_FALSE(set_event(wrong) || reset_event(wrong) || pulse_event(wrong));
        EXPECT_EQ(last_error(), 6U);
    }
    EXPECT_FALSE(release_mutex(event) || release_semaphore(event, 1, nullptr));
    void * const old = create_event(false, false, nullptr);
    EXPECT_TRUE(close_handle(old));
    object const later(create_event(false, false, nullptr)); // in the same slot
    EXPECT_EQ(slot_of(later), slot_of(old));
    EXPECT_FALSE(set_event(old) || close_handle(old));
    EXPECT_EQ(event.wait(0), wait_object_0);
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
    critical_section section;
    initialize_critical_section(section);
    enter_critical_section(section);
    std::thread([&] { leave_critical_section(section); }).join(); // not its own
    EXPECT_TRUE(holds_in_child([&] {
        // Both mutexes belong to the parent's threads, and the waiter is not here.
        bool const is_new = !release_mutex(mutex) && last_error() == 288U
            && mutex.wait(0) == wait_abandoned && theirs.wait(0) == wait_abandoned
            && set_event(event) && event.wait(0) == wait_object_0 && event.wait(1) == wait_timeout
            && release_semaphore(semaphore, 3, nullptr) && semaphore.wait(0) == wait_object_0;
        leave_critical_section(section); // the child's one thread holds it
        return is_new && section.state.load() == 0;
    }));
    EXPECT_NE(section.state.load(), 0U) << "the parent still holds it";
    leave_critical_section(section);
    EXPECT_EQ(semaphore.wait(0), wait_timeout);
    EXPECT_TRUE(release_mutex(mutex)) << "the parent still owns it";
    set_event(event);
    set_event(go);
    (*waiter).join();
    (*owner).join();
    EXPECT_EQ(theirs.wait(0), wait_object_0);
    release_mutex(theirs);
}

// What a wake-up is raced against a suspension over: one unit, which whoever takes it gives back.
struct contended {
    char const * kind;
    void * (*create)(char const * name); // the caller has the unit
};

constexpr auto event = [](char const * name) { return create_event(false, false, name); };
constexpr auto semaphore = [](char const * name) { return create_semaphore(0, 2, name); };
constexpr auto mutex = [](char const * name) { return create_mutex(true, name); };

class suspended_waiters : public testing::TestWithParam<contended> {
protected:
    bool take(std::uint32_t milliseconds)
    {
        if (object_ != nullptr) {
            return wait_for_single_object(object_, milliseconds) == wait_object_0;
        }
        if (milliseconds != 0) {
            enter_critical_section(section_);
        }
        return milliseconds != 0 || try_enter_critical_section(section_);
    }
    void give()
    {
        if (object_ == nullptr) {
            leave_critical_section(section_);
        } else {
            EXPECT_TRUE(set_event(object_) || release_semaphore(object_, 1, nullptr)
                        || release_mutex(object_));
        }
    }

    // Takes and gives back once a round.
    static unsigned work(void * argument)
    {
        auto & self = *static_cast<suspended_waiters *>(argument);
        for (std::uint32_t round = 0;; ++round) {
            while (self.round_ == round) {
                wait_on_address(self.round_, round, -1, false);
            }
            if (self.round_ == last_round) {
                return 0;
            }
            self.take(infinite);
            self.give();
            self.passed_ += 1;
        }
    }

    bool has_passed(std::uint32_t count, std::chrono::nanoseconds time) const
    {
        auto const end = std::chrono::steady_clock::now() + time;
        while (passed_ < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        return passed_ >= count;
    }

    static constexpr std::uint32_t last_round = 0xFFFFFFFF;
    critical_section section_;
    void * object_ = nullptr; // the section in its place
    zel::atomic<std::uint32_t> round_{0};
    zel::atomic<std::uint32_t> passed_{0};
};

// One waiter is suspended about when the object is given away. The other, which runs, must be let
// through as long as the first is suspended, unless the first had the object in its hands before.
TEST_P(suspended_waiters, leave_no_other_asleep_beside_a_free_object)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    time_limit const seconds(110);
    initialize_critical_section(section_);
    enter_critical_section(section_);
    if (GetParam().create != nullptr) {
        bool const is_named = std::string_view(GetParam().kind).starts_with("named");
        object_ = GetParam().create(is_named ? fresh_name().c_str() : nullptr);
        ASSERT_NE(object_, nullptr);
    }
    void * const victim = begin_thread(work, this, nullptr);
    std::thread other(work, this);
    std::minstd_rand random(1);
    for (std::uint32_t round = 1; round < 20'000; ++round) {
        round_ = round;
        wake_address(round_, 2, false);
        has_passed(last_round, random() % 8192 * 1ns);
        bool const comes_late = random() % 4 != 0;
        if (comes_late) {
            give();
            has_passed(last_round, random() % 4096 * 1ns);
        }
        ASSERT_NE(suspend_thread(victim), 0xFFFFFFFF);
        if (!comes_late) {
            give();
        }
        if (!has_passed(2 * round - 1, 1'000us) && take(0)) { // the other has not come yet
            give();
            ASSERT_TRUE(has_passed(2 * round - 1, 10s)) << round;
        }
        ASSERT_EQ(resume_thread(victim), 1U);
        ASSERT_TRUE(has_passed(2 * round, 10s)) << round;
        ASSERT_TRUE(take(infinite));
    }
    round_ = last_round;
    wake_address(round_, 2, false);
    other.join();
    EXPECT_EQ(wait_for_single_object(victim, 10'000), wait_object_0);
    EXPECT_TRUE(close_handle(victim));
    EXPECT_TRUE(object_ == nullptr || close_handle(object_));
}

constexpr contended all_contended[] = {
    {"event", event},       {"semaphore", semaphore}, {"mutex", mutex},
    {"section", nullptr},   {"named_event", event},   {"named_semaphore", semaphore},
    {"named_mutex", mutex},
};
INSTANTIATE_TEST_SUITE_P(over, suspended_waiters, testing::ValuesIn(all_contended),
                         [](auto const & row) { return std::string(row.param.kind); });

} // namespace
