// SPDX-License-Identifier: MIT
//
// How threads are stopped.
//
// A thread is stopped by a signal. Its handler, with all other signals blocked, sleeps until the
// thread is resumed, or ends the thread by the bare system call, so that nothing of the thread runs
// any more. Inside `uninterrupted` the handler only breaks off a sleep; the thread then stops by
// sending itself the signal when it comes out.
//
// A terminated thread cannot give its stack back. It puts itself into the graveyard, a list without
// a lock, as its last deed; the terminating thread, any waiter, or the next thread that is started
// or closed buries it.

#include "zel/platform/last_error.h"
#include "zel/platform/threads/this_thread_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

namespace zel::platform {

[[gnu::tls_model("initial-exec")]] constinit thread_local this_thread_state this_thread{
    nullptr, &nobody_stops, 0, false, false, 0, {nullptr, nullptr}, 0, 0};

namespace {

constexpr std::int64_t nanoseconds_a_millisecond = 1'000'000;
constexpr std::int64_t grace = 20 * nanoseconds_a_millisecond; // to come out of the C library
constexpr std::int64_t between_looks = 10 * nanoseconds_a_millisecond;

// A real-time signal: no other of its number is merged with it, and the C library keeps the two
// below SIGRTMIN for itself.
int stop_signal() { return SIGRTMIN + ZEL_STOP_SIGNAL; }

bool send_stop_signal(std::uint32_t id)
{
    // The number of a thread that has ended is free for others, but the host hands numbers out in
    // turn: not before all of them were used. A thread that is not told to stop ignores the signal.
    return ::syscall(SYS_tgkill, ::getpid(), id, stop_signal()) == 0;
}

// The code of the C library, the dynamic linker and a heap that took the C library's place. Filled
// in before the first thread starts.
struct code_range {
    std::uintptr_t begin;
    std::uintptr_t end;
};
constinit code_range library_code[8]{};
constinit std::size_t library_code_count = 0;

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

// Whether a thread that was interrupted with these registers may hold a lock of the C library. One
// that sleeps in a system call may not: what the library does under its locks does not sleep, but
// for the locks themselves and for streams.
bool is_in_library_work(greg_t const * registers)
{
    auto const place = static_cast<std::uintptr_t>(registers[REG_RIP]);
    bool const in_library = std::any_of(
        library_code, library_code + library_code_count,
        [&](code_range const & range) { return place >= range.begin && place < range.end; });
    if (!in_library) {
        return false;
    }
    constexpr unsigned char system_call[] = {0x0F, 0x05};
    auto const * const code = reinterpret_cast<unsigned char const *>(registers[REG_RIP]);
    if (std::memcmp(code - sizeof system_call, system_call, sizeof system_call) == 0) {
        return registers[REG_RAX] != -EINTR; // broken off for good
    }
    if (std::memcmp(code, system_call, sizeof system_call) == 0) {
        // Broken off, to be made again; or not made yet, which counts for those of the heap.
        constexpr greg_t of_the_heap[]
            = {SYS_brk, SYS_mmap, SYS_munmap, SYS_mremap, SYS_mprotect, SYS_madvise};
        return std::find(std::begin(of_the_heap), std::end(of_the_heap), registers[REG_RAX])
            != std::end(of_the_heap);
    }
    return true;
}

// One more than the number of the slot of the thread that was terminated last and is not buried;
// `next_free` of its slot leads to the one before it.
constinit atomic<std::uint32_t> graveyard{0};

[[noreturn]] void leave_for_good(handle_slot & slot)
{
    abandon_holds(false);

    // The next thread on this stack gets the C library's descriptor as it is: it must not find the
    // values of this one under its keys, or call destructors with them. No lock and no heap here.
    for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key) {
        ::pthread_setspecific(key, nullptr);
    }

    thread_record & record = record_of(slot);
    std::uint32_t const number = slot.number + 1;
    std::uint32_t top = graveyard.load(std::memory_order_relaxed);
    do {
        slot.next_free.store(top, std::memory_order_relaxed);
    } while (!graveyard.compare_exchange_weak(top, number, std::memory_order_acq_rel));

