// SPDX-License-Identifier: MIT
// One loop over poll for standard input and for a message queue:
//     ls /usr/include | event_loop 8
// Input lines are passed to a thread that shortens them; its results come back as messages, and are
// printed in between. The same descriptor works with epoll and with the loops of toolkits.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <poll.h>
#include <unistd.h>
#include <zel/zel.h>

namespace {

namespace platform = zel::platform;

constexpr unsigned int line_read = 0x0400; // to the thread, which owns the text in lParam
constexpr unsigned int line_done = 0x0401; // to the window, which owns the text in lParam
constexpr unsigned int no_more = 0x0402; // in both directions: the last message

[[noreturn]] void fail(zel::string const & message)
{
    std::fprintf(stderr, "event_loop: %s\n", message.c_str());
    std::exit(2);
}

std::intptr_t as_parameter(std::unique_ptr<zel::string> text)
{
    return reinterpret_cast<std::intptr_t>(text.release());
}

std::unique_ptr<zel::string> as_text(std::intptr_t parameter)
{
    return std::unique_ptr<zel::string>(reinterpret_cast<zel::string *>(parameter));
}

// A queue holds ten thousand messages; when it is full, the sender has to wait.
template <typename Post> void post_until_accepted(Post post)
{
    while (!post()) {
        if (platform::last_error() != 1816) {
            fail("cannot post: " + zel::get_last_error());
        }
        ::usleep(1000);
    }
}

class shortener : public zel::thread_obj {
public:
    shortener(std::uint32_t length, window_handle answers)
        : thread_obj(nullptr, "shortener")
        , length_(length)
        , answers_(answers)
    {
    }
    // Before that the thread has no queue.
    void wait_until_ready() { ready_.lock(platform::infinite); }

protected:
    unsigned int run() override
    {
        zel::name_generator const generator;
        tagMSG message;
        platform::peek_message(message, nullptr, 0, 0, 0); // makes the queue
        ready_.set();
        while (platform::get_message_a(message, nullptr, 0, 0) > 0
               && message.message == line_read) {
            auto text = as_text(message.lParam);
            *text = generator.abbreviate(*text, length_);
            answer(line_done, as_parameter(std::move(text)));
        }
        answer(no_more, 0);
        return 0;
    }

private:
    void answer(unsigned int message, std::intptr_t parameter)
    {
        post_until_accepted(
            [&] { return platform::post_message(answers_, message, 0, parameter); });
    }

    std::uint32_t length_;
    window_handle answers_;
    zel::event ready_;
};

std::intptr_t on_answer(window_handle, unsigned int message, std::uintptr_t,
                        std::intptr_t parameter)
{
    if (message == line_done) {
        std::puts(as_text(parameter)->c_str());
    } else if (message == no_more) {
        platform::post_quit_message(0);
    }
    return 0;
}

// Dispatches the waiting messages.
// \returns false after the quit message.
bool serve_queue()
{
    tagMSG message;
    while (platform::peek_message(message, nullptr, 0, 0, platform::peek_remove)) {
        if (message.message == platform::message_quit) {
            return false;
        }
        platform::dispatch_message_a(message);
    }
    return true;
}

void run(std::uint32_t length)
{
    window_handle const window = platform::create_window(on_answer);
    zel::auto_ptr<shortener> const worker(new shortener(length, window));
    worker->start();
    worker->wait_until_ready();
    auto const send = [&](unsigned int message, std::intptr_t parameter) {
        post_until_accepted([&] {
            serve_queue(); // otherwise both threads would wait for each other
            return platform::post_thread_message(worker->get_id(), message, 0, parameter);
        });
    };

    std::string pending; // the beginning of a line
    ::pollfd watched[]
        = {{STDIN_FILENO, POLLIN, 0}, {platform::message_queue_descriptor(), POLLIN, 0}};
    while (::poll(watched, 2, -1) >= 0) {
        if (watched[1].revents != 0 && !serve_queue()) {
            break;
        }
        if (watched[0].revents == 0) {
            continue;
        }
        char block[4096];
        ::ssize_t const count = ::read(STDIN_FILENO, block, sizeof block);
        if (count <= 0) {
            watched[0].fd = -1; // poll ignores it from now on
            if (!pending.empty()) {
                send(line_read, as_parameter(std::make_unique<zel::string>(pending)));
            }
            send(no_more, 0);
            continue;
        }
        pending.append(block, static_cast<std::size_t>(count));
        std::size_t start = 0;
        for (std::size_t end; (end = pending.find('\n', start)) != pending.npos; start = end + 1) {
            send(line_read,
                 as_parameter(std::make_unique<zel::string>(pending.substr(start, end - start))));
        }
        pending.erase(0, start);
    }
    worker->wait();
    platform::destroy_window(window);
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
        if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
            std::puts("usage: event_loop LENGTH < LINES");
            return 0;
        }
        if (argc != 2) {
            fail("usage: event_loop LENGTH < LINES");
        }
        run(zel::convert::stringToUInt32(argv[1]));
        flush_output();
        return 0;
    } catch (zel::exception & error) {
        fail(error.get_message());
    }
}
