// SPDX-License-Identifier: MIT
// Locks, events and semaphores: taken and given back by one thread, fought over by several, and
// handed to and fro between two. What happens between threads says little on two processors; the
// count of system calls an operation, shown beside it, says more.
#include "zel/threads/crit_sect.h"
#include "zel/threads/event.h"
#include "zel/threads/mutex.h"
#include "zel/threads/semaphore.h"

#include "benchmarks/threads/system_calls.h"
#include <Poco/Event.h>
#include <QRecursiveMutex>
#include <QSemaphore>
#include <QSystemSemaphore>
#include <atomic>
#include <benchmark/benchmark.h>
#include <boost/interprocess/sync/interprocess_recursive_mutex.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t no_limit = 0xFFFFFFFF;

std::string fresh_name() { return "zel benchmark " + std::to_string(::getpid()); }

/// \name Locks
/// @{
struct zel_section {
    void take() { lock.lock(no_limit); }
    void give() { lock.unlock(); }
    zel::crit_sect lock;
};
struct zel_mutex {
    void take() { lock.lock(no_limit); }
    void give() { lock.unlock(); }
    zel::mutex lock;
};
struct zel_named_mutex {
    void take() { lock.lock(no_limit); }
    void give() { lock.unlock(); }
    zel::mutex lock{false, fresh_name()};
};
struct std_recursive {
    void take() { lock.lock(); }
    void give() { lock.unlock(); }
    std::recursive_mutex lock;
};
struct qt_recursive {
    void take() { lock.lock(); }
    void give() { lock.unlock(); }
    QRecursiveMutex lock;
};
template <typename Lock> struct shared {
    shared()
        : lock(*new (::mmap(nullptr, sizeof(Lock), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Lock)
    {
    }
    Lock & lock;
};
struct robust_pthread : shared<pthread_mutex_t> {
    robust_pthread()
    {
        pthread_mutexattr_t wishes;
        ::pthread_mutexattr_init(&wishes);
        ::pthread_mutexattr_setrobust(&wishes, PTHREAD_MUTEX_ROBUST);
        ::pthread_mutexattr_setpshared(&wishes, PTHREAD_PROCESS_SHARED);
        ::pthread_mutexattr_settype(&wishes, PTHREAD_MUTEX_RECURSIVE);
        ::pthread_mutex_init(&lock, &wishes);
    }
    void take() { ::pthread_mutex_lock(&lock); }
    void give() { ::pthread_mutex_unlock(&lock); }
};
struct boost_shared : shared<boost::interprocess::interprocess_recursive_mutex> {
    void take() { lock.lock(); }
    void give() { lock.unlock(); }
};
struct qt_named {
    void take() { lock.acquire(); }
    void give() { lock.release(); }
    QSystemSemaphore lock{QString::fromStdString(fresh_name()), 1, QSystemSemaphore::Create};
};
/// @}

/// \name Events and semaphores
/// @{
struct zel_event {
    void take() { flag.lock(no_limit); }
    void give() { flag.set(); }
    zel::event flag;
};
struct zel_named_event {
    explicit zel_named_event(char const * which = "")
        : flag(false, false, (fresh_name() + which).c_str())
    {
    }
    void take() { flag.lock(no_limit); }
    void give() { flag.set(); }
    zel::event flag;
};
struct zel_semaphore {
    void take() { units.lock(no_limit); }
    void give() { units.unlock(); }
    zel::semaphore units{0, 1000};
};
struct zel_named_semaphore {
    void take() { units.lock(no_limit); }
    void give() { units.unlock(); }
    zel::semaphore units{0, 1000, fresh_name()};
};
// The least that lets one sleeper through: the call of the kernel alone.
struct bare_wake {
    void take()
    {
        while (::syscall(SYS_futex, &word, FUTEX_WAIT, 0, nullptr, nullptr, 0) != 0) { }
    }
    void give()
    {
        while (::syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0) != 1) { }
    }
    std::uint32_t word = 0;
};
struct posix_semaphore {
    posix_semaphore() { ::sem_init(&units, 0, 0); }
    void take() { ::sem_wait(&units); }
    void give() { ::sem_post(&units); }
    sem_t units;
};
struct qt_semaphore {
    void take() { units.acquire(); }
    void give() { units.release(); }
    QSemaphore units;
};
struct poco_event {
    void take() { flag.wait(); }
    void give() { flag.set(); }
    Poco::Event flag{Poco::Event::EVENT_AUTORESET};
};
/// @}

// As long as a process has had one thread only, the C library's locks do without atomic steps.
void leave_single_thread()
{
    std::thread([] {}).join();
}

template <typename Lock> void uncontended(benchmark::State & state)
{
    leave_single_thread();
    auto const lock = std::make_unique<Lock>();
    for (auto _ : state) {
        lock->take();
        benchmark::ClobberMemory();
        lock->give();
    }
}

template <typename Flag> void one_thread(benchmark::State & state)
{
    leave_single_thread();
    auto const flag = std::make_unique<Flag>();
    for (auto _ : state) {
        flag->give();
        benchmark::ClobberMemory();
        flag->take();
    }
}

// `count` threads each do `times` rounds of a little work inside and outside.
template <typename Lock> void fight(int count, int times)
{
    auto const lock = std::make_unique<Lock>();
    std::uint64_t inside = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            std::uint64_t outside = 0;
            for (int round = 0; round < times; ++round) {
                lock->take();
                for (int work = 0; work < 20; ++work) {
                    benchmark::DoNotOptimize(++inside);
                }
                lock->give();
                for (int work = 0; work < 60; ++work) {
                    benchmark::DoNotOptimize(++outside);
                }
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}

template <typename Lock> void contended(benchmark::State & state)
{
    int const count = static_cast<int>(state.range(0));
    constexpr int times = 20'000;
    for (auto _ : state) {
        fight<Lock>(count, times);
    }
    state.SetItemsProcessed(state.iterations() * count * times);
    state.counters["calls"]
        = count_system_calls([&] { fight<Lock>(count, 1000); }) / (count * 1000);
}

template <typename Flag> void play(int times)
{
    Flag to;
    Flag fro;
    std::thread partner([&] {
        for (int i = 0; i < times; ++i) {
            to.take();
            fro.give();
        }
    });
    for (int i = 0; i < times; ++i) {
        to.give();
        fro.take();
    }
    partner.join();
}

template <typename Flag> void ping_pong(benchmark::State & state)
{
    constexpr int times = 2000;
    for (auto _ : state) {
        play<Flag>(times);
    }
    state.SetItemsProcessed(state.iterations() * times);
    state.counters["calls"] = count_system_calls([] { play<Flag>(1000); }) / 1000;
}

/// \name A name that is made and removed again, among others that stay
/// @{
struct zel_name {
    explicit zel_name(std::string const & name)
        : flag(false, false, name.c_str())
    {
    }
    zel::event flag;
};
struct posix_name {
    explicit posix_name(std::string const & name)
        : file('/' + name)
        , units(::sem_open(file.c_str(), O_CREAT | O_EXCL, 0600, 0))
    {
    }
    ~posix_name()
    {
        ::sem_close(units);
        ::sem_unlink(file.c_str());
    }
    std::string file;
    sem_t * units;
};
/// @}

template <typename Name> void create_and_close(benchmark::State & state)
{
    std::vector<std::unique_ptr<Name>> others;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        others.push_back(std::make_unique<Name>(fresh_name() + ", " + std::to_string(i)));
    }
    std::string const name = fresh_name();
    for (auto _ : state) {
        Name const made(name);
        benchmark::DoNotOptimize(&made);
    }
    state.counters["calls"] = count_system_calls([&] {
                                  for (int i = 0; i < 1000; ++i) {
                                      Name const made(name);
                                  }
                              })
        / 1000;
}

// What lets one of many through that wait; they have all fallen asleep again before the next.
template <typename Flag> void one_of_many(benchmark::State & state)
{
    Flag flag;
    std::atomic<bool> done{false};
    std::atomic<std::int64_t> passed{0};
    std::vector<std::thread> threads;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        threads.emplace_back([&] {
            for (flag.take(); !done; flag.take()) {
                passed += 1;
            }
        });
    }
    std::int64_t given = 0;
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        auto const begin = std::chrono::steady_clock::now();
        flag.give();
        std::chrono::duration<double> const time = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(time.count());
        for (++given; passed < given;) {
            std::this_thread::yield();
        }
    }
    done = true;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        flag.give();
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}

