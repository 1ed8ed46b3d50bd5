// SPDX-License-Identifier: MIT
#include "application.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace notebook {

namespace platform = zel::platform;

namespace {

application * shown = nullptr; // a window's procedure gets no pointer, and there is one window

} // namespace

application::application(settings & kept, instance & self, zel::path const & folder,
                         zel::auto_ptr<zel::logger> log)
    : settings_(kept)
    , instance_(self)
    , folder_(folder)
    , log_(log)
    , window_(platform::create_window(procedure))
    , listener_(new call_listener(log, self.called(), window_))
    , is_terminal_(::isatty(STDIN_FILENO) != 0 && ::isatty(STDOUT_FILENO) != 0)
{
    shown = this;
    listener_->start();
    place_window();
}

application::~application()
{
    listener_->end();
    platform::destroy_window(window_);
    shown = nullptr;
}

zel::path application::place_of(zel::string const & name, zel::path const & folder)
{
    zel::path const given = name.find('\\') == name.npos ? zel::from_native(name) : zel::path(name);
    zel::path place(folder.c_str(), given.c_str());
    if (*place.find_extension() == '\0' && !place.add_extension(".txt")) {
        throw zel::exception(name + ": the name is too long");
    }
    return place;
}

void application::open(zel::path const & place)
{
    page_ = new page(place);
    log_->write(zel::logger::info, "opened %s", place.c_str());
    std::printf("%s: %zu bytes%s\n", name_of(place).c_str(), page_->text().size(),
                page_->is_changed() ? ", with lines that were never saved" : "");
    std::int32_t sum = 0;
    if (settings_.recent().find_sum(place, sum) && sum != page_->saved_sum()) {
        std::puts("another program has changed it since");
    }
    settings_.recent().add(place, page_->saved_sum());
    settings_.save();
}

bool application::run()
{
    ::pollfd watched[]
        = {{STDIN_FILENO, POLLIN, 0}, {platform::message_queue_descriptor(), POLLIN, 0}};
    prompt();
    for (;;) {
        std::fflush(stdout);
        if (::poll(watched, 2, -1) < 0 && errno != EINTR) {
            throw zel::exception(zel::string("poll: ") + std::strerror(errno));
        }
        if (watched[1].revents != 0 && !serve_queue()) {
            break;
        }
        if (watched[0].revents != 0) {
            char block[4096];
            ::ssize_t const count = ::read(STDIN_FILENO, block, sizeof block);
            if (count > 0) {
                serve_input(block, static_cast<std::size_t>(count));
            } else {
                on_quit("");
                watched[0].fd = -1; // poll ignores it from now on
            }
        }
    }
    if (page_ && page_->is_changed()) {
        std::puts("lines that were not saved wait in the draft");
    }
    settings_.save();
    return all_well_;
}

// Dispatches the waiting messages.
// \returns false after the quit message.
bool application::serve_queue()
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

std::intptr_t application::procedure(window_handle, unsigned int message, std::uintptr_t wparam,
                                     std::intptr_t)
{
    switch (message) {
    case message_progress:
        shown->bar_.show(static_cast<std::uint32_t>(wparam));
        break;
    case message_call:
        shown->come_to_front();
        break;
    default:
        break;
    }
    return 0;
}

void application::serve_input(char const * bytes, std::size_t count)
{
    pending_.append(bytes, count);
    std::size_t start = 0;
    for (std::size_t end; (end = pending_.find('\n', start)) != pending_.npos; start = end + 1) {
        execute(pending_.substr(start, end - start));
        prompt();
    }
    pending_.erase(0, start);
}

void application::report(zel::string const & failure)
{
    all_well_ = false;
    log_->write(zel::logger::error, "%s", failure.c_str());
    std::fflush(stdout);
    std::fprintf(stderr, "notebook: %s\n", failure.c_str());
}

void application::prompt() const
{
    if (is_terminal_) {
        std::fputs("> ", stdout);
    }
}

void application::come_to_front()
{
    instance_.answer();
    bar_.end();
    // Most terminals can raise their window on request; all have a bell.
    std::printf("%sanother start has called\n", is_terminal_ ? "\033[5t\a\r" : "");
    try {
        zel::path const wanted = settings_.take_request();
        if (!wanted.empty()) {
            open(wanted);
        }
    } catch (zel::exception & error) {
        report(error.get_message());
    }
    prompt();
    std::fflush(stdout);
}

void application::place_window() const
{
    zel::rect const & frame = settings_.window().get();
    if (is_terminal_ && !frame.is_empty()) {
        std::printf("\033[3;%d;%dt\033[8;%d;%dt", frame.left, frame.top, frame.get_height(),
                    frame.get_width());
    }
}

page & application::current()
{
    if (!page_) {
        throw zel::exception("no page is open");
    }
    return *page_;
}

} // namespace notebook
