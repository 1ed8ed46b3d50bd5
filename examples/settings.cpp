// SPDX-License-Identifier: MIT
// The settings of an application, in a file under the user's configuration folder:
//     settings            shows the file, starts the application once, and shows the file again
//     settings --read     shows what the application finds there, and changes nothing
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <list>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <utility>
#include <zel/zel.h>

extern char ** environ;

namespace {

using store = zel::auto_ptr<zel::iprofile>;

zel::path settings_file()
{
    zel::path file(zel::path::app_data);
    if (file.empty() || !file.append("zel-example") || !file.create()
        || !file.append("settings.ini")) {
        throw std::runtime_error("there is no folder for settings");
    }
    return file;
}

/// A component knows only its own section; its owner knows that this is `editor\window` in the
/// file.
class window {
public:
    explicit window(store settings)
        : settings_(std::move(settings))
    {
        // A block of another size was written by another version.
        if (settings_->get_binary_size("window", "frame") == sizeof(t_rect)) {
            settings_->read_binary("window", "frame", &frame_, sizeof(t_rect));
        }
    }

    void move(std::int32_t x, std::int32_t y)
    {
        frame_ = {frame_.left + x, frame_.top + y, frame_.right + x, frame_.bottom + y};
        settings_->write_binary("window", "frame", &frame_, sizeof(t_rect));
    }
    void print() const
    {
        std::printf("  window  %s, at %d,%d, %d wide\n",
                    settings_->read_string("window", "title", "untitled").c_str(), frame_.left,
                    frame_.top, frame_.right - frame_.left);
    }

private:
    store settings_;
    t_rect frame_{100, 100, 740, 580};
};

/// The files that were used last: `order` tells which of the numbered entries count.
class recent_files {
public:
    explicit recent_files(store settings)
        : settings_(std::move(settings))
    {
        settings_->read_multiple("files", "order", ',', "file", files_);
    }

    void add(zel::string const & name)
    {
        std::int32_t const number = files_.empty() ? 1 : files_.front().first % 3 + 1;
        files_.remove_if([&](auto const & file) { return file.first == number; });
        files_.emplace_front(number, name);
        settings_->write_by_index_string("files", "file", number, name);
        zel::string order;
        for (auto const & file : files_) {
            order += order.empty() ? "" : ",";
            order += std::to_string(file.first);
        }
        settings_->write_string("files", "order", order);
    }
    void print() const
    {
        for (auto const & [number, name] : files_) {
            std::printf("  file %d  %s\n", number, name.c_str());
        }
    }

private:
    store settings_;
    std::list<std::pair<std::int32_t, zel::string>> files_;
};

void print_file(char const * title, zel::path const & file)
{
    std::ifstream in(zel::to_native(file));
    std::string const text(std::istreambuf_iterator<char>(in), {});
    std::printf("%s:\n%s", title, text.empty() ? "  (no settings)\n" : "");
    for (zel::string const & line : zel::string(text).split("\n", true)) {
        std::printf("  | %s\n", line.c_str());
    }
}

/// Runs the same program again, as another process.
void read_elsewhere()
{
    std::fflush(stdout);
    char program[] = "settings";
    char option[] = "--read";
    char * const arguments[] = {program, option, nullptr};
    pid_t child = 0;
    int status = 0;
    if (int const error
        = ::posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, arguments, environ)) {
        throw std::runtime_error(std::strerror(error));
    }
    if (::waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error("the second process failed");
    }
}

void run(bool only_read)
{
    zel::path const file = settings_file();
    if (!only_read) {
        print_file("before", file);
    }
    // One cache for the whole application, and a part of it for each component.
    zel::auto_ptr<zel::ini_file> const on_disk(new zel::ini_file(file.c_str()));
    zel::auto_ptr<zel::cached_profile> const settings(new zel::cached_profile(on_disk));
    window main_window(store(new zel::sub_profile(settings, "editor")));
    recent_files files(store(new zel::sub_profile(settings, "recent")));
    std::int32_t const starts = settings->read_int("application", "starts", 0);
    if (only_read) {
        std::printf("a second process finds:\n  started %d times\n", starts);
        main_window.print();
        files.print();
        return;
    }
    settings->write_int("application", "starts", starts + 1);
    main_window.move(20, 10);
    zel::string name;
    name.format("C:\\texts\\letter %d.txt", starts + 1);
    files.add(name);
    settings->commit();
    // A store does not report failures: a program that has to know reads the value again.
    if (on_disk->read_int("application", "starts", 0) != starts + 1) {
        throw std::runtime_error(zel::to_native(file) + " cannot be written");
    }
    print_file("after", file);
    read_elsewhere();
}

} // namespace

int main(int argc, char ** argv)
{
    if (argc == 2 && std::string_view(argv[1]) == "--help") {
        std::puts("usage: settings [--read]");
        return 0;
    }
    bool const only_read = argc == 2 && std::string_view(argv[1]) == "--read";
    if (argc > 1 && !only_read) {
        std::fprintf(stderr, "settings: unknown argument %s; usage: settings [--read]\n",
                     argv[std::string_view(argv[1]) == "--read" ? 2 : 1]);
        return 2;
    }
    try {
        run(only_read);
    } catch (zel::exception & error) {
        std::fprintf(stderr, "settings: %s\n", error.get_message().c_str());
        return 1;
    } catch (std::exception const & error) {
        std::fprintf(stderr, "settings: %s\n", error.what());
        return 1;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "settings: standard output: %s\n", std::strerror(errno));
        return 1;
    }
}