BENCHMARK(uncontended<zel_section>)->Name("crit_sect/zel");
BENCHMARK(uncontended<std_recursive>)->Name("crit_sect/std");
BENCHMARK(uncontended<qt_recursive>)->Name("crit_sect/qt");
BENCHMARK(uncontended<zel_mutex>)->Name("mutex/zel");
BENCHMARK(uncontended<std_recursive>)->Name("mutex/std");
BENCHMARK(uncontended<qt_recursive>)->Name("mutex/qt");

BENCHMARK(uncontended<zel_named_mutex>)->Name("named_mutex/zel");
BENCHMARK(uncontended<robust_pthread>)->Name("named_mutex/robust_pthread");
BENCHMARK(uncontended<boost_shared>)->Name("named_mutex/boost");
BENCHMARK(uncontended<qt_named>)->Name("named_mutex/qt");

BENCHMARK(one_thread<zel_event>)->Name("event/zel");
BENCHMARK(one_thread<posix_semaphore>)->Name("event/sem_t");
BENCHMARK(one_thread<poco_event>)->Name("event/poco");
BENCHMARK(one_thread<zel_semaphore>)->Name("semaphore/zel");
BENCHMARK(one_thread<posix_semaphore>)->Name("semaphore/sem_t");
BENCHMARK(one_thread<qt_semaphore>)->Name("semaphore/qt");
BENCHMARK(one_thread<zel_named_event>)->Name("named_event/zel");