    // The record stays until somebody has seen the host clear this thread away.
    record.control.fetch_or(gone, std::memory_order_acq_rel);
    record.end.store(unburied, std::memory_order_release);
    wake_address(record.control, INT_MAX, false);
    wake_address(record.end, INT_MAX, false);
    for (;;) {
        ::syscall(SYS_exit,
                  0); // of this thread; the kernel tells the C library's thread descriptor
    }
}

void bury(handle_slot & slot)
{
    thread_record & record = record_of(slot);
    join(record);
    if (record.teardown.function != nullptr) {
        record.teardown.function(record.teardown.data);
    }
    record.exit_code.store(word_of(record.wanted_code.load(std::memory_order_relaxed)),
                           std::memory_order_relaxed);
    record.end.store(ended, std::memory_order_release);
    wake_address(record.end, INT_MAX, false);
    let_go(slot);
}

// On the signal's stack frame of the thread that is told to stop.
void park(handle_slot & slot, greg_t const * registers)
{
    atomic<std::uint32_t> & control = record_of(slot).control;
    std::uint32_t now = control.load(std::memory_order_acquire);
    for (;;) {
        if ((now & end_wanted) != 0) {
            if ((now & end_forced) != 0 || this_thread.at_rest.load(std::memory_order_relaxed)
                || !is_in_library_work(registers)) {
                leave_for_good(slot);
            }
            // It goes on; whoever terminates it sees that and sends the signal again.
            if (control.compare_exchange_weak(now, (now & ~parked) + postponement)) {
                wake_address(control, INT_MAX, false);
                return;
            }
        } else if ((now & suspensions_mask) == 0) {
            // One step: whoever suspends sees the thread parked, or not and then signals again.
            if (control.compare_exchange_weak(now, now & ~parked)) {
                return;
            }
        } else if ((now & parked) == 0) {
            if (control.compare_exchange_weak(now, now | parked)) {
                now |= parked;
                wake_address(control, INT_MAX, false);
            }
        } else {
            wait_on_address(control, now, -1, false);
            now = control.load(std::memory_order_acquire);
        }
    }
}

void on_stop_signal(int, siginfo_t *, void * context)
{
    handle_slot * const slot = this_thread.slot;
    if (slot == nullptr) {
        return;
    }
    if (this_thread.depth.load(std::memory_order_relaxed) != 0) {
        if ((this_thread.control->load(std::memory_order_relaxed) & stop_mask) != 0) {
            leave_interruptible_wait(context);
        }
        return;
    }
    int const saved = errno;
    park(*slot, static_cast<ucontext_t *>(context)->uc_mcontext.gregs);
    errno = saved;
}

// proc(5): SigBlk is a mask in hexadecimal, signal 1 in its lowest bit. Nothing here allocates.
bool is_stop_signal_blocked(std::uint32_t id)
{
    char name[64] = "/proc/self/task/";
    char digits[16];
    std::size_t length = 0;
    for (; id != 0; id /= 10) {
        digits[length++] = static_cast<char>('0' + id % 10);
    }
    char * end = name + std::strlen(name);
    end = std::reverse_copy(digits, digits + length, end);
    std::memcpy(end, "/status", sizeof "/status");

    int const file = ::open(name, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    char text[4096];
    ssize_t const size = ::read(file, text, sizeof text - 1);
    ::close(file);
    text[std::max<ssize_t>(size, 0)] = '\0';
    char const * digit = std::strstr(text, "\nSigBlk:\t");
    if (digit == nullptr) {
        return false;
    }
    std::uint64_t mask = 0;
    for (digit += sizeof "\nSigBlk:\t" - 1; *digit > ' '; ++digit) {
        mask = mask << 4
            | static_cast<std::uint64_t>(*digit <= '9' ? *digit - '0' : *digit - 'a' + 10);
    }
    return (mask >> (stop_signal() - 1) & 1) != 0;
}

// One wish to stop another thread, as long as it is waited for.
class stop_request {
public:
    explicit stop_request(thread_record & record)
        : record_(record)
    {
    }

    void send() { pending_ = !send_stop_signal(record_.id.load(std::memory_order_relaxed)); }

    // Sleeps until `control` is not `now` any more, or the calling thread is told to stop itself.
    // Returns false when the thread blocks the signal: it was always seen to, so that it is not one
    // of the moments in which the C library does.
    bool wait(std::uint32_t now)
    {
        wake_reason const reason
            = wait_interruptibly(record_.control, now, monotonic_now() + between_looks, false);
        if (reason != wake_reason::late) {
            return true;
        }
        if (pending_) { // too many signals of the user wait for delivery
            send();
        }
        bool const blocked = record_.start.load(std::memory_order_acquire) == stoppable
            && is_stop_signal_blocked(record_.id.load(std::memory_order_relaxed));
        blocked_looks_ = blocked ? blocked_looks_ + 1 : 0;
        return blocked_looks_ < 5;
    }

private:
    thread_record & record_;
    int blocked_looks_ = 0;
    bool pending_ = false;
};

void sleep_for(std::int64_t nanoseconds)
{
    timespec const span{0, nanoseconds};
    ::clock_nanosleep(CLOCK_MONOTONIC, 0, &span, nullptr);
}

enum class outcome { done, refused, told_to_stop_oneself };

outcome wait_until_parked(thread_record & record, bool signal)
{
    stop_request request(record);
    if (signal) {
        request.send();
    }
    for (;;) {
        std::uint32_t now = record.control.load(std::memory_order_acquire);
        if ((now & (parked | gone | past_stops)) != 0 || (now & suspensions_mask) == 0) {
            return outcome::done; // stopped; or ended or resumed by another thread since
        }
        if (told_to_stop()) {
            return outcome::told_to_stop_oneself;
        }
        if (!request.wait(now)) {
            now = record.control.load(std::memory_order_acquire);
            while ((now & suspensions_mask) != 0
                   && !record.control.compare_exchange_weak(now, now - 1)) { }
            wake_address(record.control, INT_MAX, false);
            return outcome::refused;
        }
    }
}

// Returns false when the thread has ended by itself, or is about to.
bool want_end(thread_record & record, std::uint32_t exit_code)
{
    std::uint64_t none = 0;
    record.wanted_code.compare_exchange_strong(none, std::uint64_t{1} << 32 | exit_code);
    std::uint32_t now = record.control.load(std::memory_order_acquire);
    do {
        if ((now & past_stops) != 0) {
            return false;
        }
    } while ((now & end_wanted) == 0
             && !record.control.compare_exchange_weak(now, now | end_wanted));
    if ((now & parked) != 0) {
        wake_address(record.control, INT_MAX, false);
    }
    return true;
}

outcome wait_until_gone(thread_record & record, std::int64_t forced_at)
{
    stop_request request(record);
    std::uint32_t const at_first = record.control.load(std::memory_order_acquire);
    if ((at_first & parked) == 0) { // else it was woken
        request.send();
    }
    std::uint32_t postponed = at_first / postponement;
    bool runs_on = false; // it was stopped, and goes on just to leave the C library
    for (;;) {
        std::uint32_t const now = record.control.load(std::memory_order_acquire);
        if ((now & gone) != 0) {
            break;
        }
        if ((now & end_wanted) == 0) {
            return outcome::refused; // another terminating thread has found the signal blocked
        }
        if (!runs_on && told_to_stop()) {
            return outcome::told_to_stop_oneself;
        }
        if (now / postponement != postponed) {
            runs_on = true;
            postponed = now / postponement;
            if (monotonic_now() >= forced_at) {
                record.control.fetch_or(end_forced, std::memory_order_acq_rel);
            } else {
                sleep_for(10'000); // for the thread to get on, also on one processor
            }
            request.send();
        } else if (!request.wait(now)) {
            std::uint32_t seen = record.control.load(std::memory_order_acquire);
            while ((seen & gone) == 0
                   && !record.control.compare_exchange_weak(seen,
                                                            seen & ~(end_wanted | end_forced))) { }
            if ((seen & gone) == 0) {
                record.wanted_code.store(0, std::memory_order_relaxed);
                wake_address(record.control, INT_MAX, false);
                return outcome::refused;
            }
        }
    }
    visit_graveyard();
    while (record.end.load(std::memory_order_acquire) != ended) {
        wait_on_address(record.end, unburied, -1, false);
        visit_graveyard(); // it may have been on its way there
    }
    return outcome::done;
}

} // namespace

handle_slot * pinned_thread(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    if (slot == nullptr || kind_of(handle) != handle_kind::thread || !pin(*slot, handle)) {
        set_last_error(error_invalid_handle);
        return nullptr;
    }
    return slot;
}

void prepare_stops() noexcept
{
    // Names, not addresses of functions: those may be those of the program's linkage table.
    std::uintptr_t marks[] = {
        reinterpret_cast<std::uintptr_t>(::dlsym(RTLD_DEFAULT, "malloc")),
        reinterpret_cast<std::uintptr_t>(::dlsym(RTLD_DEFAULT, "syscall")),
        reinterpret_cast<std::uintptr_t>(::dlsym(RTLD_DEFAULT, "__tls_get_addr")),
    };
    ::dl_iterate_phdr(add_library_code, marks);

    // System calls of the stopped thread go on after its resume where the host can do that.
    struct sigaction action { };
    action.sa_sigaction = on_stop_signal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    ::sigfillset(&action.sa_mask);
    ::sigaction(stop_signal(), &action, nullptr);
}

void admit_stop_signal() noexcept
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, stop_signal());
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void visit_graveyard() noexcept
{
    if (graveyard.load(std::memory_order_acquire) == 0) {
        return;
    }
    std::uint32_t number = graveyard.exchange(0, std::memory_order_acq_rel);
    while (number != 0) {
        handle_slot & slot = slot_numbered(number - 1);
        number = slot.next_free.load(std::memory_order_relaxed);
        bury(slot);
    }
}

void forget_graveyard() noexcept { graveyard.store(0, std::memory_order_relaxed); }

void stop_here() noexcept
{
    if (!(this_thread.control->load(std::memory_order_acquire) & stop_mask)) {
        return;
    }
    int const saved = errno;
    this_thread.at_rest.store(true, std::memory_order_relaxed);
    signal_fence();
    send_stop_signal(current_thread_id()); // delivered before the call returns
    signal_fence();
    this_thread.at_rest.store(false, std::memory_order_relaxed);
    errno = saved;
}

uninterrupted::uninterrupted() noexcept
{
    atomic<std::uint32_t> & depth = this_thread.depth;
    depth.store(depth.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    signal_fence();
}

uninterrupted::~uninterrupted()
{
    signal_fence();
    atomic<std::uint32_t> & depth = this_thread.depth;
    std::uint32_t const left = depth.load(std::memory_order_relaxed) - 1;
    depth.store(left, std::memory_order_relaxed);
    signal_fence();
    // A wish that comes after this look finds the depth at 0.
    if (left == 0) {
        stop_here();
    }
}

bool told_to_stop() noexcept
{
    return (this_thread.control->load(std::memory_order_acquire) & stop_mask) != 0;
}

void stop_if_told() noexcept
{
    if (!told_to_stop()) {
        return;
    }
    this_thread.depth.store(0, std::memory_order_relaxed);
    stop_here();
    this_thread.depth.store(1, std::memory_order_relaxed);
    signal_fence();
}

std::uint32_t suspend_thread(void * handle) noexcept
{
    std::uint32_t before = 0xFFFFFFFF;
    for (bool counted = false;; counted = true) {
        uninterrupted const guard;
        handle_slot * const slot = pinned_thread(handle);
        if (slot == nullptr) {
            return before; // closed since, if it was counted
        }
        thread_record & record = record_of(*slot);
        if (!counted) {
            std::uint32_t now = record.control.load(std::memory_order_acquire);
            do {
                bool const too_late = (now & (past_stops | end_wanted)) != 0;
                if (too_late || (now & suspensions_mask) == suspensions_mask) {
                    set_last_error(too_late ? error_access_denied : error_signal_refused);
                    let_go(*slot);
                    return before;
                }
            } while (!record.control.compare_exchange_weak(now, now + 1));
            before = now & suspensions_mask;
        }
        if (slot == this_thread.slot) {
            admit_stop_signal();
            let_go(*slot);
            return before; // after the resume: the end of `guard` stops
        }
        outcome const result = wait_until_parked(record, !counted && before == 0);
        let_go(*slot);
        if (result == outcome::done) {
            return before;
        }
        if (result == outcome::refused) {
            set_last_error(error_signal_refused);
            return 0xFFFFFFFF;
        }
        stop_if_told();
    }
}

std::uint32_t resume_thread(void * handle) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return 0xFFFFFFFF;
    }
    atomic<std::uint32_t> & control = record_of(*slot).control;
    std::uint32_t now = control.load(std::memory_order_acquire);
    while ((now & suspensions_mask) != 0 && !control.compare_exchange_weak(now, now - 1)) { }
    std::uint32_t const before = now & suspensions_mask;
    if (before == 1) {
        wake_address(control, INT_MAX, false);
    }
    let_go(*slot);
    return before;
}

bool terminate_thread(void * handle, std::uint32_t exit_code) noexcept
{
    std::int64_t const forced_at = monotonic_now() + grace;
    for (bool asked = false;; asked = true) {
        uninterrupted const guard;
        handle_slot * const slot = pinned_thread(handle);
        if (slot == nullptr) {
            return asked; // closed since: nobody can tell any more
        }
        thread_record & record = record_of(*slot);
        if (!asked && !want_end(record, exit_code)) {
            let_go(*slot);
            return true;
        }
        if (slot == this_thread.slot) {
            admit_stop_signal();
            let_go(*slot);
            return true; // never seen: the end of `guard` does not come back
        }
        outcome const result = wait_until_gone(record, forced_at);
        let_go(*slot);
        if (result == outcome::done) {
            return true;
        }
        if (result == outcome::refused) {
            set_last_error(error_signal_refused);
            return false;
        }
        stop_if_told();
    }
}

} // namespace zel::platform
