// SPDX-License-Identifier: MIT
// Long runs over mutexes and names: mutex_soak [MODE [ROUNDS]]; all modes with their own rounds
// without arguments. One line a mode; the exit status tells how many failed.
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

std::string fresh_name(char const * what)
{
    static std::atomic<int> count{0};
    return "zel soak " + std::to_string(::getpid()) + what + std::to_string(++count);
}

std::int64_t now()
{
    timespec moment{};
    ::clock_gettime(CLOCK_MONOTONIC, &moment);
    return moment.tv_sec * 1'000'000'000 + moment.tv_nsec;
}

struct shared_numbers {
    std::atomic<std::int64_t> values[16];
};
shared_numbers & make_shared_numbers()
{
    void * const memory = ::mmap(nullptr, sizeof(shared_numbers), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return *new (memory) shared_numbers{};
}

pid_t start(std::function<void()> const & body)
{
    pid_t const child = ::fork();
    if (child == 0) {
        body();
        ::_exit(0);
    }
    return child;
}

int finish(pid_t child)
{
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::uint32_t next_random(std::uint32_t & seed) { return (seed = seed * 1103515245 + 12345) >> 8; }

// A thread that starts programs all the time, by posix_spawn and by fork and exec in turn.
class program_starter {
public:
    program_starter()
        : thread_([this] {
            for (; !done_; ++started_) {
                char program[] = "/bin/true";
                char * arguments[] = {program, nullptr};
                pid_t child = -1;
                if (started_ % 2 == 0) {
                    ::posix_spawn(&child, program, nullptr, nullptr, arguments, environ);
                } else if ((child = ::fork()) == 0) {
                    ::execv(program, arguments);
                    ::_exit(1);
                }
                ::waitpid(child, nullptr, 0);
            }
        })
    {
    }
    ~program_starter()
    {
        done_ = true;
        thread_.join();
    }
    int started() const { return started_; }

private:
    std::atomic<bool> done_{false};
    std::atomic<int> started_{0};
    std::thread thread_;
};

// A name is gone with its only holder, whatever programs are started meanwhile.
bool names_beside_programs(int rounds)
{
    program_starter const starter;
    int old = 0;
    std::int64_t longest = 0;
    for (int i = 0; i < rounds; ++i) {
        std::string const name = fresh_name("n");
        for (int again = 0; again < 2; ++again) {
            std::int64_t const began = now();
            void * const event = create_event(true, false, name.c_str());
            longest = std::max(longest, now() - began);
            old += event == nullptr || last_error() != 0
                || wait_for_single_object(event, 0) != wait_timeout;
            set_event(event);
            close_handle(event);
        }
    }
    std::printf("names beside programs: %d rounds, %d programs, %d found an old object, longest "
                "creation %.1f ms\n",
                rounds, starter.started(), old, static_cast<double>(longest) / 1e6);
    return old == 0;
}

// Eight processes create, open, lock and close one name, and are killed anywhere.
bool rounds_of_processes(int rounds)
{
    shared_numbers & numbers = make_shared_numbers();
    std::string const name = fresh_name("r");
    auto const use = [&](std::uint32_t seed) {
        program_starter const * const starter = seed % 8 == 0 ? new program_starter : nullptr;
        for (;;) {
            bool const opens = next_random(seed) % 4 == 0;
            void * const mutex = opens ? open_mutex(mutex_all_access, false, name.c_str())
                                       : create_mutex(false, name.c_str());
            if (mutex == nullptr) {
                numbers.values[1] += opens && last_error() == 2 ? 0 : 1;
                continue;
            }
            std::uint32_t const result = wait_for_single_object(mutex, 20'000);
            if (result == wait_object_0 || result == wait_abandoned) {
                // Two inside, of one object or of two under one name, see each other's mark.
                std::int64_t const mark = ::getpid() * 1'000 + static_cast<int>(seed % 1'000);
                numbers.values[2] = mark;
                for (unsigned k = next_random(seed) % 200; k > 0; --k) {
                    std::atomic_signal_fence(std::memory_order_seq_cst);
                }
                numbers.values[3] += numbers.values[2] != mark;
                numbers.values[0] += 1;
                release_mutex(mutex);
            } else {
                numbers.values[4] += 1;
            }
            close_handle(mutex);
        }
        delete starter;
    };
    pid_t users[8];
    std::uint32_t seed = 1;
    for (pid_t & user : users) {
        user = start([&] { use(next_random(seed)); });
        next_random(seed);
    }
    int killed = 0;
    for (int i = 0; i < rounds; ++i) {
        std::this_thread::sleep_for(std::chrono::microseconds(next_random(seed) % 2'000));
        pid_t & victim = users[next_random(seed) % 8];
        ::kill(victim, SIGKILL);
        finish(victim);
        ++killed;
        victim = start([&] { use(next_random(seed)); });
        next_random(seed);
    }
    std::int64_t const before = numbers.values[0];
    std::this_thread::sleep_for(500ms);
    bool const goes_on = numbers.values[0] > before;
    for (pid_t const user : users) {
        ::kill(user, SIGKILL);
        finish(user);
    }
    void * const last = create_mutex(false, name.c_str());
    bool const is_new = last_error() == 0;
    close_handle(last);
    std::printf("rounds of processes: %d killed, %lld held, %lld failed, %lld met another, %lld "
                "waited 20 s, %s, the name is %s\n",
                killed, static_cast<long long>(numbers.values[0]),
                static_cast<long long>(numbers.values[1]),
                static_cast<long long>(numbers.values[3]),
                static_cast<long long>(numbers.values[4]), goes_on ? "goes on" : "STANDS STILL",
                is_new ? "free" : "STILL TAKEN");
    return numbers.values[1] + numbers.values[3] + numbers.values[4] == 0 && goes_on && is_new;
}

struct robust_lock {
    pthread_mutex_t lock;
    void make()
    {
        pthread_mutexattr_t wishes;
        ::pthread_mutexattr_init(&wishes);
        ::pthread_mutexattr_setrobust(&wishes, PTHREAD_MUTEX_ROBUST);
        ::pthread_mutexattr_setpshared(&wishes, PTHREAD_PROCESS_SHARED);
        ::pthread_mutex_init(&lock, &wishes);
    }
};

// From the kill of an owner to the waiter's return, of both kinds in turn.
bool deaths_of_owners(int rounds)
{
    auto * const robust = static_cast<robust_lock *>(::mmap(
        nullptr, sizeof(robust_lock), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    robust->make();
    shared_numbers & numbers = make_shared_numbers();
    void * const mutex = create_mutex(false, fresh_name("d").c_str());
    std::vector<std::int64_t> times[2];
    int wrong = 0;
    for (int i = 0; i < 2 * rounds; ++i) {
        bool const ours = i % 2 == 0;
        numbers.values[0] = 0;
        pid_t const owner = start([&] {
            ours ? static_cast<void>(wait_for_single_object(mutex, infinite))
                 : static_cast<void>(::pthread_mutex_lock(&robust->lock));
            numbers.values[0] = 1;
            ::pause();
        });
        while (numbers.values[0] == 0) {
            std::this_thread::yield();
        }
        std::atomic<std::int64_t> returned{0};
        std::thread waiter([&] {
            bool told;
            if (ours) {
                told = wait_for_single_object(mutex, 30'000) == wait_abandoned;
            } else {
                told = ::pthread_mutex_lock(&robust->lock) == EOWNERDEAD;
            }
            returned = now();
            wrong += told ? 0 : 1;
            if (ours) {
                release_mutex(mutex);
            } else {
                ::pthread_mutex_consistent(&robust->lock);
                ::pthread_mutex_unlock(&robust->lock);
            }
        });
        std::this_thread::sleep_for(1ms);
        std::int64_t const killed = now();
        ::kill(owner, SIGKILL);
        waiter.join();
        finish(owner);
        times[ours ? 0 : 1].push_back(returned - killed);
    }
    close_handle(mutex);
    double figures[2][2];
    for (int i = 0; i < 2; ++i) {
        std::sort(times[i].begin(), times[i].end());
        figures[i][0] = static_cast<double>(times[i][times[i].size() / 2]) / 1'000;
        figures[i][1] = static_cast<double>(times[i][times[i].size() * 99 / 100]) / 1'000;
    }
    std::printf("deaths of owners: %d each, median and p99 %.1f and %.1f us, robust pthread mutex "
                "%.1f and %.1f us, %d wrong\n",
                rounds, figures[0][0], figures[0][1], figures[1][0], figures[1][1], wrong);
    return wrong == 0;
}

// Nobody dies, so nobody is told of a death, and nobody meets another inside.
bool hand_overs(int rounds)
{
    std::int64_t wrong = 0;
    std::int64_t sum = 0;
    for (bool const named : {false, true}) {
        shared_numbers & numbers = make_shared_numbers();
        void * const mutex = create_mutex(false, named ? fresh_name("h").c_str() : nullptr);
        auto const work = [&](int share) {
            std::vector<std::thread> threads;
            for (int t = 0; t < 4; ++t) {
                threads.emplace_back([&, t] {
                    for (int i = 0; i < share / 4; ++i) {
                        std::uint32_t result;
                        do {
                            result = wait_for_single_object(mutex, t == 0 ? 1 : infinite);
                        } while (result == wait_timeout);
                        numbers.values[1] += result != wait_object_0;
                        std::int64_t const seen = numbers.values[0].load(std::memory_order_relaxed);
                        numbers.values[0].store(seen + 1, std::memory_order_relaxed);
                        numbers.values[1] += !release_mutex(mutex);
                    }
                });
            }
            for (std::thread & thread : threads) {
                thread.join();
            }
        };
        std::vector<pid_t> others;
        int const processes = named ? 3 : 1;
        for (int i = 1; i < processes; ++i) {
            others.push_back(start([&] { work(rounds / processes); }));
        }
        work(rounds / processes);
        for (pid_t const other : others) {
            wrong += finish(other);
        }
        wrong += numbers.values[1];
        wrong += numbers.values[0] != rounds / processes / 4 * 4 * processes;
        sum += numbers.values[0];
        close_handle(mutex);
    }
    std::printf("hand-overs: %lld, %lld wrong\n", static_cast<long long>(sum),
                static_cast<long long>(wrong));
    return wrong == 0;
}

// Process 1 of a new pid namespace.
pid_t start_container(std::function<void()> const & body)
{
    return start([&] {
        if (::unshare(CLONE_NEWPID) != 0) {
            ::_exit(77);
        }
        int const result = finish(start(body));
        ::_exit(result < 0 ? 0 : result);
    });
}

// Two containers whose first processes have the same number.
bool namespaces(int rounds)
{
    if (int const result = finish(start_container([] {})); result == 77) {
        std::printf("pid namespaces: not allowed here\n");
        return true;
    }
    int taken = 0;
    int late = 0;
    std::string const name = fresh_name("p");
    for (int i = 0; i < rounds; ++i) {
        shared_numbers & numbers = make_shared_numbers();
        pid_t const owner = start_container([&] {
            void * const mutex = create_mutex(false, name.c_str());
            wait_for_single_object(mutex, infinite);
            numbers.values[0] = 1;
            while (numbers.values[2] == 0) {
                ::usleep(100);
            }
            if (i % 2 == 0) {
                ::kill(::getpid(), SIGKILL);
                ::_exit(9); // the first process of a namespace is spared its own signals
            }
            release_mutex(mutex);
        });
        while (numbers.values[0] == 0) {
            ::usleep(100);
        }
        pid_t const waiter = start_container([&] {
            void * const mutex = create_mutex(false, name.c_str());
            numbers.values[1] = 1;
            std::thread([] {
                ::usleep(3'000);
                ::_exit(0); // the whole process, in the middle of the wait
            }).detach();
            wait_for_single_object(mutex, infinite);
            numbers.values[3] = 1;
        });
        finish(waiter);
        void * const mutex = create_mutex(false, name.c_str());
        taken += numbers.values[3] != 0 || wait_for_single_object(mutex, 20) != wait_timeout;
        std::int64_t const began = now();
        numbers.values[2] = 1;
        std::uint32_t const result = wait_for_single_object(mutex, 10'000);
        late += result != (i % 2 == 0 ? wait_abandoned : wait_object_0)
            || now() - began > 2'000'000'000;
        release_mutex(mutex);
        close_handle(mutex);
        finish(owner);
    }
    std::printf(
        "pid namespaces: %d rounds, %d owners lost their mutex, %d ends told wrong or late\n",
        rounds, taken, late);
    return taken + late == 0;
}

// An owner other than the first thread calls exec.
bool owners_that_exec(int rounds)
{
    int wrong = 0;
    std::int64_t longest = 0;
    for (int i = 0; i < rounds; ++i) {
        void * const mutex = create_mutex(false, fresh_name("e").c_str());
        shared_numbers & numbers = make_shared_numbers();
        pid_t const owner = start([&] {
            std::thread([&] {
                wait_for_single_object(mutex, infinite);
                numbers.values[0] = 1;
                while (numbers.values[0] == 1) { }
                ::execl("/bin/sleep", "sleep", "30", nullptr);
            }).join();
        });
        while (numbers.values[0] == 0) { }
        std::int64_t const began = now();
        numbers.values[0] = 2;
        wrong += wait_for_single_object(mutex, 10'000) != wait_abandoned;
        longest = std::max(longest, now() - began);
        release_mutex(mutex);
        close_handle(mutex);
        ::kill(owner, SIGKILL);
        finish(owner);
    }
    std::printf("owners that exec: %d, %d not told, longest %.1f ms\n", rounds, wrong,
                static_cast<double>(longest) / 1e6);
    return wrong == 0;
}

// More mutexes than the kernel follows, owned by a thread that ends, and by a process that is killed.
bool many_owned(int count)
{
    int wrong = 0;
    std::int64_t longest = 0;
    for (int kind = 0; kind < 3; ++kind) { // unnamed, thread; named, thread; named, killed process
        std::vector<void *> mutexes;
        for (int i = 0; i < count; ++i) {
            mutexes.push_back(create_mutex(false, kind == 0 ? nullptr : fresh_name("m").c_str()));
        }
        auto const own = [&] {
            for (void * const mutex : mutexes) {
                wait_for_single_object(mutex, infinite);
            }
        };
        if (kind < 2) {
            std::thread(own).join();
        } else {
            finish(start([&] {
                own();
                ::kill(::getpid(), SIGKILL);
            }));
        }
        for (void * const mutex : mutexes) {
            std::int64_t const began = now();
            wrong += wait_for_single_object(mutex, 5'000) != wait_abandoned;
            longest = std::max(longest, now() - began);
            release_mutex(mutex);
            close_handle(mutex);
        }
    }
    std::printf("many owned: three times %d, %d not told, longest %.1f ms\n", count, wrong,
                static_cast<double>(longest) / 1e6);
    return wrong == 0;
}

// On one processor, beside a thread that takes the mutex again as soon as it has given it back.
bool fairness(int rounds)
{
    cpu_set_t all;
    ::sched_getaffinity(0, sizeof all, &all);
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++i) {
        if (CPU_ISSET(i, &all)) {
            CPU_SET(i, &one);
        }
    }
    ::sched_setaffinity(0, sizeof one, &one);
    std::int64_t longest = 0;
    int kept_out = 0;
    for (int i = 0; i < rounds; ++i) {
        void * const mutex = create_mutex(false, i % 2 == 0 ? nullptr : fresh_name("f").c_str());
        std::atomic<bool> done{false};
        std::atomic<bool> begun{false};
        std::thread greedy([&] {
            while (!done) {
                wait_for_single_object(mutex, infinite);
                begun = true;
                std::int64_t const until = now() + 100'000;
                while (now() < until) { }
                release_mutex(mutex);
            }
        });
        while (!begun) {
            std::this_thread::yield();
        }
        std::int64_t const began = now();
        kept_out += wait_for_single_object(mutex, 1'000) != wait_object_0;
        longest = std::max(longest, now() - began);
        done = true;
        release_mutex(mutex);
        greedy.join();
        close_handle(mutex);
    }
    ::sched_setaffinity(0, sizeof all, &all);
    std::printf("fairness: %d waits on one processor, %d kept out for 1 s, longest %.1f ms\n",
                rounds, kept_out, static_cast<double>(longest) / 1e6);
    return kept_out == 0;
}

// Others are stopped in the middle of creations and releases of names.
bool stopped_creators(int rounds)
{
    std::int64_t longest = 0;
    std::int64_t longest_fork = 0;
    std::uint32_t seed = 3;
    for (int i = 0; i < rounds; ++i) {
        pid_t const creator = start([&] {
            for (;;) {
                close_handle(create_mutex(false, fresh_name("x").c_str()));
            }
        });
        ::usleep(1'000 + next_random(seed) % 3'000);
        ::kill(creator, SIGSTOP);
        ::waitpid(creator, nullptr, WUNTRACED);
        std::int64_t began = now();
        for (int k = 0; k < 10; ++k) {
            close_handle(create_mutex(false, fresh_name("y").c_str()));
        }
        longest = std::max(longest, now() - began);
        began = now();
        finish(start([] {}));
        longest_fork = std::max(longest_fork, now() - began);
        ::kill(creator, SIGKILL);
        finish(creator);
    }
    std::printf(
        "stopped creators: %d, ten creations beside one took at most %.1f ms, a fork %.1f ms\n",
        rounds, static_cast<double>(longest) / 1e6, static_cast<double>(longest_fork) / 1e6);
    return longest < 1'000'000'000 && longest_fork < 1'000'000'000;
}

// Threads are cancelled while they create, open and close.
bool cancelled_threads(int rounds)
{
    int wrong = 0;
    for (int i = 0; i < rounds; ++i) {
        pid_t const child = start([&] {
            pthread_t thread{};
            static std::atomic<bool> runs{false};
            ::pthread_create(
                &thread, nullptr,
                [](void *) -> void * {
                    for (;;) {
                        void * const mutex = create_mutex(true, fresh_name("c").c_str());
                        close_handle(open_mutex(synchronize, false, "zel soak: none such"));
                        close_handle(mutex);
                        runs = true;
                        ::pthread_testcancel();
                    }
                },
                nullptr);
            while (!runs) { }
            ::usleep(static_cast<unsigned>(i) % 200);
            ::pthread_cancel(thread);
            void * result = nullptr;
            ::pthread_join(thread, &result);
            ::_exit(result == PTHREAD_CANCELED ? 0 : 1);
        });
        wrong += finish(child) != 0;
    }
    std::printf("cancelled threads: %d, %d processes ended\n", rounds, wrong);
    return wrong == 0;
}

// The folder of names is emptied under its users, as some login managers do.
bool emptied_folder(int rounds)
{
    int wrong = 0;
    std::string const empty = "rm -rf /dev/shm/zel-" + std::to_string(::geteuid());
    for (int i = 0; i < rounds; ++i) {
        std::string const name = fresh_name("o");
        pid_t const user = start([&] {
            void * const old = create_mutex(true, name.c_str());
            int failed = std::system(empty.c_str());
            pid_t const other = start([&] {
                void * const event = create_mutex(false, name.c_str()); // a new one
                ::_exit(wait_for_single_object(event, 0) == wait_object_0 && ::usleep(30'000) == 0
                                && release_mutex(event)
                            ? 0
                            : 1);
            });
            ::usleep(10'000);
            failed += release_mutex(old) ? 0 : 1;
            failed += close_handle(old) ? 0 : 1;
            void * const joined = create_mutex(false, name.c_str());
            failed += last_error() == 183 ? 0 : 1;
            failed += wait_for_single_object(joined, 0) == wait_timeout ? 0 : 1;
            failed += finish(other);
            ::_exit(failed);
        });
        wrong += finish(user) != 0;
    }
    std::printf("emptied folder: %d rounds, %d wrong\n", rounds, wrong);
    return wrong == 0;
}

struct mode {
    char const * name;
    bool (*run)(int rounds);
    int rounds;
};
constexpr mode modes[] = {
    {"programs", names_beside_programs, 10'000},
    {"processes", rounds_of_processes, 10'000},
    {"deaths", deaths_of_owners, 2'000},
    {"hand-overs", hand_overs, 1'000'000},
    {"namespaces", namespaces, 100},
    {"exec", owners_that_exec, 50},
    {"many", many_owned, 3'000},
    {"fairness", fairness, 32},
    {"stopped", stopped_creators, 60},
    {"cancelled", cancelled_threads, 300},
    {"emptied", emptied_folder, 50},
};

} // namespace

int main(int argc, char ** argv)
{
    int failed = 0;
    for (mode const & each : modes) {
        if (argc < 2 || std::strcmp(argv[1], each.name) == 0) {
            failed += each.run(argc > 2 ? std::atoi(argv[2]) : each.rounds) ? 0 : 1;
            std::fflush(stdout);
        }
    }
    return failed;
}