BENCHMARK(contended<zel_section>)->Name("contended/crit_sect/zel")->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK(contended<zel_mutex>)->Name("contended/mutex/zel")->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK(contended<zel_named_mutex>)->Name("contended/named/zel")->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK(contended<std_recursive>)->Name("contended/mutex/std")->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK(contended<qt_recursive>)->Name("contended/mutex/qt")->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK(contended<robust_pthread>)
    ->Name("contended/named/pthread")
    ->Arg(2)
    ->Arg(4)
    ->UseRealTime();

BENCHMARK(one_of_many<zel_semaphore>)
    ->Name("one_of_many/semaphore/zel")
    ->Arg(10)
    ->Arg(100)
    ->Arg(500)
    ->UseManualTime();
BENCHMARK(one_of_many<zel_named_semaphore>)
    ->Name("one_of_many/named/zel")
    ->Arg(10)
    ->Arg(100)
    ->Arg(500)
    ->UseManualTime();
BENCHMARK(one_of_many<bare_wake>)
    ->Name("one_of_many/limit")
    ->Arg(10)
    ->Arg(100)
    ->Arg(500)
    ->UseManualTime();

BENCHMARK(create_and_close<zel_name>)->Name("named object among others/zel")->Arg(0)->Arg(5000);
BENCHMARK(create_and_close<posix_name>)
    ->Name("named object among others/sem_open")
    ->Arg(0)
    ->Arg(5000);

BENCHMARK(ping_pong<zel_event>)->Name("ping_pong/event/zel")->UseRealTime();
BENCHMARK(ping_pong<poco_event>)->Name("ping_pong/event/poco")->UseRealTime();
BENCHMARK(ping_pong<zel_semaphore>)->Name("ping_pong/semaphore/zel")->UseRealTime();
BENCHMARK(ping_pong<posix_semaphore>)->Name("ping_pong/semaphore/sem_t")->UseRealTime();
BENCHMARK(ping_pong<qt_semaphore>)->Name("ping_pong/semaphore/qt")->UseRealTime();

} // namespace
