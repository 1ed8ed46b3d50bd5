// SPDX-License-Identifier: MIT
// soak_kernel_objects MODE [COUNT]
//
// Long runs over the kernel objects, for hours where the tests take seconds. Each mode prints what it
// counted and ends with 1 when a promise was broken; a thread that is asleep for ever shows as a
// wait of a minute that was not let through.
#include "tests/support/processes.h"
#include "tests/support/threads_at_once.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/threads/threads.h"
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <new>
#include <random>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

constexpr std::uint32_t a_minute = 60'000;

std::string fresh_name()
{
    static int count = 0;
    return "zel soak " + std::to_string(::getpid()) + " " + std::to_string(++count);
}

// Zero, in memory that child processes share.
template <typename T> T & shared()
{
    void * const memory
        = ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return *new (memory) T{};
}

bool check(bool holds, char const * what)
{
    if (!holds) {
        std::printf("BROKEN: %s\n", what);
        std::fflush(stdout);
    }
    return holds;
}

/// Sets of one event between processes: of two that wait, each set lets one through.
bool sets_and_waits(std::uint64_t count)
{
    auto & passed = shared<std::atomic<std::uint64_t>>();
    void * const ping = create_event(false, false, fresh_name().c_str());
    void * const pong = create_event(false, false, fresh_name().c_str());
    auto const answer = [&] {
        while (wait_for_single_object(ping, a_minute) == wait_object_0) {
            passed += 1;
            set_event(pong);
        }
        return true;
    };
    child_process const waiters[] = {child_process(answer), child_process(answer)};
    for (std::uint64_t i = 0; i < count; ++i) {
        set_event(ping);
        if (!check(wait_for_single_object(pong, a_minute) == wait_object_0, "a set was lost")
            || !check(passed == i + 1, "one set let two through")) {
            return false;
        }
    }
    std::printf("%llu sets, each let one through\n", static_cast<unsigned long long>(count));
    return true;
}

/// Units taken for random times by 1 to 32 threads in 1 to 4 processes: never one too many inside,
/// and all back in the end.
bool units(std::uint64_t count)
{
    struct counts {
        std::atomic<int> inside;
        std::atomic<std::uint64_t> let_through, timed_out;
        std::atomic<bool> broken;
    };
    auto & sum = shared<counts>();
    for (auto const & [processes, threads] :
         {std::pair{1, 1}, {1, 2}, {1, 8}, {1, 32}, {2, 4}, {2, 16}, {4, 2}, {4, 8}}) {
        void * const free = create_semaphore(3, 3, fresh_name().c_str());
        auto const rounds = count / 8 / static_cast<unsigned>(processes * threads) + 1;
        auto const take_and_give = [&](int thread) {
            std::minstd_rand random(static_cast<unsigned>(::getpid() * 64 + thread));
            for (std::uint64_t i = 0; i < rounds && !sum.broken; ++i) {
                std::uint32_t const limits[] = {0, 1, 2, a_minute};
                std::uint32_t const limit = limits[random() % 4];
                if (wait_for_single_object(free, limit) != wait_object_0) {
                    sum.timed_out += 1;
                    sum.broken = sum.broken || !check(limit != a_minute, "asleep for a minute");
                    continue;
                }
                sum.let_through += 1;
                bool const holds = check(++sum.inside <= 3, "one too many inside");
                if (random() % 16 == 0) {
                    std::this_thread::sleep_for(std::chrono::microseconds(random() % 200));
                }
                --sum.inside;
                if (!holds || !check(release_semaphore(free, 1, nullptr), "a release refused")) {
                    sum.broken = true;
                }
            }
        };
        {
            std::deque<child_process> all;
            for (int i = 0; i < processes; ++i) {
                all.emplace_back([&, threads = threads] {
                    run_at_once(threads, take_and_give);
                    return true;
                });
            }
            for (child_process & one : all) {
                check(one.result() == 0, "a process was killed");
            }
        }
        int left = 0;
        while (wait_for_single_object(free, 0) == wait_object_0) {
            ++left;
        }
        if (sum.broken || !check(left == 3, "units lost or made")) {
            return false;
        }
        close_handle(free);
    }
    std::printf("%llu let through, %llu timed out\n",
                static_cast<unsigned long long>(sum.let_through.load()),
                static_cast<unsigned long long>(sum.timed_out.load()));
    return true;
}

