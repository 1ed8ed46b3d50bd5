// SPDX-License-Identifier: MIT
// Threads that report to the terminal and to a file, while the waiting thread serves its queue:
//     worker --log worker.log               counts the primes among four million numbers
//     worker --log worker.log --numbers 50  among fifty million
// One thread counts, one fails, one is suspended for a while and one is terminated. The exit status
// is 0 when all of that worked.
#include "loggers/file_logger.h"
#include "loggers/summing_logger.h"
#include "loggers/terminal_logger.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unistd.h>
#include <vector>
#include <zel/zel.h>

namespace {

namespace platform = zel::platform;

constexpr char const * usage = "usage: worker --log FILE [--numbers MILLIONS]";

struct options {
    char const * log_file = nullptr;
    std::uint32_t millions = 4;
};

[[noreturn]] void fail(zel::string const & message)
{
    std::fprintf(stderr, "worker: %s\n", message.c_str());
    std::exit(2);
}

options parse(int argc, char ** argv)
{
    options result;
    for (int i = 1; i < argc; ++i) {
        std::string_view const word = argv[i];
        if (word == "--help") {
            std::puts(usage);
            std::exit(0);
        } else if (i + 1 < argc && word == "--log") {
            result.log_file = argv[++i];
        } else if (i + 1 < argc && word == "--numbers") {
            try {
                result.millions = zel::convert::stringToUInt32(argv[++i]);
            } catch (zel::exception & error) {
                fail(zel::string("--numbers ") + argv[i] + ": " + error.get_message());
            }
            if (result.millions < 1 || result.millions > 1000) {
                fail("--numbers takes 1 to 1000");
            }
        } else {
            fail(zel::string(argv[i]) + ": not understood; " + usage);
        }
    }
    if (result.log_file == nullptr) {
        fail(usage);
    }
    return result;
}

// Passes every message to two other loggers.
class both : public zel::logger {
public:
    both(zel::auto_ptr<zel::logger> first, zel::auto_ptr<zel::logger> second)
        : first_(std::move(first))
        , second_(std::move(second))
    {
    }

protected:
    void output_buffer(log_type type, zel::string const & text, zel::string const & url) override
    {
        first_->write_url(type, url.c_str(), "%s", text.c_str());
        second_->write_url(type, url.c_str(), "%s", text.c_str());
    }

private:
    zel::auto_ptr<zel::logger> first_;
    zel::auto_ptr<zel::logger> second_;
};

// Counts for ever, and does nothing else, so it may be stopped anywhere.
class counter : public zel::thread_obj {
public:
    explicit counter(zel::auto_ptr<zel::logger> log)
        : thread_obj(log, "counter")
    {
    }
    std::uint32_t count() const { return count_; }
    void end() { over_ = true; }

protected:
    unsigned int run() override
    {
        while (!over_) {
            ++count_;
        }
        return 0;
    }

private:
    std::atomic<std::uint32_t> count_{0};
    std::atomic<bool> over_{false};
};

// Waits for ever.
class stuck : public zel::thread_obj {
public:
    explicit stuck(zel::auto_ptr<zel::logger> log)
        : thread_obj(log, "stuck")
    {
    }

protected:
    unsigned int run() override
    {
        zel::event never;
        never.lock(0xFFFFFFFF);
        return 0;
    }
};

class failing : public zel::thread_obj {
public:
    explicit failing(zel::auto_ptr<zel::logger> log)
        : thread_obj(log, "failing")
    {
    }

protected:
    unsigned int run() override { return zel::convert::stringToUInt32("12 monkeys"); }
};

// Counts the primes below a limit, and reports its progress to a window.
class primes : public zel::thread_obj_ex {
public:
    static constexpr unsigned int progress = 0x0400; // a message: percent as wParam

    primes(zel::auto_ptr<zel::logger> log, std::uint32_t limit, window_handle window)
        : thread_obj_ex(log, "primes")
        , log_(log)
        , limit_(limit)
        , window_(window)
    {
    }
    std::uint32_t found() const { return found_; }

protected:
    unsigned int run() override
    {
        summing_logger report(log_, 3); // its destructor reports how many twins were not shown
        for (std::uint32_t percent = 1; percent <= 100; ++percent) {
            count(part(percent - 1), part(percent), report);
            platform::post_message(window_, progress, percent, 0);
        }
        report.write(zel::logger::info, "%u primes below %u", found_, limit_);
        return 0;
    }

private:
    std::uint32_t part(std::uint64_t percent) const
    {
        return static_cast<std::uint32_t>(limit_ * percent / 100);
    }

