// SPDX-License-Identifier: MIT
// Every operation that takes memory from `new`, with the first allocation failing, then the second
// and so on until it succeeds. (Buffers take theirs from the C library: buffer_failures_test.cpp.)
#include "tests/support/allocations.h"
#include "tests/support/scratch_folder.h"
#include "zel/zel.h"
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <new>
#include <regex>
#include <set>
#include <sstream>

namespace {

using zel::auto_ptr;
using zel::string;
using zel::variant;

// Texts that do not fit into a string itself.
string const text("a text that is much longer than the room inside");
string const other("another text, which does not fit in there either");

class attempt {
public:
    explicit attempt(std::uint64_t allocations)
        : allocations_(allocations)
    {
    }

    /// Calls `operation` with so many allocations. When that fails, `is_as_before` holds and the
    /// operation succeeds with more. What it returns is dropped; an error is reported by
    /// `std::bad_alloc` or by a result that says so.
    template <typename Operation>
    void at(Operation operation, std::function<bool()> const & is_as_before = nullptr)
    {
        enum { done, out_of_memory, raised } outcome = raised;
        allocations::left = allocations_;
        try {
            static_cast<void>(operation());
            outcome = done;
        } catch (std::bad_alloc const &) {
            outcome = out_of_memory;
        } catch (...) {
        }
        has_run_out |= allocations::left == 0;
        allocations::left = allocations::all;
        EXPECT_NE(outcome, raised) << "another exception than std::bad_alloc: " << allocations_;
        if (outcome != done) {
            EXPECT_TRUE(is_as_before == nullptr || is_as_before()) << allocations_;
            EXPECT_NO_THROW(static_cast<void>(operation())) << allocations_;
        }
    }

