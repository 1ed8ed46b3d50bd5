// SPDX-License-Identifier: MIT
#include "zel/platform/threads/library_work_linux.h"

#include "zel/platform/waits/this_thread_linux.h"
#include <algorithm>
#include <cstddef>
#include <iterator>

#include <dlfcn.h>
#include <link.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {
namespace {

struct code_range {
    std::uintptr_t begin;
    std::uintptr_t end;

    bool holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

// Everything here is filled in before the first thread starts.

// The code of the C library, the dynamic linker and a heap that took the C library's place.
constinit code_range library_code[8]{};
constinit std::size_t library_code_count = 0;

// Functions in which a thread waits for its own program, with no lock of the library.
constexpr char const * waiting_names[] = {"pthread_mutex_lock",
                                          "pthread_cond_wait",
                                          "pthread_cond_timedwait",
                                          "nanosleep",
                                          "clock_nanosleep",
                                          "sleep",
                                          "usleep",
                                          "pthread_join"};
constinit code_range waiting_functions[std::size(waiting_names)]{};

// The two locks of the dynamic linker: whoever loads or unloads a module holds the first, also while
// constructors and destructors of the module run. Null when they were not found.
constinit pthread_mutex_t const * loader_locks[2]{};

constinit std::size_t stack_size = 0; // of new threads

bool holds(dl_phdr_info const & object, std::uintptr_t address)
{
    return std::any_of(object.dlpi_phdr, object.dlpi_phdr + object.dlpi_phnum,
                       [&](auto const & segment) {
                           return segment.p_type == PT_LOAD
                               && address - object.dlpi_addr - segment.p_vaddr < segment.p_memsz;
                       });
}

int add_library_code(dl_phdr_info * object, std::size_t, void * marks)
{
    auto const * const addresses = static_cast<std::uintptr_t const *>(marks);
    // A program that is linked statically holds everything: no telling what is the C library's.
    bool const is_program = object->dlpi_name == nullptr || *object->dlpi_name == '\0';
    bool const is_of_interest = std::any_of(addresses, addresses + 3, [&](std::uintptr_t mark) {
        return mark != 0 && holds(*object, mark);
    });
    if (is_program || !is_of_interest) {
        return 0;
    }
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        auto const & segment = object->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0
            && library_code_count < std::size(library_code)) {
            std::uintptr_t const begin = object->dlpi_addr + segment.p_vaddr;
            library_code[library_code_count++] = {begin, begin + segment.p_memsz};
        }
    }
    return 0;
}

std::uintptr_t address_of_function(char const * name)
{
    // By name: the address in the program's own code may be that of its linkage table.
    return reinterpret_cast<std::uintptr_t>(::dlsym(RTLD_DEFAULT, name));
}

// The memory of a function or a variable by its address; empty when its size is not told.
code_range extent_of(void * address)
{
    Dl_info info{};
    void * symbol = nullptr;
    if (address == nullptr || ::dladdr1(address, &info, &symbol, RTLD_DL_SYMENT) == 0
        || symbol == nullptr || info.dli_saddr != address) {
        return {0, 0};
    }
    auto const begin = reinterpret_cast<std::uintptr_t>(address);
    return {begin, begin + static_cast<ElfW(Sym) *>(symbol)->st_size};
}

bool is_lock_of_loader(pthread_mutex_t const & lock)
{
    return lock.__data.__kind == PTHREAD_MUTEX_RECURSIVE_NP;
}

// The host calls this with its second lock held, which shows where in the dynamic linker's data the
// two lie: the one that has the caller for its owner, and the one in front of it.
int find_loader_locks(dl_phdr_info *, std::size_t, void * data)
{
    auto const & range = *static_cast<code_range const *>(data);
    auto const own_number = static_cast<int>(::gettid());
    for (std::uintptr_t at = range.begin + sizeof(pthread_mutex_t);
         at + sizeof(pthread_mutex_t) <= range.end; at += alignof(pthread_mutex_t)) {
        auto const * const lock = reinterpret_cast<pthread_mutex_t const *>(at);
        if (is_lock_of_loader(*lock) && lock->__data.__owner == own_number
            && lock->__data.__count > 0 && lock->__data.__lock != 0
            && is_lock_of_loader(lock[-1])) {
            loader_locks[0] = lock - 1;
            loader_locks[1] = lock;
            break;
        }
    }
    return 1; // enough with one module
}

