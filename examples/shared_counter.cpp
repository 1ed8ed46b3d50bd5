// SPDX-License-Identifier: MIT
// Several processes count in one file, under a mutex that they share by its name:
//     shared_counter                        four processes, 1,000 steps each
//     shared_counter --processes 8 --steps 100
// An event starts them all at once. One more process is killed while it holds the mutex, in the
// middle of a step; the next owner of the mutex learns this and undoes the half step. The exit
// status is 0 when the count is right in the end.
#include "loggers/terminal_logger.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zel/zel.h>

extern char ** environ;

namespace {

namespace platform = zel::platform;

constexpr char const * usage = "usage: shared_counter [--processes N] [--steps N]";

[[noreturn]] void fail(zel::string const & message)
{
    std::fprintf(stderr, "shared_counter: %s\n", message.c_str());
    std::exit(2);
}

std::uint32_t number(char const * option, char const * text, std::uint32_t highest)
{
    try {
        std::uint32_t const value = zel::convert::stringToUInt32(text);
        if (value >= 1 && value <= highest) {
            return value;
        }
    } catch (zel::exception &) {
        // reported below
    }
    zel::string message;
    fail(message.format("%s takes a number from 1 to %u, not '%s'", option, highest, text));
}

class temporary_file {
public:
    temporary_file()
    {
        int const file = ::mkstemp(name_);
        if (file < 0) {
            fail(zel::string(name_) + ": " + std::strerror(errno));
        }
        ::close(file);
    }
    ~temporary_file() { ::unlink(name_); }
    temporary_file(temporary_file const &) = delete;
    temporary_file & operator=(temporary_file const &) = delete;

    char const * name() const { return name_; }

private:
    char name_[32] = "/tmp/shared_counter_XXXXXX";
};

// The file contains the count before and after a step. They differ only while a step is in
// progress.
class counter_file {
public:
    explicit counter_file(char const * name)
        : file_(::open(name, O_RDWR | O_CLOEXEC))
    {
        if (file_ < 0) {
            fail(zel::string(name) + ": " + std::strerror(errno));
        }
    }
    ~counter_file() { ::close(file_); }
    counter_file(counter_file const &) = delete;
    counter_file & operator=(counter_file const &) = delete;

    struct counts {
        std::uint64_t done;
        std::uint64_t wanted;
    };

