// SPDX-License-Identifier: MIT
// The commands of the user, and what each does.
#include "application.h"
#include "plug_in.h"
#include "word_count.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <iterator>

namespace notebook {

application::command const application::commands[] = {
    {"open", &application::on_open, "PAGE", "opens a page; saving makes a new one"},
    {"add", &application::on_add, "LINE", "adds a line"},
    {"show", &application::on_show, "", "shows the page"},
    {"save", &application::on_save, "", "saves it, and keeps the old one as PAGE.bak"},
    {"list", &application::on_list, "", "lists the pages: short name, bytes, checksum, file"},
    {"recent", &application::on_recent, "[N]", "lists the last pages, or opens one of them"},
    {"words", &application::on_words, "", "counts the words of all pages"},
    {"backup", &application::on_backup, "", "copies all pages into a folder of their own"},
    {"export", &application::on_export, "FORMAT", "writes the page by a plug-in, such as html"},
    {"place", &application::on_place, "X Y WIDTH HEIGHT", "moves the window, now and later"},
    {"help", &application::on_help, "", "shows this"},
    {"quit", &application::on_quit, "", "ends; so does the end of the input"},
};

void application::print_commands()
{
    for (command const & each : commands) {
        zel::string const words = zel::string(each.name) + " " + each.argument;
        std::printf("  %-24s %s\n", words.c_str(), each.help);
    }
}

void application::execute(zel::string line)
{
    line.trim();
    if (line.empty()) {
        return;
    }
    std::size_t const end = line.find_first_of(" \t");
    zel::string const name = line.substr(0, end);
    zel::string argument = end == line.npos ? "" : line.substr(end);
    argument.trim();
    try {
        for (command const & each : commands) {
            if (name == each.name) {
                (this->*each.run)(argument);
                return;
            }
        }
        throw zel::exception(name + ": no command; help lists them");
    } catch (zel::exception & error) {
        report(error.get_message());
    } catch (std::exception const & error) { // of the standard library: a name that is too long
        report(error.what());
    }
}

void application::on_open(zel::string const & name)
{
    if (name.empty()) {
        throw zel::exception("open needs the name of a page");
    }
    open(place_of(name, folder_));
}

void application::on_add(zel::string const & line) { current().add(line); }

void application::on_show(zel::string const &)
{
    zel::string const & text = current().text();
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void application::on_save(zel::string const &)
{
    page & saved = current();
    saved.save();
    settings_.recent().add(saved.get_path(), saved.saved_sum());
    settings_.save();
    log_->write(zel::logger::info, "saved %s", saved.get_path().c_str());
    std::printf("saved, sum %08X\n", static_cast<unsigned int>(saved.saved_sum()));
}

void application::on_list(zel::string const &)
{
    zel::name_generator const shortener;
    for (zel::path const & each : pages_of(folder_)) {
        zel::path stem = each;
        stem.remove_extension();
        // Blanks would stay in the short name, underscores do not.
        zel::string const name = name_of(stem).replace(" ", "_");
        zel::buffer const bytes = read_whole(each);
        std::printf("%-12s %8u  %08X  %s\n", shortener.abbreviate(name, 12).c_str(), bytes.size(),
                    static_cast<unsigned int>(checksum(bytes)), name_of(each).c_str());
    }
}

void application::on_recent(zel::string const & number)
{
    auto const pages = settings_.recent().list();
    std::uint32_t line = 0;
    if (number.empty()) {
        for (zel::path const & each : pages) {
            std::printf("%u  %s\n", ++line, zel::to_native(each).c_str());
        }
        return;
    }
    std::uint32_t const wanted = zel::convert::stringToUInt32(number.c_str());
    if (wanted < 1 || wanted > pages.size()) {
        throw zel::exception("there is no page " + number);
    }
    open(*std::next(pages.begin(), wanted - 1));
}

void application::on_words(zel::string const &)
{
    word_count work(log_, folder_, window_);
    work.start();
    work.wait_msg_loop(); // the window keeps working meanwhile
    serve_queue(); // messages that waited when the thread ended
    bar_.end();
    if (!work.failure().empty()) {
        throw zel::exception(work.failure());
    }
    std::printf("%llu words in %u pages\n", static_cast<unsigned long long>(work.words()),
                work.pages());
}

void application::on_backup(zel::string const &)
{
    zel::time const now;
    zel::string name;
    name.format("backup\\%04d-%02d-%02d %02d.%02d.%02d.%03d", now.get_year(),
                static_cast<int>(now.get_month()), now.get_day(), now.get_hour(), now.get_minute(),
                now.get_second(), now.get_milliseconds());
    zel::path folder(folder_.c_str(), name.c_str());
    if (!folder.create()) {
        fail("cannot make", folder);
    }
    auto const pages = pages_of(folder_);
    for (zel::path each : pages) {
        zel::path const copy(folder.c_str(), name_of(each).c_str());
        if (!each.copy(copy) || !zel::path::compare_files(each, copy)) {
            fail("cannot copy", each);
        }
    }
    log_->write(zel::logger::info, "backup of %zu pages in %s", pages.size(), folder.c_str());
    std::printf("%zu pages copied to %s\n", pages.size(), zel::to_native(folder).c_str());
}

void application::on_export(zel::string const & format)
{
    page & exported = current();
    // Beside the program, and nowhere else.
    if (format.empty() || format.find_first_of("/\\:") != format.npos) {
        throw zel::exception("export needs the name of a format");
    }
    zel::path module = std::filesystem::read_symlink("/proc/self/exe");
    module.remove_file_spec();
    if (!module.append(("notebook_" + format + ".so").c_str()) || !module.file_exists()) {
        throw zel::exception("there is no plug-in for " + format);
    }
    zel::dyn_lib plug_in(module.c_str(), true);
    plug_in.load();
    auto const get
        = reinterpret_cast<notebook_plug_in_function>(plug_in.get_proc_addr(notebook_plug_in_name));
    notebook_plug_in const * const converter = get();
    if (converter->version != notebook_plug_in_version) {
        throw zel::exception("the plug-in for " + format + " is of another version");
    }

    zel::path target = exported.get_path();
    zel::path stem = target;
    stem.remove_extension();
    target.rename_extension(converter->extension);
    zel::file out(target, zel::file::mode_write, zel::file::kind_binary);
    notebook_output const write = [](void * file, char const * bytes, std::uint32_t count) {
        static_cast<zel::file *>(file)->write(bytes, count);
    };
    zel::string const & text = exported.text();
    if (converter->convert(name_of(stem).c_str(), text.data(),
                           static_cast<std::uint32_t>(text.size()), write, &out)
        != 0) {
        throw zel::exception("the plug-in for " + format + " has failed");
    }
    out.close(); // raises when not all of it was written
    std::printf("written to %s\n", zel::to_native(target).c_str());
}

void application::on_place(zel::string const & numbers)
{
    std::int32_t values[4];
    for (std::int32_t i = 0; i < 4; ++i) {
        values[i] = zel::convert::stringToInt32(numbers.word(i, " ").c_str());
    }
    zel::rect const frame(zel::point(values[0], values[1]), zel::size(values[2], values[3]));
    if (frame.is_empty() || !numbers.word(4, " ").empty()) {
        throw zel::exception("place takes four numbers, the last two above 0");
    }
    settings_.window().set(frame);
    settings_.save();
    place_window();
}

void application::on_help(zel::string const &) { print_commands(); }

void application::on_quit(zel::string const &) { zel::platform::post_quit_message(0); }

} // namespace notebook
