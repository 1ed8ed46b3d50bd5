// SPDX-License-Identifier: MIT
#pragma once

#include "instance.h"
#include "page.h"
#include "progress_bar.h"
#include "settings.h"
#include <string>
#include <zel/zel.h>

namespace notebook {

/// The window and its commands: one loop serves standard input and the message queue.
class application {
public:
    /// \param folder  the folder of pages that are named without a folder.
    application(settings & kept, instance & self, zel::path const & folder,
                zel::auto_ptr<zel::logger> log);
    ~application();
    application(application const &) = delete;
    application & operator=(application const &) = delete;

    /// The path of a page that the user names: a name of the host or a text with backslashes, in
    /// the notebook's folder unless it has a folder of its own.
    static zel::path place_of(zel::string const & name, zel::path const & folder);

    void open(zel::path const & place);

    /// Serves commands until `quit` or the end of the input.
    /// \returns true if all commands have worked.
    bool run();

    /// Shows one line of help for each command.
    static void print_commands();

private:
    struct command {
        char const * name;
        void (application::*run)(zel::string const & argument);
        char const * argument;
        char const * help;
    };
    static command const commands[];

    static std::intptr_t procedure(window_handle window, unsigned int message,
                                   std::uintptr_t wparam, std::intptr_t lparam);
    bool serve_queue();
    void serve_input(char const * bytes, std::size_t count);
    void execute(zel::string line);
    void prompt() const;
    void come_to_front();
    void place_window() const;
    void report(zel::string const & failure);
    page & current();

    void on_open(zel::string const & name);
    void on_add(zel::string const & line);
    void on_show(zel::string const &);
    void on_save(zel::string const &);
    void on_list(zel::string const &);
    void on_recent(zel::string const & number);
    void on_words(zel::string const &);
    void on_backup(zel::string const &);
    void on_export(zel::string const & format);
    void on_place(zel::string const & numbers);
    void on_help(zel::string const &);
    void on_quit(zel::string const &);

    settings & settings_;
    instance & instance_;
    zel::path const folder_;
    zel::auto_ptr<zel::logger> log_;
    window_handle window_;
    zel::auto_ptr<call_listener> listener_;
    zel::auto_ptr<page> page_; // null until one is opened
    progress_bar bar_;
    std::string pending_; // the beginning of a line
    bool is_terminal_;
    bool all_well_ = true;
};

} // namespace notebook
