// SPDX-License-Identifier: MIT
#include "zel/platform/threads/return_trap_linux.h"

#include "zel/platform/threads/stopped_thread_linux.h"
#include <atomic>

#include <unwind.h>

namespace zel::platform {
namespace {

constinit std::atomic<void (*)() noexcept> passed_return{nullptr};

} // namespace
} // namespace zel::platform

// What the trap of each processor (`zel_return_trap` in stopped_thread_linux_*.cpp) refers to.
extern "C" {
[[gnu::visibility("hidden")]] extern char const zel_return_trap[];
using caught_return = std::uintptr_t (*)(std::uintptr_t *) noexcept;
[[gnu::visibility("hidden")]] constinit std::atomic<caught_return> zel_caught_return{nullptr};

[[gnu::visibility("hidden"), gnu::used]] _Unwind_Reason_Code
zel_pass_return_trap(int, _Unwind_Action, _Unwind_Exception_Class, _Unwind_Exception *,
                     _Unwind_Context *)
{
    if (auto const pass = zel::platform::passed_return.load(std::memory_order_relaxed)) {
        pass();
    }
    return _URC_CONTINUE_UNWIND;
}
}

namespace zel::platform {

std::uintptr_t catch_return(std::uintptr_t * frame,
                            std::uintptr_t (*on_return)(std::uintptr_t *) noexcept,
                            void (*on_exception)() noexcept) noexcept
{
    auto const trap = reinterpret_cast<std::uintptr_t>(zel_return_trap);
    if (has_shadow_stack() || *frame == trap) {
        return 0;
    }
    passed_return.store(on_exception, std::memory_order_relaxed);
    zel_caught_return.store(on_return, std::memory_order_relaxed);
    std::uintptr_t const before = *frame;
    *frame = trap;
    return before;
}

bool is_caught_return(std::uintptr_t address) noexcept
{
    return address == reinterpret_cast<std::uintptr_t>(zel_return_trap);
}

} // namespace zel::platform
