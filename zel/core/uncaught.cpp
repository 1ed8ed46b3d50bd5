// SPDX-License-Identifier: MIT
#include "zel/core/uncaught.h"

#include "zel/base/atomic.h"
#include "zel/core/exception.h"
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace zel {
namespace {

constinit atomic<std::terminate_handler> next{nullptr};

[[noreturn]] void report()
{
    try {
        if (std::current_exception() != nullptr) {
            throw;
        }
    } catch (exception & failure) {
        std::fprintf(stderr, "zel: uncaught exception: %s\n", failure.get_message().c_str());
    } catch (...) { // the next handler reports standard exceptions
    }
    if (std::terminate_handler const handler = next.load()) {
        handler();
    }
    std::abort();
}

} // namespace

void show_uncaught_exceptions() noexcept
{
    std::terminate_handler const before = std::get_terminate();
    std::terminate_handler none = nullptr;
    if (before != report && next.compare_exchange_strong(none, before)) {
        std::set_terminate(report);
    }
}

} // namespace zel
