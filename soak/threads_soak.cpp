// SPDX-License-Identifier: MIT
// Long runs over the ends of threads and of the library.
//     soak_threads ends [ROUNDS [HOGS [PLUG-IN [BUT]]]]
//                                                     terminations in twenty situations, beside
//                                                     HOGS processes that spin; none in situations
//                                                     whose names have BUT in them
//     soak_threads plug-ins CYCLES PLUG-IN...         load, use and unload (tests/platform/plug_in.cpp)
// One line a situation; the exit status is 0 when everything held.
#include "zel/platform/last_error.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <csignal>
#include <dlfcn.h>
#include <pwd.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

std::atomic<std::uint64_t> turns{0};
std::FILE * unbuffered = nullptr;
std::FILE * buffered = nullptr;
int pipe_ends[2];
char const * plug_in = nullptr;
alignas(std::mutex) std::byte mutex_room[sizeof(std::mutex)];
alignas(std::condition_variable) std::byte condition_room[sizeof(std::condition_variable)];
std::mutex & mutex = *reinterpret_cast<std::mutex *>(mutex_room);
auto & condition = *reinterpret_cast<std::condition_variable *>(condition_room);
constinit zel::atomic<std::uint32_t> never_changed{0};

void allocate()
{
    for (std::size_t size = 16; size < 300'000; size *= 3) {
        std::free(std::malloc(size));
    }
}

void load()
{
    void * const module = ::dlopen(plug_in == nullptr ? "libutil.so.1" : plug_in, RTLD_NOW);
    if (module != nullptr) {
        ::dlclose(module);
    }
}

void open_file() { std::fclose(std::fopen("/dev/null", "w")); }

void tell_time()
{
    std::time_t const now = std::time(nullptr);
    std::tm broken{};
    char text[100];
    std::strftime(text, sizeof text, "%c", ::localtime_r(&now, &broken));
}

void run_program()
{
    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
}

// One turn of what a thread does when it is ended.
struct situation {
    char const * name;
    void (*turn)();
    bool has_heap; // what the victim has from the heap is lost with it
};

situation const situations[] = {
    {"a loop", [] {}, false},
    {"a bare call", [] { ::sched_yield(); }, false},
    {"a pipe",
     [] {
         char byte = 0;
         if (::write(pipe_ends[1], "x", 1) != 1 || ::read(pipe_ends[0], &byte, 1) != 1) {
             std::abort();
         }
     },
     false},
    {"a sleep", [] { ::usleep(300); }, false},
    {"a long sleep", [] { ::sleep(100); }, false},
    {"a wait of the layer",
     [] {
         uninterrupted const guard;
         wait_interruptibly(never_changed, 0, monotonic_now() + 300'000, false);
         stop_if_told();
     },
     false},
    {"a condition",
     [] {
         std::unique_lock l(mutex);
         condition.wait(l);
     },
     false},
    {"a limited condition",
     [] {
         std::unique_lock l(mutex);
         condition.wait_for(l, std::chrono::microseconds(300));
     },
     false},
    {"an unbuffered stream", [] { std::fprintf(unbuffered, "%d %s\n", 5, "text"); }, false},
    {"a buffered stream", [] { std::fprintf(buffered, "%d %s\n", 5, "text"); }, false},
    {"all streams", [] { std::fputs("text", buffered), std::fflush(nullptr); }, false},
    {"sorting",
     [] {
         int numbers[] = {3, 1, 2, 5, 4, 9, 7, 8};
         std::qsort(numbers, 8, sizeof(int), [](void const * a, void const * b) {
             return *static_cast<int const *>(a) - *static_cast<int const *>(b);
         });
     },
     false},
    {"sorting that fails",
     [] {
         int numbers[] = {30, 10, 20, 50, 40, 0, 92, 81, 90};
         try {
             std::qsort(numbers, 9, sizeof(int), [](void const * a, void const * b) {
                 int const difference = *static_cast<int const *>(a) - *static_cast<int const *>(b);
                 return difference == 2 ? throw difference : difference; // 92 and 90, late
             });
         } catch (int) {
         }
     },
     true},
    {"reading numbers",
     [] {
         int x = 0;
         std::sscanf("12 13", "%d", &x);
     },
     false},
    {"the time", tell_time, false},
    {"the environment", [] { ::setenv("ZEL_SOAK", "1", 1); }, false},
    {"users", [] { ::getpwnam("root"); }, true},
    {"the heap", allocate, true},
    {"a file", open_file, true},
    {"modules", load, true},
    {"exceptions",
     [] {
         try {
             throw 1;
         } catch (int) {
         }
     },
     true},
    {"forks", run_program, true},
    {"threads", [] { std::thread([] {}).join(); }, true},
    {"a message queue",
     [] {
         window_handle const window = create_window([](auto...) { return std::intptr_t{0}; });
         tagMSG message{};
         if (!post_message(window, 1, 0, 0) || get_message_a(message, nullptr, 0, 0) != 1
             || !destroy_window(window)) {
             std::abort();
         }
     },
     true},
};

unsigned int run_for_ever(void * work)
{
    for (;;) {
        turns.fetch_add(1);
        static_cast<situation const *>(work)->turn();
    }
}

// Takes every lock that the victim may have left, on a thread that shows when it does not come back.
bool finds_no_lock()
{
    static std::atomic<bool> done;
    done = false;
    std::thread prober([] {
        std::fputs("b", unbuffered);
        std::fputs("b", buffered);
        allocate();
        std::thread heaps[3];
        for (std::thread & each : heaps) {
            each = std::thread(allocate);
        }
        for (std::thread & each : heaps) {
            each.join();
        }
        load();
        open_file();
        tell_time();
        ::getpwnam("root");
        ::setenv("ZEL_SOAK", "2", 1);
        std::fflush(nullptr);
        run_program();
        done = true;
    });
    for (int i = 0; i < 300'000 && !done; ++i) {
        ::usleep(100);
    }
    if (!done) {
        prober.detach();
        return false;
    }
    prober.join();
    return true;
}

long resident_kilobytes()
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * (::sysconf(_SC_PAGESIZE) / 1024);
}