    bool has_run_out = false;

private:
    std::uint64_t allocations_;
};

struct row {
    char const * operations; // exported names, without "zel::"
    void (*run)(attempt & it);
};

void use(auto const &...) { } // of what was made

template <auto operation> void alone(attempt & it) { it.at(operation); }

template <auto change> void on_string(attempt & it)
{
    string object(text);
    it.at([&] { change(object); }, [&] { return object == text; });
}

template <auto number> void on_variant(attempt & it)
{
    variant object(number);
    it.at([&] { object = text; }, [&] { return object == variant(number); });
    EXPECT_EQ(string(object), text);
}

struct opened_names : zel::name_generator {
    using name_generator::abbreviateCommonWords;
    using name_generator::constructExpression;
    using name_generator::findWords;
};
struct opened_cache : zel::cached_profile {
    using cached_profile::cached_profile;
    using cached_profile::getKey;
};
template <typename Base> struct worker : Base {
    using Base::Base;
    unsigned int run() override { return 0; }
};

template <typename Thread> void on_thread(attempt & it)
{
    auto_ptr<Thread> thread;
    it.at([&] {
        thread = new Thread(NULL, text);
        thread->start();
    });
    thread->wait();
}

// A file with one section, the cache over it and a prefix over the cache; the walk goes on until
// the last of them has what it needs.
template <auto operation> void on_stores(attempt & it)
{
    scratch_folder const place(fast_place);
    put(place.file("settings.ini"), "[section]\nkey=" + text + "\nlist=1,2\nnumber=1\n");
    auto_ptr<zel::iprofile> const file(
        new zel::ini_file(string(zel::from_native(place.file("settings.ini")).c_str())));
    auto_ptr<zel::iprofile> const cache(new zel::cached_profile(file));
    auto_ptr<zel::iprofile> const prefixed(new zel::sub_profile(cache, "no section of any name"));
    for (auto const & store : {file, cache, prefixed}) {
        it.at([&] { operation(*store); },
              [&] { return file->read_string("section", "key", "") == text; });
    }
}

row const rows[] = {
    {"string::format string::format_v string::operator= string::normalize_for_xml",
     on_string<[](string & s) {
         s.format("%s %s", text.c_str(), (s + "&").normalize_for_xml().c_str());
     }>},
    {"string::replace", on_string<[](string & s) { s.replace("e", other); }>},
    {"string::split string::word string::extract_sub_string string::mid string::truncate_hash",
     alone<[] {
         use(text.split(" "), text.word(0, "x") + text.mid(0, 40),
             text.extract_sub_string(0, '|') + text.truncate_hash(30));
     }>},
    {"operator+", alone<[] { return text + other + variant(7) + std::string(text); }>},
    {"exception::exception exception::get_message memory_exception::memory_exception "
     "convert::exception::exception variant::exception::exception file::exception::exception "
     "dyn_lib::exception::exception kernel_obj::exception::exception "
     "sync_obj::exception::exception get_last_error",
     alone<[] {
         zel::platform::set_last_error(2);
         use(zel::get_last_error(), zel::exception(1, text).get_message(),
             zel::memory_exception(zel::memory_exception::resource, text),
             zel::convert::exception(zel::convert::exception::wrong_symbol, 1, text.c_str()),
             variant::exception(variant::exception::out_of_range, text.c_str()),
             zel::file::exception(zel::file::exception::cannot_open, text.c_str()),
             zel::dyn_lib::exception(zel::dyn_lib::exception::cannot_load, text.c_str()),
             zel::kernel_obj::exception(zel::kernel_obj::exception::invalid_handle, text),
             zel::sync_obj::exception(zel::sync_obj::exception::failed_to_lock, text.c_str()));
     }>},
    {"variant::operator= variant::type", on_variant<7>},
    {"variant::operator=", on_variant<true>},
    {"variant::variant variant::operator_string variant::change_type",
     alone<[] { return string(variant(variant(text.c_str(), 40))); }>},
    {"time::to_string timer::to_string uid::to_string point::to_string size::to_string "
     "rect::to_string",
     alone<[] {
         use(zel::time(0).to_string(), zel::timer().to_string(), zel::uid().to_string(),
             zel::point(1, 2).to_string("%d and a long %d"),
             zel::rect().to_string("%d %d %d %d long"),
             zel::size(1, 2).to_string("%d and a long %d"));
     }>},
    {"name_generator::abbreviate name_generator::abbreviateWord name_generator::findWords "
     "name_generator::constructExpression name_generator::abbreviateCommonWords "
     "name_generator::name_generator",
     alone<[] {
         std::vector<string> words;
         string word(300, 'b');
         opened_names const names;
         names.findWords(text + other, words);
         use(names.abbreviate(string(900, 'A'), 300), names.abbreviateWord(word, 200),
             names.constructExpression(words), names.abbreviateCommonWords(word),
             zel::name_generator(text));
     }>},
    {"logger::write logger::write_v logger::write_url logger::write_url_v logger::write_grouped "
     "logger::write_grouped_v logger::write_grouped_url logger::write_grouped_url_v",
     alone<[] {
         zel::logger log;
         log.write_url(zel::logger::info, text.c_str(), "%s", text.c_str());
         log.write_grouped(zel::logger::error, other.c_str(), "%s", text.c_str());
     }>},
    {"path::create path::copy path::rename path::remove path::empty_folder path::get_entries "
     "path::get_temp_filename path::compare_files path::path to_native from_native file::file "
     "file::open file_obj::file_obj",
     [](attempt & it) {
         scratch_folder const place(fast_place);
         std::list<auto_ptr<zel::path>> entries;
         it.at([&] {
             zel::path folder(zel::from_native(place.name() + "/a"));
             zel::path name(folder);
             folder.create();
             name.append("file");
             zel::file(name, zel::file::mode_write, zel::file::kind_binary).write_string(text);
             folder.get_entries(entries);
             zel::path::get_temp_filename(folder);
             name.copy(zel::from_native(place.file("a long name for a copy of the file")));
             name.rename(zel::from_native(place.file("d")));
             use(zel::path::compare_files(folder, name), folder.empty_folder(), folder.remove());
         });
     }},
    {"dyn_lib::dyn_lib dyn_lib::get_proc_addr dyn_lib::load", alone<[] {
         zel::dyn_lib library("libc.so.6", true);
         library.load();
         return library.get_proc_addr("pthread_attr_getdetachstate");
     }>},
    {"kernel_obj::kernel_obj event::event mutex::mutex semaphore::semaphore crit_sect::crit_sect "
     "multi_lock::multi_lock",
     alone<[] {
         use(zel::event(false, false, text.c_str()), zel::mutex(false, other.c_str()),
             zel::semaphore(1, 1, "a semaphore of this test alone"), zel::crit_sect());
     }>},
    {"thread_obj::thread_obj thread_obj::start", on_thread<worker<zel::thread_obj>>},
    {"thread_obj_ex::thread_obj_ex thread_obj_ex::start", on_thread<worker<zel::thread_obj_ex>>},
    {"platform::create_window platform::post_message platform::post_thread_message", alone<[] {
         auto const window = zel::platform::create_window(
             [](auto, auto, auto, auto) { return std::intptr_t{0}; });
         zel::platform::post_message(window, 1024, 0, 0);
         return zel::platform::destroy_window(window);
     }>},
    {"STORE::read_string STORE::read_int STORE::read_bool STORE::read_multiple "
     "STORE::read_by_index_string STORE::read_by_index_int STORE::get_binary_size "
     "STORE::read_binary",
     on_stores<[](zel::iprofile & store) {
         char bytes[40] = {};
         std::list<std::pair<std::int32_t, string>> list;
         store.read_string("section", "key", other);
         store.read_int("a section that is not there", text, 1);
         store.read_bool("section", "number", false);
         store.read_multiple("section", "list", ',', text, list);
         store.read_by_index_string("section", text, 1);
         store.read_by_index_int("section", text, 1);
         store.get_binary_size(other, text);
         store.read_binary(other, text, bytes, sizeof bytes);
     }>},
    {"STORE::write_string STORE::write_int STORE::write_bool STORE::write_by_index_string "
     "STORE::write_binary",
     on_stores<[](zel::iprofile & store) {
         char bytes[40] = {};
         store.write_string(other, text, other);
         store.write_int(other, "a number of more than a few bytes", 5);
         store.write_bool(other, "truth", true);
         store.write_by_index_string(other, text, 1, text);
         store.write_binary(other, "many bytes under a long name", bytes, sizeof bytes);
     }>},
    {"ini_file::ini_file cached_profile::cached_profile cached_profile::commit "
     "cached_profile::getKey cached_profile::findKey cached_profile::insertKey "
     "cached_profile::key_of sub_profile::sub_profile sub_profile::formPath",
     [](attempt & it) {
         scratch_folder const place(fast_place);
         auto_ptr<zel::iprofile> const file(
             new zel::ini_file(string(zel::from_native(place.file("s")).c_str())));
         auto_ptr<opened_cache> const cache(new opened_cache(file));
         it.at([&] {
             cache->getKey(other);
             zel::sub_profile(cache, text).write_string(other, "key", text);
             cache->commit();
         });
         EXPECT_EQ(file->read_string(text + "\\" + other, "key", ""), text);
     }},
};

// Operations that take no memory, by their names; those that are declared noexcept among them.
constexpr char const * takes_none
    = "Crc32::.*|buffer::.*|char_buffer_copy|convert::[a-z]\\w*|crit_sect::(un|try_)?lock|"
      "dyn_lib::unload|(event|mutex|semaphore|sync_obj)::[a-z]*(lock|set|reset|pulse)|hash_value|"
      "exception::get_exc_type|file::(close|eof|ms_\\w*|read|write\\w*)|logger::(clean|count|get_"
      "\\w*|"
      "logger|output_\\w*|set_\\w*)|lockable::\\w*|multi_lock::operator=|name_generator::(is_\\w*|"
      "optimize\\w*|"
      "removeVowels|toLower|toUpper|truncate\\w*)|operator(-|<<|>>)|path::(?!create|copy|rename$|"
      "remove$"
      "|empty_folder|get_entries|get_temp|compare_files|path$)\\S*|"
      "platform::(?!create_window|post_message|post_thread)\\w*|profile_cache::.*|require_from_new|"
      "show_uncaught_exceptions|this_library\\w*|version|single_lock::\\w*|string::(find_one_of|"
      "hash|"
      "load_string|ms_\\w*|remove|throw_null\\w*|to_lower|to_upper|trim\\w*)|thread_obj(_ex)?::(?!"
      "start$"
      "|thread_obj)\\w*|time::(?!to_string)\\S*|timer::(?!to_string)\\w*|uid::create|"
      "variant::(?!change_type|operator=|type|variant$|operator string|exception)\\S*|detail::.*";

TEST(allocations, fail_one_after_the_other_in_every_operation)
{
    for (auto const & row : rows) {
        SCOPED_TRACE(row.operations);
        std::uint64_t points = 0;
        for (bool has_run_out = true; has_run_out && points < 5000; ++points) {
            attempt it(points);
            row.run(it);
            has_run_out = it.has_run_out;
        }
        EXPECT_GT(points, 1U) << "nothing was allocated";
        EXPECT_LT(points, 5000U);
        std::printf("%4llu %s\n", static_cast<unsigned long long>(points), row.operations);
    }
}

#ifdef ZEL_NAMES
TEST(allocations, are_tried_in_every_operation_that_is_exported)
{
    std::set<std::string> known;
    for (auto const & row : rows) {
        std::istringstream words(row.operations);
        for (std::string word; words >> word;) {
            for (char const * store : {"ini_file", "cached_profile", "sub_profile"}) {
                known.insert(std::regex_replace(word, std::regex("STORE"), store));
            }
        }
    }
    std::FILE * const list = ::popen(ZEL_NAMES, "r");
    ASSERT_NE(list, nullptr);
    std::regex const none(takes_none);
    std::regex const other_symbol("(vtable|VTT|typeinfo|guard).*|.*(thunk to|::~).*");
    int count = 0;
    for (char line[4096]; std::fgets(line, sizeof line, list) != nullptr;) {
        std::string name = std::regex_replace(line, std::regex("^\\S+ . (zel::)?|\n"), "");
        if (std::regex_match(name, other_symbol)) {
            continue;
        }
        name = std::regex_replace(name, std::regex("operator zel::string"), "operator_string");
        name.erase(std::min({name.find('('), name.find('['), name.size()}));
        ++count;
        EXPECT_TRUE(known.contains(name) || std::regex_match(name, none)) << name;
    }
    EXPECT_EQ(::pclose(list), 0);
    EXPECT_GT(count, 300);
}
#endif

} // namespace
