// SPDX-License-Identifier: MIT
// Every operation that takes memory from `new`, with the first allocation failing, then the second
// and so on until it succeeds. (Buffers take theirs from the C library: buffer_failures_test.cpp.)
#include "tests/faults/operations.h"
#include "tests/support/allocations.h"
#include "tests/support/sanitizers.h"
#include <cstdio>
#include <gtest/gtest.h>
#include <regex>
#include <string_view>

namespace {

std::vector<operation> all_operations()
{
    std::vector<operation> all(calling_operations.begin(), calling_operations.end());
    all.insert(all.end(), allocating_operations.begin(), allocating_operations.end());
    return all;
}

TEST(allocations, fail_one_after_the_other_in_every_operation)
{
    for (auto const & tried : all_operations()) {
        SCOPED_TRACE(tried.name);
        if (under_thread_sanitizer && std::string_view(tried.name).starts_with("a thread")) {
            continue; // it cannot follow them
        }
        std::uint64_t points = 0;
        for (bool has_run_out = true; has_run_out && points < 5000; ++points) {
            places const at;
            allocations::left = points;
            outcome const first = attempt(tried, at);
            has_run_out = allocations::left == 0 || first != outcome::done;
            allocations::left = allocations::all;
            EXPECT_TRUE(first == outcome::done || first == outcome::refused
                        || first == outcome::out_of_memory)
                << "another exception than std::bad_alloc: " << points;
            EXPECT_TRUE(first == outcome::done || attempt(tried, at) == outcome::done) << points;
            EXPECT_TRUE(tried.done(at)) << points;
        }
        EXPECT_LT(points, 5000U);
        std::printf("%4llu %s\n", static_cast<unsigned long long>(points), tried.name);
    }
}

#ifdef ZEL_NAMES
// Exported operations by their names: those that the test above comes through, and those that take
// no memory, such as all that are declared noexcept.
constexpr char const tried[] = R"(
    string::(format(_v)?|operator=|normalize_for_xml|replace|split|word|extract_sub_string|mid)|
    string::truncate_hash|operator\+|(\w+::)?exception::(exception|get_message)|get_last_error|
    memory_exception::memory_exception|variant::(operator=|type|variant|change_type)|
    variant::operator_string|(time|timer|uid|point|size|rect)::to_string|
    name_generator::(abbreviate(Word|CommonWords)?|findWords|constructExpression|name_generator)|
    logger::write(_grouped)?(_url)?(_v)?|to_native|from_native|file::(file|open)|
    path::(create|copy|rename|remove|empty_folder|get_entries|get_temp_filename|compare_files|path)|
    file_obj::file_obj|dyn_lib::(dyn_lib|get_proc_addr|load)|kernel_obj::kernel_obj|event::event|
    mutex::mutex|semaphore::semaphore|crit_sect::crit_sect|multi_lock::multi_lock|
    thread_obj(_ex)?::(thread_obj(_ex)?|start)|
    platform::(create_window|post_(thread_)?message)|
    (ini_file|cached_profile|sub_profile)::(read_(string|int|bool|multiple|binary)|formPath|commit|
    read_by_index_(string|int)|get_binary_size|write_(string|int|bool|by_index_string|binary)|
    getKey|findKey|insertKey|key_of|ini_file|cached_profile|sub_profile)|)";
constexpr char const takes_none[] = R"(
    Crc32::.*|buffer::.*|char_buffer_copy|convert::[a-z]\w*|crit_sect::(un|try_)?lock|
    dyn_lib::unload|(event|mutex|semaphore|sync_obj)::[a-z]*(lock|set|reset|pulse)|hash_value|
    exception::get_exc_type|file::(close|eof|ms_\w*|read|write\w*)|lockable::\w*|
    logger::(clean|count|get_\w*|logger|output_\w*|set_\w*)|multi_lock::operator=|
    name_generator::(is_\w*|optimize\w*|removeVowels|toLower|toUpper|truncate\w*)|operator(-|<<|>>)|
    path::(?!create|copy|rename$|remove$|empty_folder|get_entries|get_temp|compare_files|path$)\S*|
    platform::(?!create_window|post_message|post_thread)\w*|profile_cache::.*|require_from_new|
    show_uncaught_exceptions|this_library\w*|version|single_lock::\w*|
    string::(find_one_of|hash|load_string|ms_\w*|remove|throw_null\w*|to_lower|to_upper|trim\w*)|
    thread_obj(_ex)?::(?!start$|thread_obj)\w*|time::(?!to_string)\S*|timer::(?!to_string)\w*|
    uid::create|detail::.*|
    variant::(?!change_type|operator=|type|variant$|operator_string|exception)\S*)";

TEST(allocations, are_tried_in_every_operation_that_is_exported)
{
    std::FILE * const list = ::popen(ZEL_NAMES, "r");
    ASSERT_NE(list, nullptr);
    std::regex const known(
        std::regex_replace(std::string(tried) + takes_none, std::regex("\\s"), ""));
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
        EXPECT_TRUE(std::regex_match(name, known)) << name;
    }
    EXPECT_EQ(::pclose(list), 0);
    EXPECT_GT(count, 300);
}
#endif

} // namespace
