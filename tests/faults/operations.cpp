// SPDX-License-Identifier: MIT
#include "tests/faults/operations.h"

#include "tests/support/allocations.h"
#include "zel/zel.h"
#include <list>
#include <new>
#include <ostream>
#include <stdexcept>
#include <vector>

using zel::auto_ptr;
using zel::path;
using zel::string;
using zel::variant;
using namespace zel::platform;
namespace fs = std::filesystem;

std::string const fresh_content(100'000, 'n');
std::string const old_settings = std::string("[s]\r\na=").append(3000, 'a') + "\r\nz=1,2\r\n";

places::places()
{
    near.write("source", fresh_content);
    near.write("target", "old");
    near.write("tree/a/b", "");
    near.write("tree/c", "");
    near.write("settings", old_settings);
    near.write("shared", old_settings);
    fs::create_symlink("target", near.host("link"));
    fs::create_symlink("made", near.host("dangling"));
    fs::create_hard_link(near.host("shared"), near.host("twin"));
}

void PrintTo(operation const & it, std::ostream * out) { *out << it.name; }

outcome attempt(operation const & tried, places const & at)
{
    set_last_error(0);
    try {
        return tried.run(at) ? outcome::done : outcome::refused;
    } catch (zel::exception const &) {
        return outcome::raised_own;
    } catch (std::bad_alloc const &) {
        return outcome::out_of_memory;
    } catch (...) {
        return outcome::raised_another;
    }
}

namespace {

// Texts that do not fit into a string itself.
string const text("a text that is much longer than the room inside");
string const other("another text, which does not fit in there either");

bool copy(scratch const & to, places const & at, char const * name)
{
    return at.near.path("source").copy(to.path(name));
}

bool write_a_file(places const & at)
{
    zel::file out(at.near.path("made"), zel::file::mode_write, zel::file::kind_binary);
    bool const whole = out.write_string(string(fresh_content)) == fresh_content.size();
    out.close(); // raises when the last bytes do not arrive
    return whole;
}

std::size_t entries_of(path folder)
{
    std::list<auto_ptr<path>> entries;
    folder.get_entries(entries);
    return entries.size();
}

auto_ptr<zel::iprofile> store(places const & at, char const * name)
{
    return new zel::ini_file(string(at.near.path(name).c_str()));
}

bool holds(places const & at, char const * name, char const * key)
{
    return store(at, name)->read_string("s", key, "") == "value";
}

/// \returns whether nothing was refused: a write that is refused leaves its reason.
bool write(places const & at, char const * name)
{
    store(at, name)->write_string("s", "k", "value");
    return last_error() == 0;
}

bool write_through_a_cache(places const & at)
{
    zel::cached_profile cache(store(at, "settings"));
    cache.write_string("s", "k", "value");
    cache.write_string("s", "other", "value");
    cache.commit();
    return last_error() == 0;
}

/// Takes a unit of a new object through a second handle.
template <auto open> bool use(places const & at, void * made)
{
    void * const opened = made == nullptr ? nullptr : open(synchronize, false, at.object.c_str());
    bool const used = opened != nullptr && last_error() == 0
        && wait_for_single_object(opened, 5000) == wait_object_0;
    return (opened == nullptr || close_handle(opened)) && (made == nullptr || close_handle(made))
        && used;
}

template <typename Base> class sleeper : public Base {
public:
    explicit sleeper(bool is_woken)
        : Base(nullptr, text)
        , gate_(is_woken, true)
    {
    }
    bool ran = false;

protected:
    unsigned int run() override
    {
        ran = wait_for_single_object(gate_.get_handle(), 5000) == wait_object_0;
        return 0;
    }

private:
    zel::event gate_;
};

bool run_a_thread(places const &)
{
    auto_ptr<sleeper<zel::thread_obj>> const thread(new sleeper<zel::thread_obj>(true));
    thread->start();
    thread->suspend();
    thread->resume();
    thread->wait();
    return thread->ran;
}

bool terminate_a_thread(places const &)
{
    auto_ptr<sleeper<zel::thread_obj_ex>> const thread(new sleeper<zel::thread_obj_ex>(false));
    thread->start();
    while (!thread->terminate(7)) { }
    thread->wait();
    return !thread->ran;
}

bool post_and_get(places const &)
{
    constexpr unsigned int own = 0x0400;
    window_handle const window = create_window(
        [](window_handle, unsigned int, std::uintptr_t, std::intptr_t value) { return value + 1; });
    bool whole = window != nullptr && message_queue_descriptor() >= 0;
    int answered = 0;
    for (int i = 0; whole && i < 20; ++i) {
        tagMSG message{};
        whole = post_message(window, own, 0, i) && get_message_a(message, window, own, own) == 1;
        answered += whole && dispatch_message_a(message) == i + 1;
    }
    return (window == nullptr || destroy_window(window)) && answered == 20;
}

bool load_a_module(places const &)
{
    zel::dyn_lib module(string(path(zel::from_native(ZEL_TEST_MODULE)).c_str()), true);
    module.load();
    return module.get_proc_addr("count_call") != nullptr;
}

// clang-format off
#define RUN [](places const & at) -> bool
#define DO [](places const &) -> bool
constexpr operation calling[] = {
    {"copy over a file", RUN { return copy(at.near, at, "target"); }, RUN { return at.near.read("target") == fresh_content; }},
    {"copy over a link", RUN { return copy(at.near, at, "link"); },
     RUN { return at.near.read("target") == fresh_content && fs::is_symlink(at.near.host("link")); }},
    {"copy through a dangling link", RUN { return copy(at.near, at, "dangling"); }, RUN { return at.near.read("made") == fresh_content; }},
    {"copy to another file system", RUN { return copy(at.far, at, "new/made"); }, RUN { return at.far.read("new/made") == fresh_content; }},
    {"move", RUN { return at.near.path("source").rename(at.near.path("made")); },
     RUN { return at.near.read("made") == fresh_content && !at.near.exists("source"); }},
    {"move to another file system", RUN { return at.near.path("source").rename(at.far.path("made")); },
     RUN { return at.far.read("made") == fresh_content && !at.near.exists("source"); }, true},
    {"move a link to another file system", RUN { return at.near.path("link").rename(at.far.path("link")); },
     RUN { return fs::is_symlink(at.far.host("link")) && !at.near.exists("link"); }, true},
    {"make folders", RUN { return at.near.path("tree/d/e").create(); }, RUN { return at.near.exists("tree/d/e"); }},
    {"remove a tree", RUN { return at.near.path("tree").remove(); }, RUN { return !at.near.exists("tree"); }},
    {"empty a folder", RUN { return at.near.path("tree").empty_folder(); }, RUN { return fs::is_empty(at.near.host("tree")); }},
    {"list a folder", RUN { return entries_of(at.near.path("tree")) == 2; }, RUN { return at.near.exists("tree/c"); }},
    {"make a temporary file", RUN { return !path::get_temp_filename(at.near.path("tree")).empty(); },
     RUN { return entries_of(at.near.path("tree")) >= 3; }},
    {"write a file", write_a_file, RUN { return at.near.read("made") == fresh_content; }},
    {"compare files", RUN { return path::compare_files(at.near.path("shared"), at.near.path("settings")); }},
    {"write a setting", RUN { return write(at, "settings"); }, RUN { return holds(at, "settings", "k"); }},
    {"write a first setting", RUN { return write(at, "new"); }, RUN { return holds(at, "new", "k"); }},
    {"write a setting in place", RUN { return write(at, "shared"); }, RUN { return holds(at, "shared", "k"); }, true},
    {"commit a cache", write_through_a_cache, RUN { return holds(at, "settings", "other"); }},
    {"a named event", RUN { return use<open_event>(at, create_event(false, true, at.object.c_str())); }},
    {"a named semaphore", RUN { return use<open_semaphore>(at, create_semaphore(1, 1, at.object.c_str())); }},
    {"a named mutex", RUN { return use<open_mutex>(at, create_mutex(true, at.object.c_str())); }},
    {"a thread", run_a_thread},
    {"a thread that is terminated", terminate_a_thread},
    {"a message queue", post_and_get},
    {"an identifier", DO { zel::uid made; made.create(); return made.to_string() != zel::uid().to_string(); }},
    {"a module", load_a_module},
};
// clang-format on

void use_all(auto const &...) { } // of what was made

/// An operation that fails leaves its object as it was, and succeeds there with enough memory.
template <typename Object, typename Change> bool changes(Object const & before, Change change)
{
    Object object = before;
    try {
        change(object);
    } catch (std::bad_alloc const &) {
        allocations::left = allocations::all;
        if (!(object == before)) {
            throw std::logic_error("half changed");
        }
        change(object);
        throw;
    }
    return !(object == before);
}

/// Over a file, its cache and a prefix over the cache, which can be used afterwards.
template <auto use> bool on_stores(places const & at)
{
    auto_ptr<zel::iprofile> const file = store(at, "settings");
    auto_ptr<zel::iprofile> const cache(new zel::cached_profile(file));
    auto_ptr<zel::iprofile> const prefixed(new zel::sub_profile(cache, "no section of any name"));
    for (auto const & store : {file, cache, prefixed}) {
        try {
            use(*store);
        } catch (std::bad_alloc const &) {
            allocations::left = allocations::all;
            use(*store);
            throw;
        }
    }
    return file->read_string("s", "z", "") == "1,2";
}

void read_all(zel::iprofile & store)
{
    char bytes[40] = {};
    std::list<std::pair<std::int32_t, string>> list;
    store.read_string("s", "a", other);
    store.read_int("a section that is not there", text, 1);
    store.read_bool("s", "z", false);
    store.read_multiple("s", "z", ',', text, list);
    store.read_by_index_string("s", text, 1);
    store.read_by_index_int("s", text, 1);
    store.get_binary_size(other, text);
    store.read_binary(other, text, bytes, sizeof bytes);
}

void write_all(zel::iprofile & store)
{
    char bytes[40] = {};
    store.write_string(other, text, other);
    store.write_int(other, "a number of more than a few bytes", 5);
    store.write_bool(other, "truth", true);
    store.write_by_index_string(other, text, 1, text);
    store.write_binary(other, "many bytes under a long name", bytes, sizeof bytes);
}

struct opened_names : zel::name_generator {
    using name_generator::abbreviateCommonWords;
    using name_generator::constructExpression;
    using name_generator::findWords;
};

bool shorten_names(places const &)
{
    std::vector<string> words;
    string word(300, 'b');
    opened_names const names;
    names.findWords(text + other, words);
    use_all(names.abbreviate(string(900, 'A'), 300), names.abbreviateWord(word, 200),
            names.constructExpression(words), names.abbreviateCommonWords(word),
            zel::name_generator(text));
    return true;
}

bool make_exceptions(places const &)
{
    set_last_error(2);
    use_all(zel::get_last_error(), zel::exception(1, text).get_message(),
            zel::memory_exception(zel::memory_exception::resource, text),
            zel::convert::exception(zel::convert::exception::wrong_symbol, 1, text.c_str()),
            variant::exception(variant::exception::out_of_range, text.c_str()),
            zel::file::exception(zel::file::exception::cannot_open, text.c_str()),
            zel::dyn_lib::exception(zel::dyn_lib::exception::cannot_load, text.c_str()),
            zel::kernel_obj::exception(zel::kernel_obj::exception::invalid_handle, text),
            zel::sync_obj::exception(zel::sync_obj::exception::failed_to_lock, text.c_str()));
    return true;
}

bool say_what_values_are(places const &)
{
    use_all(zel::time(0).to_string(), zel::timer().to_string(), zel::uid().to_string(),
            zel::point(1, 2).to_string("%d and a long %d"),
            zel::size(1, 2).to_string("%d and a long %d"),
            zel::rect().to_string("%d %d %d %d long"));
    return string(variant(variant(text.c_str(), 40))) == text.mid(0, 40);
}

bool log(places const &)
{
    zel::logger log;
    log.write_url(zel::logger::info, text.c_str(), "%s", text.c_str());
    log.write_grouped(zel::logger::error, other.c_str(), "%s", text.c_str());
    return true;
}

bool make_objects(places const & at)
{
    use_all(zel::event(false, false, at.object.c_str()), zel::mutex(false, other.c_str()),
            zel::semaphore(1, 1, "a semaphore of this test alone"), zel::crit_sect());
    return true;
}

bool take_apart(places const &)
{
    use_all(text.split(" "), text.word(0, "x") + text.mid(0, 40), text + variant(7),
            text.extract_sub_string(0, '|') + text.truncate_hash(30) + std::string(text));
    return true;
}

constexpr auto format
    = [](string & s) { s.format("%s %s", text.c_str(), (s + "&").normalize_for_xml().c_str()); };
constexpr auto replace = [](string & s) { s.replace("e", other); };
constexpr auto assign = [](variant & value) { value = text; };

constexpr operation allocating[] = {
    {"format a text", [](auto const &) { return changes(text, format); }},
    {"replace in a text", [](auto const &) { return changes(text, replace); }},
    {"assign to a number", [](auto const &) { return changes(variant(7), assign); }},
    {"assign to a truth value", [](auto const &) { return changes(variant(true), assign); }},
    {"take a text apart", take_apart},
    {"make exceptions", make_exceptions},
    {"say what values are", say_what_values_are},
    {"shorten names", shorten_names},
    {"log", log},
    {"make objects", make_objects},
    {"read settings", on_stores<read_all>},
    {"write settings", on_stores<write_all>},
};

} // namespace

std::span<operation const> const calling_operations(calling);
std::span<operation const> const allocating_operations(allocating);
