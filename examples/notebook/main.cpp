// SPDX-License-Identifier: MIT
// A notebook: pages of text in a folder, and commands on standard input, which `help` lists:
//     notebook                          pages are in the folder Notebook of the user's documents
//     notebook --folder FOLDER [PAGE]   in another one; the page is opened
//     notebook --wait ...               waits for the end of another notebook
// One notebook runs at a time. A second start calls it, has it open the page, and ends. What was
// added and not saved is there again at the next start, also after `kill -9`.
#include "../loggers/file_logger.h"
#include "application.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>

namespace {

constexpr char const * usage = "usage: notebook [--wait] [--folder FOLDER] [PAGE]";

struct options {
    bool wait = false;
    zel::path folder;
    zel::string page;
};

zel::path absolute(zel::path const & place)
{
    return zel::path(zel::path(zel::path::current_folder).c_str(), place.c_str());
}

// \returns false for invalid arguments.
bool parse(int argc, char ** argv, options & result)
{
    for (int i = 1; i < argc; ++i) {
        std::string_view const word = argv[i];
        if (word == "--wait") {
            result.wait = true;
        } else if (word == "--folder" && i + 1 < argc) {
            result.folder = absolute(zel::from_native(argv[++i]));
        } else if (word.starts_with('-') || !result.page.empty()) {
            return false;
        } else {
            result.page = word;
        }
    }
    if (result.folder.empty()) {
        result.folder = zel::path(zel::path(zel::path::personal).c_str(), "Notebook");
    }
    return true;
}

bool run(options & wanted)
{
    notebook::settings kept;
    zel::path const page = wanted.page.empty()
        ? zel::path()
        : notebook::application::place_of(wanted.page, wanted.folder);

    // Two notebooks would conflict over the settings, so the name contains their folder.
    notebook::instance self(zel::string("notebook ") + kept.folder().c_str());
    notebook::instance::outcome outcome = self.enter(0);
    if (wanted.wait && outcome == notebook::instance::another_runs) {
        std::puts("waiting for the end of another notebook");
        std::fflush(stdout);
        outcome = self.enter(zel::platform::infinite);
    }
    for (int tries = 0; outcome == notebook::instance::another_runs; ++tries) {
        if (tries == 3) {
            throw zel::exception("another notebook runs, and does not answer");
        }
        kept.ask_for(page);
        if (self.call()) {
            std::puts("another notebook runs, and was called");
            return true;
        }
        outcome = self.enter(0); // it may have ended meanwhile
    }

    zel::auto_ptr<zel::logger> const log(
        new file_logger(zel::to_native(zel::path(kept.folder().c_str(), "notebook.log")).c_str()));
    log->write(zel::logger::info, "started with %s", wanted.folder.c_str());
    if (outcome == notebook::instance::first_after_crash) {
        log->write(zel::logger::warning, "the notebook before did not end by itself");
        std::puts("the notebook before did not end by itself");
    }
    if (!wanted.folder.create()) {
        notebook::fail("cannot make", wanted.folder);
    }
    notebook::application window(kept, self, wanted.folder, log);
    if (!page.empty()) {
        window.open(page);
    }
    bool const all_well = window.run();
    log->write(zel::logger::info, "ended with %u errors", log->get_error_counter());
    return all_well;
}

} // namespace

int main(int argc, char ** argv)
{
    if (argc == 2 && std::string_view(argv[1]) == "--help") {
        std::printf("%s\n\n", usage);
        notebook::application::print_commands();
        return 0;
    }
    try {
        options wanted;
        if (!parse(argc, argv, wanted)) {
            std::fprintf(stderr, "notebook: %s\n", usage);
            return 2;
        }
        bool const all_well = run(wanted);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            throw zel::exception(zel::string("standard output: ") + std::strerror(errno));
        }
        return all_well ? 0 : 1;
    } catch (zel::exception & error) {
        std::fprintf(stderr, "notebook: %s\n", error.get_message().c_str());
    } catch (std::exception const & error) {
        std::fprintf(stderr, "notebook: %s\n", error.what());
    }
    return 1;
}