    counts read() const
    {
        counts both{};
        if (::pread(file_, &both, sizeof both, 0) < 0) {
            fail(zel::string("read: ") + std::strerror(errno));
        }
        return both;
    }
    void write(counts both) const
    {
        if (::pwrite(file_, &both, sizeof both, 0) != sizeof both) {
            fail(zel::string("write: ") + std::strerror(errno));
        }
    }

private:
    int file_;
};

constexpr std::uint32_t timeout = 20'000; // milliseconds, in case a process is lost

// Waits for the mutex with the layer, which reports whether the last owner died.
void lock_and_repair(zel::mutex const & mutex, counter_file const & file)
{
    switch (platform::wait_for_single_object(mutex.get_handle(), timeout)) {
    case platform::wait_object_0:
        break;
    case platform::wait_abandoned: {
        counter_file::counts const left = file.read();
        terminal_logger().write(
            zel::logger::warning, "process %d: the owner died in the step to %llu, taken back",
            static_cast<int>(::getpid()), static_cast<unsigned long long>(left.wanted));
        file.write({left.done, left.done});
        break;
    }
    default:
        fail("the mutex does not come free");
    }
}

// If `half_done` is given, stops in the middle of the step and waits to be killed.
void step(zel::mutex & mutex, counter_file const & file, zel::semaphore * half_done)
{
    lock_and_repair(mutex, file);
    std::uint64_t const next = file.read().done + 1;
    file.write({next - 1, next});
    if (half_done != nullptr) {
        half_done->unlock();
        ::pause();
    }
    file.write({next, next});
    mutex.unlock();
}

// What each of the processes does.
void count(zel::string const & name, char const * file_name, std::uint32_t steps, bool is_victim)
{
    zel::mutex mutex(platform::synchronize, false, name + " mutex");
    zel::event start(platform::synchronize, false, (name + " start").c_str());
    zel::semaphore ready(platform::semaphore_modify_state, false, name + " ready");
    counter_file const file(file_name);

    if (!is_victim) {
        ready.unlock();
        if (!start.lock(timeout)) {
            fail("nobody starts the count");
        }
    }
    for (std::uint32_t i = 0; i < steps; ++i) {
        step(mutex, file, nullptr);
    }
    if (is_victim) {
        step(mutex, file, &ready);
    }
}

::pid_t start_process(std::vector<std::string> words)
{
    std::vector<char *> arguments;
    for (std::string & word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::pid_t process = -1;
    if (int const error = ::posix_spawn(&process, "/proc/self/exe", nullptr, nullptr,
                                        arguments.data(), ::environ)) {
        fail(zel::string("cannot start a process: ") + std::strerror(error));
    }
    return process;
}

int status_of(::pid_t process)
{
    int status = -1;
    ::waitpid(process, &status, 0);
    return status;
}

bool run(std::uint32_t processes, std::uint32_t steps)
{
    temporary_file const place;
    counter_file const file(place.name());
    zel::string name;
    name.format("shared counter %d", static_cast<int>(::getpid()));
    zel::mutex const mutex(false, name + " mutex");
    zel::event start(false, true, (name + " start").c_str()); // manual-reset: lets all through
    zel::semaphore ready(0, static_cast<std::int32_t>(processes), name + " ready");
    auto const process = [&](char const * role) {
        return start_process({"shared_counter", role, name, place.name(), std::to_string(steps)});
    };
    auto const wait_until_ready = [&] {
        if (!ready.lock(timeout)) {
            fail("a process does not come up");
        }
    };

    ::pid_t const victim = process("--victim");
    wait_until_ready(); // it holds the mutex
    std::vector<::pid_t> others;
    for (std::uint32_t i = 0; i < processes; ++i) {
        others.push_back(process("--count"));
    }
    for (std::uint32_t i = 0; i < processes; ++i) {
        wait_until_ready();
    }
    start.set();
    ::kill(victim, SIGKILL);

    bool right = WIFSIGNALED(status_of(victim));
    for (::pid_t const other : others) {
        right = status_of(other) == 0 && right;
    }
    std::uint64_t const expected = (processes + std::uint64_t{1}) * steps;
    std::uint64_t const counted = file.read().done;
    std::printf("%u processes, %u steps each and %u of the one that was killed: %llu, %s\n",
                processes, steps, steps, static_cast<unsigned long long>(counted),
                counted == expected ? "right" : "WRONG");
    return right && counted == expected;
}

void flush_output()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        fail(zel::string("standard output: ") + std::strerror(errno));
    }
}

} // namespace

int main(int argc, char ** argv)
{
    try {
        std::string_view const first = argc > 1 ? argv[1] : "";
        if (argc == 5 && (first == "--count" || first == "--victim")) {
            count(argv[2], argv[3], number("steps", argv[4], 1'000'000), first == "--victim");
            return 0;
        }
        std::uint32_t processes = 4;
        std::uint32_t steps = 1000;
        for (int i = 1; i < argc; ++i) {
            std::string_view const word = argv[i];
            if (word == "--help") {
                std::puts(usage);
                return 0;
            }
            if (i + 1 < argc && word == "--processes") {
                processes = number("--processes", argv[++i], 1000);
            } else if (i + 1 < argc && word == "--steps") {
                steps = number("--steps", argv[++i], 1'000'000);
            } else {
                fail(zel::string(argv[i]) + ": not understood; " + usage);
            }
        }
        bool const right = run(processes, steps);
        flush_output();
        return right ? 0 : 1;
    } catch (zel::exception & error) {
        fail(error.get_message() + ": " + zel::get_last_error());
    }
}
