// SPDX-License-Identifier: MIT
// soak_mixed MINUTES [KIND]
//
// Four processes by eight threads use everything at once: stores, named objects, message queues,
// threads that come and are suspended and terminated, loggers, files. Two of the processes are
// killed every second or two and start again; the other two live throughout. Prints a line a minute
// and ends with 1 when a promise was broken, or when from minute 5 on the least that those two
// held of memory, descriptors, threads or entries in shared memory has grown by more than 2 %
// and one.
#include "tests/support/processes.h"
#include "tests/support/scratch_folder.h"
#include "zel/zel.h"
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sys/mman.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;
using zel::auto_ptr;
using zel::path;
using zel::string;

constexpr std::uint32_t a_minute = 60'000;
constexpr int threads = 8;

/// What all processes see.
struct state {
    int only = -1; // the kind of work; all of them when negative
    std::array<std::atomic<std::uint64_t>, threads> rounds;
    std::atomic<bool> broken;
    std::uint64_t first, second; // equal whenever nobody holds the mutex, unless its owner died
};
state * shared;

void check(bool holds, char const * what)
{
    if (!holds && !shared->broken.exchange(true)) {
        std::printf("BROKEN: %s\n", what);
        std::fflush(stdout);
    }
}

class worker {
public:
    worker(scratch_folder const & folder, int process, int thread)
        : folder_(folder)
        , own_(std::to_string(process * threads + thread))
        , random_(static_cast<unsigned>(::getpid() * threads + thread))
    {
    }

    path place(std::string const & name) const { return zel::from_native(folder_.file(name)); }
    string name(std::string const & object) const { return (folder_.name() + object).c_str(); }
    unsigned dice(unsigned sides) { return static_cast<unsigned>(random_()) % sides; }

    /// A store over a file that all processes write.
    void settings()
    {
        auto_ptr<zel::iprofile> const store(
            new zel::ini_file(string(place("settings" + std::to_string(dice(3))).c_str())));
        string const value((std::to_string(++round_) + std::string(dice(200), 'v')).c_str());
        store->write_string("soak", own_.c_str(), value);
        check(store->read_string("soak", own_.c_str(), "") == value, "a setting was lost");
    }

    void cached_settings()
    {
        auto_ptr<zel::iprofile> const store(
            new zel::ini_file(string(place("cached" + std::to_string(dice(3))).c_str())));
        auto_ptr<zel::iprofile> const cache(new zel::cached_profile(store));
        zel::sub_profile part(cache, own_.c_str());
        for (int i = 0; i < 20; ++i) {
            part.write_int("numbers", std::to_string(i).c_str(), ++round_);
        }
        check(part.read_int("numbers", "19", 0) == round_, "the cache forgot an entry");
    }

    /// Objects that come and go under names that all processes use.
    void names()
    {
        std::string const which = std::to_string(dice(12));
        void * const event = create_event(true, false, name("event" + which).c_str());
        void * const units = create_semaphore(1, 1000, name("units" + which).c_str());
        check(event != nullptr && units != nullptr, "an object was refused");
        set_event(event);
        wait_for_single_object(event, 0);
        release_semaphore(units, 1, nullptr);
        check(wait_for_single_object(units, a_minute) == wait_object_0, "a unit was lost");
        check(close_handle(event) && close_handle(units), "a handle was refused");
    }

    void named_mutex()
    {
        zel::mutex guard(false, name("mutex").c_str());
        std::uint32_t const result = wait_for_single_object(guard.get_handle(), a_minute);
        if (result == wait_abandoned) {
            shared->second = shared->first;
        } else {
            check(result == wait_object_0, "asleep before a mutex for a minute");
        }
        check(shared->first == shared->second, "two owners, or an owner's death was not told");
        shared->first += 1;
        shared->second += 1;
        guard.unlock();
    }

    void messages()
    {
        unsigned int const own = 0x0400 + dice(100);
        window_handle const window = create_window(
            [](window_handle, unsigned int, std::uintptr_t, std::intptr_t value) { return value; });
        for (std::intptr_t i = 0; i < 50; ++i) {
            post_message(window, own, 0, i);
        }
        for (std::intptr_t i = 0; i < 50; ++i) {
            tagMSG message{};
            check(get_message_a(message, window, own, own) == 1 && dispatch_message_a(message) == i,
                  "messages out of order");
        }
        check(destroy_window(window), "a window was refused");
    }

    void short_lived_thread()
    {
        class task : public zel::thread_obj {
        public:
            explicit task(bool ends)
                : thread_obj(nullptr, "task")
                , ends_(ends)
            {
            }

        protected:
            unsigned int run() override
            {
                do {
                    never_.lock(1); // where an end leaves nothing of the thread's own behind
                } while (!ends_);
                return 0;
            }

        private:
            bool ends_;
            zel::event never_;
        };
        bool const ends = dice(2) == 0;
        auto_ptr<task> const thread(new task(ends));
        thread->start();
        thread->suspend();
        thread->resume();
        check(ends || thread->terminate(7), "an end was refused");
        thread->wait();
        while (thread->ref_count() > 1) { // the reference of a thread that was terminated
            thread->dec_ref();
        }
    }