std::ptrdiff_t entries(char const * folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

bool end_threads(situation const & work, int rounds)
{
    std::vector<double> spans;
    long memory = 0;
    std::ptrdiff_t const descriptors = entries("/proc/self/fd");
    for (int i = 0; i < rounds; ++i) {
        new (mutex_room) std::mutex;
        new (condition_room) std::condition_variable;
        std::uint64_t const before = turns;
        void * const handle = begin_thread(run_for_ever, const_cast<situation *>(&work), nullptr);
        while (i % 8 != 0 && turns == before) { // else it may be in the middle of its start
            ::sched_yield();
        }
        ::usleep(static_cast<unsigned>(std::rand() % 300));
        bool const is_suspended = i % 5 == 0;
        auto const begin = std::chrono::steady_clock::now();
        if ((is_suspended && suspend_thread(handle) != 0) || !terminate_thread(handle, 7)) {
            std::printf("%s: refused with %u\n", work.name, last_error());
            return false;
        }
        spans.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
                .count());
        std::uint32_t code = 0;
        if (!get_exit_code_thread(handle, code) || code != 7 || !close_thread(handle)) {
            std::printf("%s: exit code %u\n", work.name, code);
            return false;
        }
        if (!finds_no_lock()) {
            std::printf("%s: a lock is left after %d ends\n", work.name, i + 1);
            std::fflush(stdout);
            ::_exit(1);
        }
        memory = i == rounds / 2 ? resident_kilobytes() : memory;
    }
    std::sort(spans.begin(), spans.end());
    double const a_victim = double(resident_kilobytes() - memory) / (rounds - rounds / 2);
    std::ptrdiff_t const left = entries("/proc/self/fd") - descriptors;
    std::ptrdiff_t const tasks = entries("/proc/self/task");
    std::printf("%-22s %6d ends  median %7.3f ms  worst %8.3f ms  %6.2f KiB a victim  %td fds\n",
                work.name, rounds, spans[spans.size() / 2], spans.back(), a_victim, left);
    std::fflush(stdout);
    // An open file is the victim's own. In a short run a page more would be too much.
    bool const is_flat = work.has_heap || ((rounds < 200 || a_victim < 0.5) && left == 0);
    if (!is_flat || tasks != 1) {
        std::printf("%s: not flat, %td threads\n", work.name, tasks);
    }
    return is_flat && tasks == 1;
}

bool end_all(int rounds, int hogs, char const * left_out)
{
    std::vector<pid_t> spinning;
    for (int i = 0; i < hogs; ++i) {
        spinning.push_back(::fork());
        if (spinning.back() == 0) {
            for (;;) {
                std::atomic_signal_fence(std::memory_order_seq_cst);
            }
        }
    }
    unbuffered = std::fopen("/dev/null", "w");
    buffered = std::fopen("/dev/null", "w");
    std::setvbuf(unbuffered, nullptr, _IONBF, 0);
    bool good = ::pipe(pipe_ends) == 0;
    int tried = 0;
    for (situation const & each : situations) {
        if (left_out == nullptr || std::strstr(each.name, left_out) == nullptr) {
            good = end_threads(each, rounds / int(std::size(situations)) + 1) && good;
            ++tried;
        }
    }
    good = good && tried > 0; // an empty word leaves everything out
    for (pid_t const each : spinning) {
        ::kill(each, SIGKILL);
        ::waitpid(each, nullptr, 0);
    }
    return good;
}

bool use_plug_in(char const * name, int cycles)
{
    long memory = 0;
    std::ptrdiff_t descriptors = 0;
    for (int i = 0; i < cycles; ++i) {
        void * const module = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
        if (module == nullptr) {
            std::printf("%s\n", ::dlerror());
            return false;
        }
        auto const use = reinterpret_cast<bool (*)()>(::dlsym(module, "use_library"));
        std::atomic<int> state{0};
        std::thread user([&] { // ends after the module has gone
            state = use() ? 1 : 2;
            state.notify_one();
            state.wait(1);
        });
        state.wait(0);
        bool const good = state == 1;
        ::dlclose(module);
        state = 3;
        state.notify_one();
        user.join();
        if (!good) {
            std::printf("%s: fails in cycle %d\n", name, i + 1);
            return false;
        }
        if (i == std::min(cycles / 10, 500)) {
            memory = resident_kilobytes();
            descriptors = entries("/proc/self/fd");
        }
    }
    long const more = resident_kilobytes() - memory;
    std::ptrdiff_t const left = entries("/proc/self/fd") - descriptors;
    std::printf("%s: %d cycles, %ld KiB and %td fds more\n", name, cycles, more, left);
    return more < 1'000 && left == 0;
}

} // namespace

int main(int argc, char ** argv)
{
    std::string_view const mode = argc > 1 ? argv[1] : "ends";
    int const count = argc > 2 ? std::atoi(argv[2]) : 10'000;
    if (mode == "plug-ins") {
        bool good = argc > 3;
        for (int i = 3; i < argc; ++i) {
            good = use_plug_in(argv[i], count) && good;
        }
        return good ? 0 : 1;
    }
    plug_in = argc > 4 ? argv[4] : nullptr;
    return end_all(count, argc > 3 ? std::atoi(argv[3]) : 0, argc > 5 ? argv[5] : nullptr) ? 0 : 1;
}
