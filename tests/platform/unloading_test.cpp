// SPDX-License-Identifier: MIT
// The library comes and goes with plug-ins; this program itself has none of it.
#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "tests/support/time_limit.h"
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <thread>

#include <dlfcn.h>

namespace {

std::ptrdiff_t mappings()
{
    std::ifstream file("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
}

long resident_pages()
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages;
}

bool load_use_and_unload(char const * name)
{
    void * const module = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return false;
    }
    auto const use = reinterpret_cast<bool (*)()>(::dlsym(module, "use_library"));
    enum { is_using, has_used, has_failed, may_end };
    std::atomic<int> state{is_using};
    std::thread user([&] { // ends after the module has gone
        int const result = use() ? has_used : has_failed;
        state = result;
        state.notify_one();
        state.wait(result);
    });
    state.wait(is_using);
    ::dlclose(module);
    bool const good = state.exchange(may_end) == has_used;
    state.notify_one();
    user.join();
    return good;
}

TEST(plug_in, can_be_loaded_used_and_unloaded_for_ever)
{
    time_limit const limit(100);
    for (char const * const name : {ZEL_TEST_PLUG_INS}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(holds_in_child([=] { // or the host has no room for both in its static TLS
            bool good = true;
            for (int i = 0; i < 50; ++i) {
                good = good && load_use_and_unload(name);
            }
            std::ptrdiff_t const maps = mappings();
            long const pages = resident_pages();
            for (int i = 0; i < 1100; ++i) { // the host has 1,024 keys
                good = good && load_use_and_unload(name);
            }
            return good
                && (under_address_sanitizer || under_thread_sanitizer
                    || (mappings() < maps + 20 && resident_pages() < pages + 250));
        }));
    }
}

} // namespace