    void log()
    {
        class counter : public zel::logger {
        protected:
            void output_buffer(log_type, string const &, string const &) override { }
        };
        auto_ptr<zel::logger> const log(new counter);
        for (unsigned i = 0; i < 100; ++i) {
            log->write(zel::logger::warning, "%s, %u", own_.c_str(), i);
            log->write_grouped(zel::logger::error, own_.c_str(), "%f", i / 3.0);
        }
        check(log->get_warning_counter() == 100, "a message was not counted");
    }

    void files()
    {
        path source = place("source" + own_), target = place("target" + own_);
        std::string const content(1 + dice(100'000), 'c');
        {
            zel::file out(source, zel::file::mode_write, zel::file::kind_binary);
            out.write_string(string(content));
        }
        source.copy(target);
        check(path::compare_files(source, target), "a copy differs");
        check(target.remove() && source.remove(), "a removal was refused");
    }

    void run()
    {
        static constexpr void (worker::*work[threads])()
            = {&worker::settings, &worker::cached_settings,    &worker::names, &worker::named_mutex,
               &worker::messages, &worker::short_lived_thread, &worker::log,   &worker::files};
        while (!shared->broken) {
            unsigned const kind
                = shared->only < 0 ? dice(threads) : static_cast<unsigned>(shared->only);
            try {
                (this->*work[kind])();
            } catch (zel::exception & failure) {
                std::printf("%s, last error %u\n", failure.get_message().c_str(), last_error());
                check(false, "an exception");
            }
            shared->rounds[kind] += 1;
        }
    }

private:
    scratch_folder const & folder_;
    std::string const own_;
    std::minstd_rand random_;
    std::int32_t round_ = 0;
};

child_process started(scratch_folder const & folder, int process)
{
    return child_process([&folder, process] {
        std::vector<std::thread> all;
        for (int thread = 0; thread < threads; ++thread) {
            all.emplace_back([&folder, process, thread] { worker(folder, process, thread).run(); });
        }
        for (auto & each : all) {
            each.join();
        }
        return false;
    });
}

long entries(std::string const & folder)
{
    std::error_code ignored; // some go while they are counted
    return std::distance(std::filesystem::directory_iterator(folder, ignored), {});
}

long status_of(pid_t process, char const * field)
{
    std::string const text = get("/proc/" + std::to_string(process) + "/status");
    std::size_t const at = text.find(field);
    return at == std::string::npos
        ? 0
        : std::strtol(text.c_str() + at + std::strlen(field), nullptr, 10);
}

using figures = std::array<long, 4>;
constexpr char const * names_of_figures[] = {"kB", "descriptors", "threads", "shared entries"};

figures measured(pid_t process)
{
    return {status_of(process, "VmRSS:"), entries("/proc/" + std::to_string(process) + "/fd"),
            status_of(process, "Threads:"), entries("/dev/shm/zel-" + std::to_string(::geteuid()))};
}

} // namespace

int main(int count, char ** arguments)
{
    int const minutes = count >= 2 ? std::atoi(arguments[1]) : 0;
    int const only = count >= 3 ? std::atoi(arguments[2]) : -1;
    if (minutes < 1 || only >= threads) {
        std::fprintf(stderr, "soak_mixed MINUTES [KIND: the place of its rounds, from 0]\n");
        return 2;
    }
    void * const memory
        = ::mmap(nullptr, sizeof(state), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared = new (memory) state{};
    shared->only = only;
    scratch_folder const folder(fast_place);
    std::vector<child_process> processes;
    for (int i = 0; i < 4; ++i) {
        processes.push_back(started(folder, i));
    }
    std::minstd_rand random(1);
    std::uint64_t kills = 0;
    figures least_at_five{};
    bool grew = false;
    for (int minute = 1; minute <= minutes && !shared->broken; ++minute) {
        figures least, most{};
        least.fill(LONG_MAX);
        auto const end = std::chrono::steady_clock::now() + 1min;
        while (std::chrono::steady_clock::now() < end && !shared->broken) {
            std::this_thread::sleep_for(1s + std::chrono::milliseconds(random() % 1000));
            for (pid_t const process : {processes[0].id(), processes[1].id()}) {
                figures const now = measured(process);
                for (std::size_t i = 0; i < now.size(); ++i) {
                    least[i] = std::min(least[i], now[i]);
                    most[i] = std::max(most[i], now[i]);
                }
            }
            std::size_t const victim = 2 + random() % 2;
            processes[victim].kill();
            processes[victim] = started(folder, static_cast<int>(victim));
            ++kills;
        }
        std::printf("minute %d:", minute);
        for (std::size_t i = 0; i < most.size(); ++i) {
            bool const grows = minute > 5 && least[i] > least_at_five[i] * 102 / 100 + 1;
            std::printf(" %ld to %ld %s%s,", least[i], most[i], names_of_figures[i],
                        grows ? " (GROWN)" : "");
            grew = grew || grows;
        }
        least_at_five = minute == 5 ? least : least_at_five;
        std::printf(" %llu kills, rounds:", static_cast<unsigned long long>(kills));
        for (auto const & each : shared->rounds) {
            std::printf(" %llu", static_cast<unsigned long long>(each.load()));
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    return shared->broken || grew ? 1 : 0;
}