    // Crosses out the multiples of all primes up to the square root.
    void count(std::uint32_t from, std::uint32_t to, zel::logger & report)
    {
        std::vector<bool> crossed(to - from);
        for (std::uint32_t n = 2; std::uint64_t{n} * n < to; ++n) {
            std::uint32_t const first = std::max((from + n - 1) / n, n) * n;
            for (std::uint64_t multiple = first; multiple < to; multiple += n) {
                crossed[multiple - from] = true;
            }
        }
        for (std::uint32_t n = std::max(from, 2U); n < to; ++n) {
            if (crossed[n - from]) {
                continue;
            }
            ++found_;
            if (last_ != 0 && n - last_ == 2) {
                report.write_grouped(zel::logger::info, "twin primes", "twins: %u and %u", last_,
                                     n);
            }
            last_ = n;
        }
    }

    zel::auto_ptr<zel::logger> log_;
    std::uint32_t limit_;
    window_handle window_;
    std::uint32_t found_ = 0;
    std::uint32_t last_ = 0; // the prime found last
};

// What the window's procedure needs.
struct stage {
    zel::auto_ptr<counter> counting;
    zel::auto_ptr<stuck> waiting;
    bool is_terminal = ::isatty(STDOUT_FILENO) != 0;
    std::uint32_t stopped_at = 0;
    bool stood_still = false;
    bool terminated = false;
};
stage * shown = nullptr;

std::intptr_t on_message(window_handle, unsigned int message, std::uintptr_t percent, std::intptr_t)
{
    if (message != primes::progress) {
        return 0;
    }
    if (shown->is_terminal) {
        char bar[51] = {};
        std::fill_n(bar, 50, '.');
        std::fill_n(bar, percent / 2, '#');
        std::printf("\r[%s] %3u %%", bar, static_cast<unsigned int>(percent));
        if (percent == 100) {
            std::putchar('\n');
        }
        std::fflush(stdout);
    }
    if (percent == 25) {
        shown->counting->suspend(); // returns when the thread has stopped
        shown->stopped_at = shown->counting->count();
    } else if (percent == 50) {
        shown->stood_still = shown->counting->count() == shown->stopped_at;
        shown->counting->resume();
    } else if (percent == 75) {
        shown->terminated = shown->waiting->terminate(1);
    }
    return 0;
}

bool run(options const & wanted)
{
    zel::auto_ptr<zel::logger> const log(
        new both(new terminal_logger, new file_logger(wanted.log_file)));
    stage here;
    shown = &here;
    here.counting = new counter(log);
    here.waiting = new stuck(log);
    zel::auto_ptr<failing> const broken(new failing(log));
    window_handle const window = platform::create_window(on_message);
    primes work(log, wanted.millions * 1'000'000, window);

    here.counting->start();
    here.waiting->start();
    broken->start();
    work.start();
    work.wait_msg_loop(); // on_message is called in here
    tagMSG message;
    while (platform::peek_message(message, window, 0, 0, platform::peek_remove)) {
        platform::dispatch_message_a(message); // those that waited when the thread ended
    }
    broken->wait();
    here.waiting->wait();
    if (here.terminated) {
        here.waiting->dec_ref(); // the reference of the terminated thread
    }
    here.counting->end();
    here.counting->wait();
    platform::destroy_window(window);

    log->write(zel::logger::note, "suspended: %s, resumed: %s, terminated: %s, failed: %u",
               here.stood_still ? "stood still" : "went on",
               here.counting->count() > here.stopped_at ? "went on" : "stood still",
               here.terminated ? "yes" : "no", log->get_error_counter());
    return here.stood_still && here.counting->count() > here.stopped_at && here.terminated
        && log->get_error_counter() == 1 && work.found() != 0;
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
    options const wanted = parse(argc, argv);
    try {
        bool const right = run(wanted);
        flush_output();
        return right ? 0 : 1;
    } catch (zel::exception & error) {
        fail(error.get_message());
    }
}