// One thing to wait for: the one side gives it, and the other passes each time.
struct passage {
    char const * name;
    void * (*make)(char const * name);
    void (*give)(void *);
    void (*passed)(void *); // by the one who got it
    bool is_mutex;
};
passage const passages[] = {
    {"semaphore", [](char const * name) { return create_semaphore(0, 0x7FFFFFFF, name); },
     [](void * it) { release_semaphore(it, 1, nullptr); }, [](void *) {}, false},
    {"event", [](char const * name) { return create_event(false, false, name); },
     [](void * it) { set_event(it); }, [](void *) {}, false},
    {"manual event", [](char const * name) { return create_event(true, false, name); },
     [](void * it) { set_event(it); }, [](void * it) { reset_event(it); }, false},
    {"mutex", [](char const * name) { return create_mutex(true, name); },
     [](void * it) { release_mutex(it); }, [](void * it) { release_mutex(it); }, true},
};

struct passer {
    passage const & by;
    void * waited;
    std::atomic<std::uint64_t> passed, allowed;
    std::atomic<bool> done;

    static unsigned run(void * argument)
    {
        auto & self = *static_cast<passer *>(argument);
        while (wait_for_single_object(self.waited, infinite) == wait_object_0 && !self.done) {
            self.by.passed(self.waited);
            self.passed += 1;
            while (self.by.is_mutex && self.allowed < self.passed) {
                std::this_thread::yield(); // until the other side owns it again
            }
        }
        return 0;
    }
};

// What is given to a thread that is suspended at any moment lets it through once, and is not taken
// back. `of` is suspended here; meanwhile it waits for nothing.
bool passes_one(passer & of, void * thread, std::uint64_t round, unsigned steps)
{
    of.by.give(of.waited);
    for (; steps > 0; --steps) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    if (!check(suspend_thread(thread) == 0, "not suspended")) {
        return false;
    }
    std::uint64_t const before = of.passed;
    if (wait_for_single_object(of.waited, 0) == wait_object_0) {
        of.by.give(of.waited);
    }
    if (!check(of.passed == before, "it runs while it is suspended")) {
        return false;
    }
    resume_thread(thread);
    for (int spins = 0; of.passed <= round; ++spins) {
        if (spins > 1000) {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        if (!check(spins < 1'200'000, "what was given was lost")) {
            return false;
        }
    }
    bool const owns
        = !of.by.is_mutex || wait_for_single_object(of.waited, a_minute) == wait_object_0;
    of.allowed += 1;
    return check(owns, "the mutex did not come back")
        && check(of.passed == round + 1, "let through twice");
}

bool suspended_waiters(std::uint64_t count)
{
    for (passage const & by : passages) {
        for (bool const named : {false, true}) {
            void * const waited = by.make(named ? fresh_name().c_str() : nullptr);
            passer one{by, waited, {0}, {0}, {false}};
            void * const thread = begin_thread(passer::run, &one, nullptr);
            std::minstd_rand random(1);
            for (std::uint64_t i = 0; i < count; ++i) {
                if (!passes_one(one, thread, i, static_cast<unsigned>(random() % 2000))) {
                    std::printf("%s %s\n", named ? "named" : "unnamed", by.name);
                    return false;
                }
            }
            one.done = true;
            by.give(waited);
            wait_for_single_object(thread, a_minute);
            close_handle(thread);
            close_handle(waited);
            std::printf("%s %s: %llu given to a thread that was suspended\n",
                        named ? "named" : "unnamed", by.name,
                        static_cast<unsigned long long>(count));
            std::fflush(stdout);
        }
    }
    return true;
}

struct {
    char const * name;
    bool (*run)(std::uint64_t count);
    std::uint64_t count;
    char const * what;
} const modes[] = {
    {"sets", sets_and_waits, 10'000'000, "set and wait pairs between three processes"},
    {"units", units, 1'000'000, "units with random time-outs, 1 to 32 threads in 1 to 4 processes"},
    {"suspends", suspended_waiters, 100'000, "gifts of eight kinds to a thread that is suspended"},
};

} // namespace

int main(int argc, char ** argv)
{
    for (auto const & mode : modes) {
        if (argc > 1 && std::strcmp(argv[1], mode.name) == 0) {
            auto const count = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : mode.count;
            return mode.run(count) ? 0 : 1;
        }
    }
    std::fprintf(stderr, "usage: soak_kernel_objects MODE [COUNT]\n");
    for (auto const & mode : modes) {
        std::fprintf(stderr, "  %-10s %s (%llu)\n", mode.name, mode.what,
                     static_cast<unsigned long long>(mode.count));
    }
    return 2;
}
