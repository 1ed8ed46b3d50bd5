// SPDX-License-Identifier: MIT
#include "zel/platform/threads/library_work_linux.h"

#include "zel/platform/threads/return_trap_linux.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <algorithm>
#include <cstddef>
#include <iterator>

#include <dlfcn.h>
#include <link.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unwind.h>

namespace zel::platform {
namespace {

struct code_range {
    std::uintptr_t begin;
    std::uintptr_t end;

    bool holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

// All of this is set before the first thread starts.

// The code of the C library, the dynamic linker and a heap that took the C library's place.
constinit code_range library_code[8]{};
constinit std::size_t library_code_count = 0;

// Functions that hold no lock of the library: bare system calls, and waits for the program's own
// objects.
constexpr char const * lockless_names[] = {"accept",
                                           "clock_nanosleep",
                                           "close",
                                           "connect",
                                           "epoll_wait",
                                           "fsync",
                                           "ioctl",
                                           "nanosleep",
                                           "open",
                                           "openat",
                                           "pause",
                                           "poll",
                                           "ppoll",
                                           "pread64",
                                           "pselect",
                                           "pthread_cond_clockwait",
                                           "pthread_cond_timedwait",
                                           "pthread_cond_wait",
                                           "pthread_mutex_clocklock",
                                           "pthread_mutex_lock",
                                           "pthread_mutex_timedlock",
                                           "pthread_mutex_unlock",
                                           "pwrite64",
                                           "read",
                                           "readv",
                                           "recv",
                                           "recvfrom",
                                           "recvmsg",
                                           "sched_yield",
                                           "select",
                                           "sem_timedwait",
                                           "sem_wait",
                                           "send",
                                           "sendmsg",
                                           "sendto",
                                           "sleep",
                                           "syscall",
                                           "usleep",
                                           "waitid",
                                           "waitpid",
                                           "wait4",
                                           "write",
                                           "writev"};
constinit code_range lockless_functions[std::size(lockless_names)]{};

// The two locks of the dynamic linker. A thread that loads or unloads a module holds the first,
// also while constructors and destructors of the module run. Null when they were not found.
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
    // In a statically linked program the C library's code can't be told from the rest.
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
    // Look it up by name: the function's address as the program sees it may lie in its linkage
    // table.
    return reinterpret_cast<std::uintptr_t>(::dlsym(RTLD_DEFAULT, name));
}

// The memory of the function or variable at an address; empty when its size is unknown.
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

// The host calls this while it holds its second lock. That reveals where both locks are in the
// dynamic linker's data: the second is the one that the caller owns, the first precedes it.
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
    return 1; // one module is enough
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

bool is_lockless(std::uintptr_t address)
{
    return std::any_of(std::begin(lockless_functions), std::end(lockless_functions),
                       [=](code_range const & range) { return range.holds(address); });
}

bool is_return_into_library(std::uintptr_t word)
{
    return is_library_code(word)
        && is_behind_call(
               *reinterpret_cast<unsigned char const(*)[longest_call]>(word - longest_call));
}

// True if a word on the stack is a return address into code that is not the library's. The word may
// be anything: the host finds its module, without a lock, and then the code is read.
bool is_return_elsewhere(std::uintptr_t word)
{
#if __GLIBC_PREREQ(2, 35)
    dl_find_object module{};
    constexpr std::uintptr_t lowest = 0x10000;
    if (word < lowest || is_library_code(word)
        || ::_dl_find_object(reinterpret_cast<void *>(word), &module) != 0) {
        return false;
    }
    unsigned char code[longest_call];
    iovec const local{code, sizeof code};
    iovec const remote{reinterpret_cast<void *>(word - sizeof code), sizeof code};
    return ::syscall(SYS_process_vm_readv, ::getpid(), &local, 1, &remote, 1, 0) == sizeof code
        && is_behind_call(code);
#else
    static_cast<void>(word);
    return false;
#endif
}

struct stack_content {
    std::uintptr_t entry = 0; // in the library function that the thread called last; or 0
    bool has_inner_frames = false; // that function has called others of the library
    bool has_caller = false; // the frame that called it was found
    bool has_outer_frames = false; // the library has called the caller
    bool has_interrupted_library = false; // a signal handler interrupted the library's code
};

// Frames are between the stack pointer and the stack's end. On another stack (of a signal, or of
// the program's own stack switching) only the part that certainly exists is read.
[[gnu::no_sanitize_address]] stack_content
look_at_stack(stopped_thread const & at, std::uintptr_t end, std::uintptr_t restorer)
{
    constexpr std::uintptr_t page = 4096;
    bool const is_own = at.stack < end && end - at.stack < stack_size;
    auto * const last
        = reinterpret_cast<std::uintptr_t *>(is_own ? end : (at.stack | (page - 1)) + 1);
    auto * word = reinterpret_cast<std::uintptr_t *>((at.stack + 7) & ~std::uintptr_t{7});
    stack_content found;
    if (is_library_code(at.place)) {
        found.entry = at.place;
    }
    for (; word < last; ++word) {
        std::uintptr_t const address = without_signature(*word);
        if (address == restorer) {
            found.has_interrupted_library = found.has_interrupted_library
                || is_library_code(place_below_handler(word,
                                                       reinterpret_cast<std::uintptr_t>(last)));
        } else if (is_return_into_library(address)) {
            if (found.has_caller) {
                found.has_outer_frames = found.has_outer_frames || !is_lockless(address);
            } else {
                found.entry = address;
                found.has_inner_frames = true;
            }
        } else if (found.entry != 0 && !found.has_caller && is_return_elsewhere(address)) {
            found.has_caller = true;
        }
    }
    return found;
}

library_work judge(stopped_thread const & at, stack_content const & stack)
{
    if (holds_loader_lock() || stack.has_interrupted_library) {
        return library_work::certainly;
    }
    library_work const outer = stack.has_outer_frames ? library_work::perhaps : library_work::none;
    bool const is_asleep = at.sleep != stopped_thread::in_no_call;
    if (stack.entry == 0 || (is_lockless(stack.entry) && (is_asleep || !stack.has_inner_frames))) {
        return outer;
    }
    if (!is_library_code(at.place)) {
        return library_work::perhaps;
    }
    if (!is_asleep) {
        return library_work::certainly;
    }
    if (!stack.has_inner_frames) {
        return outer; // in a bare system call
    }
    if (at.call == SYS_futex) {
        // Only the library's own locks are waited for in this way. Condition variables, joins and
        // the like use other operations, and a thread in one of them holds no such lock.
        bool const is_for_lock = (static_cast<int>(at.arguments[1]) & FUTEX_CMD_MASK) == FUTEX_WAIT;
        return is_for_lock ? library_work::certainly : outer;
    }
    return library_work::perhaps;
}

} // namespace

void prepare_library_work() noexcept
{
    std::uintptr_t marks[] = {address_of_function("malloc"), address_of_function("syscall"),
                              address_of_function("__tls_get_addr")};
    ::dl_iterate_phdr(add_library_code, marks);
    std::transform(std::begin(lockless_names), std::end(lockless_names), lockless_functions,
                   [](char const * name) { return extent_of(::dlsym(RTLD_DEFAULT, name)); });
    code_range loader = extent_of(::dlsym(RTLD_DEFAULT, "_rtld_global"));
    ::dl_iterate_phdr(find_loader_locks, &loader);

    // The unwinder's initialisation must not happen in a signal handler.
    ::_Unwind_Backtrace([](_Unwind_Context *, void *) { return _URC_NORMAL_STOP; }, nullptr);

    pthread_attr_t attributes;
    if (::pthread_attr_init(&attributes) == 0) {
        ::pthread_attr_getstacksize(&attributes, &stack_size);
        ::pthread_attr_destroy(&attributes);
    }
}

bool is_library_code(std::uintptr_t address) noexcept
{
    return std::any_of(
        library_code, library_code + library_code_count,
        [=](code_range const & range) { return range.holds(address - longest_call); });
}

library_work library_work_below(stopped_thread const & at, std::uintptr_t stack_end,
                                std::uintptr_t restorer) noexcept
{
    stopped_thread here = at;
    here.place = 0; // ignore the call in which it stopped
    return holds_loader_lock() || look_at_stack(here, stack_end, restorer).has_interrupted_library
        ? library_work::certainly
        : library_work::none;
}

#if defined(_LIBCPP_VERSION) || !__GLIBC_PREREQ(2, 35)

// The unwinder takes a lock of the loader.
frames_of_library frames_from(std::uintptr_t, std::uintptr_t) noexcept
{
    return {nullptr, false, false};
}

#else

frames_of_library frames_from(std::uintptr_t place, std::uintptr_t stack_end) noexcept
{
    struct search {
        std::uintptr_t from, stack_end, stack; // the last: where the frame before ended
        bool has_begun, has_left; // passed the first place; left the library, or was never in it
        frames_of_library result;
    } state{place, stack_end, 0, false, false, {nullptr, false, false}};
    ::_Unwind_Backtrace(
        [](_Unwind_Context * frame, void * data) {
            auto & its = *static_cast<search *>(data);
            std::uintptr_t const here = ::_Unwind_GetIP(frame);
            std::uintptr_t const stack = ::_Unwind_GetCFA(frame);
            its.has_begun = its.has_begun || here == its.from;
            if (!its.has_begun) {
                return _URC_NO_REASON;
            }
            if (stack > its.stack_end || is_caught_return(here)) {
                its.result.is_complete = stack > its.stack_end;
                return _URC_NORMAL_STOP;
            }
            if (!is_library_code(here)) {
                if (!its.has_left && here != its.from) {
                    its.result.way_out = place_of_return(here, its.stack, stack);
                }
                its.has_left = true;
            } else if (its.has_left && !is_lockless(here)) {
                its.result.has_outer = true;
            }
            its.stack = stack;
            return _URC_NO_REASON;
        },
        &state);
    return state.result;
}

#endif

library_work library_work_at(stopped_thread const & at, std::uintptr_t stack_end,
                             std::uintptr_t restorer) noexcept
{
    stack_content stack = look_at_stack(at, stack_end, restorer);
    if (stack.has_outer_frames && is_library_code(at.place)) {
        frames_of_library const frames = frames_from(at.place, stack_end);
        stack.has_outer_frames = !frames.is_complete || frames.has_outer;
    }
    return judge(at, stack);
}

library_work library_work_behind(std::uintptr_t place, std::uintptr_t stack,
                                 std::uintptr_t stack_end, std::uintptr_t restorer) noexcept
{
    stopped_thread const at{place, stack, stopped_thread::in_no_call, 0, {0, 0, 0}};
    stack_content content = look_at_stack(at, stack_end, restorer);
    if (content.entry != 0) {
        frames_of_library const frames = frames_from(place, stack_end);
        if (frames.is_complete && !frames.has_outer) {
            content.entry = 0;
            content.has_outer_frames = false;
        }
    }
    return judge(at, content);
}

} // namespace zel::platform
