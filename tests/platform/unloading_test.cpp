// SPDX-License-Identifier: MIT
// The library comes and goes with plug-ins; this program itself has none of it.
#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "tests/support/time_limit.h"
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <thread>

#include <dlfcn.h>

namespace {

struct pages {
    long all = 0;
    long resident = 0;
};
pages pages_of_memory()
{
    pages now;
    std::ifstream("/proc/self/statm") >> now.all >> now.resident;
    return now;
}

bool load_use_and_unload(char const * name)
{
    void * const module = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return false;
    }
    auto const use = reinterpret_cast<bool (*)()>(::dlsym(module, "use_library"));
    bool good = false;
    std::latch used(1);
    std::latch unloaded(1);
    std::thread user([&] { // ends after the module has gone
        good = use();
        used.count_down();
        unloaded.wait();
    });
    used.wait();
    ::dlclose(module);
    unloaded.count_down();
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
            pages const before = pages_of_memory();
            for (int i = 0; i < 1100; ++i) { // the host has 1,024 keys
                good = good && load_use_and_unload(name);
            }
            pages const after = pages_of_memory();
            return good
                && (under_address_sanitizer || under_thread_sanitizer
                    || (after.all < before.all + 1000 && after.resident < before.resident + 250));
        }));
    }
}

} // namespace