bool holds_loader_lock()
{
    return std::any_of(std::begin(loader_locks), std::end(loader_locks),
                       [](pthread_mutex_t const * lock) {
                           return lock != nullptr
                               && *const_cast<int const volatile *>(&lock->__data.__owner)
                               == static_cast<int>(this_thread.id);
                       });
}

bool is_waiting_function(std::uintptr_t address)
{
    return std::any_of(std::begin(waiting_functions), std::end(waiting_functions),
                       [=](code_range const & range) { return range.holds(address); });
}

struct stack_content {
    bool has_library_frame; // but for those of waiting functions
    bool has_interrupted_library; // a signal handler runs, and came upon the library's code
};

// Frames lie between the stack pointer and the stack's end. On another stack, of a signal or of a
// program's own switching, only as much is looked at as is certainly there.
[[gnu::no_sanitize_address]] stack_content look_at_stack(std::uintptr_t top, std::uintptr_t end,
                                                         std::uintptr_t restorer)
{
    constexpr std::uintptr_t page = 4096;
    bool const is_own = top < end && end - top < stack_size;
    auto const * const last
        = reinterpret_cast<std::uintptr_t const *>(is_own ? end : (top | (page - 1)) + 1);
    auto const * word = reinterpret_cast<std::uintptr_t const *>((top + 7) & ~std::uintptr_t{7});
    stack_content found{false, false};
    for (; word < last; ++word) {
        if (*word == restorer) {
            found.has_interrupted_library
                = found.has_interrupted_library || is_library_code(place_below_handler(word));
        } else if (!found.has_library_frame && is_library_code(*word) && is_behind_call(*word)) {
            found.has_library_frame = !is_waiting_function(*word);
        }
    }
    return found;
}

} // namespace

void prepare_library_work() noexcept
{
    std::uintptr_t marks[] = {address_of_function("malloc"), address_of_function("syscall"),
                              address_of_function("__tls_get_addr")};
    ::dl_iterate_phdr(add_library_code, marks);
    std::transform(std::begin(waiting_names), std::end(waiting_names), waiting_functions,
                   [](char const * name) { return extent_of(::dlsym(RTLD_DEFAULT, name)); });
    code_range loader = extent_of(::dlsym(RTLD_DEFAULT, "_rtld_global"));
    ::dl_iterate_phdr(find_loader_locks, &loader);

    pthread_attr_t attributes;
    if (::pthread_attr_init(&attributes) == 0) {
        ::pthread_attr_getstacksize(&attributes, &stack_size);
        ::pthread_attr_destroy(&attributes);
    }
}

bool is_library_code(std::uintptr_t address) noexcept
{
    constexpr std::uintptr_t longest_call = 8; // what is_behind_call looks at
    return std::any_of(
        library_code, library_code + library_code_count,
        [=](code_range const & range) { return range.holds(address - longest_call); });
}

library_work library_work_below(stopped_thread const & at, std::uintptr_t stack_end,
                                std::uintptr_t restorer) noexcept
{
    return holds_loader_lock()
            || look_at_stack(at.stack, stack_end, restorer).has_interrupted_library
        ? library_work::certainly
        : library_work::none;
}

library_work library_work_at(stopped_thread const & at, std::uintptr_t stack_end,
                             std::uintptr_t restorer) noexcept
{
    stack_content const stack = look_at_stack(at.stack, stack_end, restorer);
    if (holds_loader_lock() || stack.has_interrupted_library) {
        return library_work::certainly;
    }
    bool const is_inside = is_library_code(at.place);
    if (is_inside && at.sleep == stopped_thread::in_no_call) {
        return library_work::certainly;
    }
    if (!stack.has_library_frame) {
        return library_work::none; // a bare system call, or a wait
    }
    if (is_inside && at.call == SYS_futex) {
        // The library's own locks are waited for in this way alone; condition variables, joins and
        // the like in others, where a thread has no such lock.
        bool const is_for_lock = (static_cast<int>(at.arguments[1]) & FUTEX_CMD_MASK) == FUTEX_WAIT;
        return is_for_lock ? library_work::certainly : library_work::none;
    }
    return library_work::perhaps;
}

} // namespace zel::platform
