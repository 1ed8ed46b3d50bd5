// SPDX-License-Identifier: MIT
#include "tests/explorer/explorer.h"

#include "zel/base/atomic.h"
#include "zel/platform/objects/robust_list_linux.h"
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <unordered_set>

// void zel_switch_stack(void ** save, void * to): keeps the caller's registers on its stack and
// goes on where the other stack was left.
extern "C" void zel_switch_stack(void ** save, void * to);
asm(R"(
    .text
    .globl zel_switch_stack
    .type zel_switch_stack, @function
zel_switch_stack:
    pushq %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    movq %rsp, (%rdi)
    movq %rsi, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rbx
    popq %rbp
    ret
)");

namespace zel::explorer {

using platform::owner_died;
using platform::thread_mask;
using platform::waiters_flag;

bool old_kernel = false;

namespace {

constexpr std::size_t stack_size = 16384;
constexpr int most_steps = 5'000; // of one schedule: more is a loop without an end

/// All that changes while threads run, apart from their stacks and from words of static storage.
struct world {
    thread_state threads[most_threads];
    std::uint8_t sleepers[most_threads]; // in the order in which they fell asleep
    int sleeping;
    int count; // threads that were started
    int current;
    int preemptions, kills, stops; // that are left
    bool audited;
    alignas(128) std::byte room[scenario_size];
};

alignas(4096) std::byte stacks[most_threads][stack_size];
world now;
scenario * running_scenario = nullptr;
std::size_t world_size = sizeof now; // as far as the scenario needs it
void * scheduler_stack = nullptr;
bool on_thread = false;
char const * failure = nullptr;
bool tracing = false;

struct static_word {
    void * address;
    std::size_t size;
    std::uint64_t first; // before anybody changed it
};
std::vector<static_word> static_words;

template <class T> bool lies_in(void const * address, T const & what)
{
    auto const place = reinterpret_cast<std::uintptr_t>(address);
    auto const begin = reinterpret_cast<std::uintptr_t>(&what);
    return place >= begin && place < begin + sizeof what;
}

std::uint64_t value_at(void const * address, std::size_t size)
{
    std::uint64_t value = 0;
    std::memcpy(&value, address, std::min(size, sizeof value));
    return value;
}

void meet(void const * word, std::size_t size)
{
    if (lies_in(word, now) || lies_in(word, stacks)) {
        return;
    }
    for (static_word const & known : static_words) {
        if (known.address == word) {
            return;
        }
    }
    static_words.push_back({const_cast<void *>(word), size, value_at(word, size)});
}

void reset_static_words()
{
    for (static_word const & word : static_words) {
        std::memcpy(word.address, &word.first, word.size);
    }
}

void switch_to_scheduler()
{
    zel_switch_stack(&now.threads[now.current].stack_pointer, scheduler_stack);
}

void wake_up(int thread, std::uint8_t reason)
{
    std::uint8_t * const end = now.sleepers + now.sleeping;
    now.sleeping = static_cast<int>(
        std::remove(now.sleepers, end, static_cast<std::uint8_t>(thread)) - now.sleepers);
    now.threads[thread].where = condition::ready;
    now.threads[thread].reason = reason;
}

int wake_sleepers(void const * word, int count, bool shared)
{
    int woken_now = 0;
    for (int i = 0; i < now.sleeping && woken_now < count;) {
        int const thread = now.sleepers[i];
        if (now.threads[thread].word == word && now.threads[thread].shared == shared) {
            wake_up(thread, woken);
            ++woken_now;
        } else {
            ++i;
        }
    }
    return woken_now;
}

/// \name The kernel's side of a thread's death
/// @{
void look_at(std::uintptr_t entry, bool announced)
{
    auto * const word = reinterpret_cast<std::uint32_t *>((entry & ~std::uintptr_t{1}) - 32);
    step("the kernel looks at", word, sizeof *word, "death", 0);
    std::uint32_t const value = *word;
    if (announced && (old_kernel ? value : value & thread_mask) == 0) {
        wake(word, 1, true);
    } else if ((value & thread_mask) == host_number()) {
        *word = (value & waiters_flag) | owner_died;
        if ((value & waiters_flag) != 0) {
            wake(word, 1, true);
        }
    }
}

void die()
{
    std::uintptr_t const * const list = running()->list;
    std::uintptr_t const end = reinterpret_cast<std::uintptr_t>(list);
    for (std::uintptr_t entry = list[0]; entry != end;) {
        std::uintptr_t const next = value_at(reinterpret_cast<void *>(entry & ~1UL), 8);
        if (entry != list[2]) {
            look_at(entry, false);
        }
        entry = next;
    }
    if (list[2] != 0) {
        look_at(list[2], true);
    }
}
/// @}

void thread_main()
{
    int const self = now.current;
    if (now.threads[self].dying) {
        die();
    } else if (self == running_scenario->threads()) {
        running_scenario->audit();
    } else {
        running_scenario->run(self);
    }
    now.threads[self].where = condition::ended;
    for (;;) {
        switch_to_scheduler();
    }
}

void put_on_fresh_stack(int thread)
{
    std::memset(stacks[thread], 0, stack_size);
    auto * const top = reinterpret_cast<std::uintptr_t *>(stacks[thread] + stack_size);
    top[-2] = reinterpret_cast<std::uintptr_t>(thread_main);
    now.threads[thread].stack_pointer = top - 8; // six registers below the address to return to
}

void start(int thread)
{
    thread_state & state = now.threads[thread];
    state = thread_state{};
    state.list[0] = reinterpret_cast<std::uintptr_t>(&state.list[0]);
    state.started = true;
    put_on_fresh_stack(thread);
    now.count = std::max(now.count, thread + 1);
}

/// \name What may come next
/// @{
enum class deed : std::uint8_t { run, time_out, resume, kill, stop, signal };
struct option {
    deed what;
    std::uint8_t thread;
};
struct options {
    option list[6 * most_threads];
    int count = 0;
    bool quiet = false;
    void add(deed what, int thread) { list[count++] = {what, static_cast<std::uint8_t>(thread)}; }
};

bool is_ready(int thread) { return now.threads[thread].where == condition::ready; }

options what_may_come()
{
    options may;
    bool const goes_on = is_ready(now.current);
    bool const may_change = !goes_on || now.preemptions > 0;
    if (goes_on) {
        may.add(deed::run, now.current);
    }
    may.quiet = !goes_on;
    for (int i = 0; i < now.count; ++i) {
        if (i != now.current && is_ready(i)) {
            may.quiet = false;
            if (may_change) {
                may.add(deed::run, i);
            }
        }
    }
    if (may.quiet) {
        running_scenario->quiet();
    }
    bool const time_passes = may.quiet || now.preemptions > 0;
    for (int i = 0; i < now.count; ++i) {
        thread_state const & state = now.threads[i];
        if (time_passes && state.where == condition::asleep && state.limited) {
            may.add(deed::time_out, i);
        }
        if (time_passes && state.where == condition::parked) {
            may.add(deed::resume, i);
        }
    }
    if (may.count == 0 && !now.audited) {
        now.audited = true;
        now.preemptions = now.kills = now.stops = 0;
        now.current = running_scenario->threads();
        start(now.current);
        may.quiet = false;
        may.add(deed::run, now.current);
        return may;
    }
    for (int i = 0; i < now.count && may.count > 0; ++i) {
        thread_state const & state = now.threads[i];
        if (state.where == condition::ended || state.dying) {
            continue;
        }
        if (now.kills > 0 && (running_scenario->dies_anywhere(i) || state.depth == 0)) {
            may.add(deed::kill, i);
        }
        if (now.stops > 0 && !state.told) {
            may.add(deed::stop, i);
            if (state.where == condition::asleep && state.interruptible) {
                may.add(deed::signal, i);
            }
        }
    }
    return may;
}

void trace(char const * what, int thread)
{
    if (tracing) {
        std::printf("    -- %s %s\n", running_scenario->title(thread), what);
    }
}

void run_until_the_next_step()
{
    on_thread = true;
    zel_switch_stack(&scheduler_stack, now.threads[now.current].stack_pointer);
    on_thread = false;
}

void follow(options const & may, option choice)
{
    int const thread = choice.thread;
    thread_state & state = now.threads[thread];
    bool const changes = thread != now.current && is_ready(now.current);
    switch (choice.what) {
    case deed::time_out:
        trace("has waited long enough", thread);
        now.preemptions -= may.quiet ? 0 : 1;
        wake_up(thread, timed_out);
        break;
    case deed::resume:
        trace("is resumed", thread);
        now.preemptions -= may.quiet ? 0 : 1;
        state.told = false;
        state.where = condition::ready;
        break;
    case deed::kill:
        trace("is killed", thread);
        now.kills -= 1;
        wake_up(thread, woken);
        state.dying = true;
        put_on_fresh_stack(thread);
        running_scenario->killed(thread);
        return;
    case deed::stop:
        trace("is told to stop", thread);
        now.stops -= 1;
        state.told = true;
        running_scenario->disturbed(thread);
        if (state.where == condition::asleep && state.interruptible) {
            wake_up(thread, interrupted);
        } else if (state.where == condition::ready && state.depth == 0) {
            state.where = condition::parked;
        }
        return;
    case deed::signal:
        trace("handles a signal", thread);
        now.stops -= 1;
        running_scenario->disturbed(thread);
        // A handler with SA_RESTART makes the kernel begin the call again; with a limit it ends.
        wake_up(thread, state.limited ? interrupted : restarted);
        return;
    case deed::run:
        now.preemptions -= changes ? 1 : 0;
        break;
    }
    now.current = thread;
    run_until_the_next_step();
}
/// @}

void begin(entry const & what, bounds const & limits)
{
    reset_static_words();
    std::memset(&now, 0, sizeof now);
    failure = nullptr;
    running_scenario = what.make(now.room);
    world_size = (offsetof(world, room) + what.size + 7) / 8 * 8;
    running_scenario->begin();
    now.preemptions = limits.preemptions;
    now.kills = limits.kills;
    now.stops = limits.stops;
    for (int i = 0; i < running_scenario->threads(); ++i) {
        start(i);
    }
}

/// \name Moments that are gone back to
/// @{
// All that a moment consists of; `now` first, for it says how far the stacks go.
template <class Function> void for_each_piece(Function function)
{
    function(&now, world_size);
    for (int i = 0; i < now.count; ++i) {
        auto * const begin = static_cast<std::byte *>(now.threads[i].stack_pointer);
        function(begin, static_cast<std::size_t>(stacks[i] + stack_size - begin));
    }
    for (static_word const & word : static_words) {
        function(word.address, word.size);
    }
}

struct moment {
    std::vector<std::byte> bytes;
    std::size_t path = 0; // how many choices led here
    int next = 1; // choice to follow on the next visit

    void keep()
    {
        bytes.clear();
        for_each_piece([this](void const * from, std::size_t size) {
            auto const * const first = static_cast<std::byte const *>(from);
            bytes.insert(bytes.end(), first, first + size);
        });
    }

    // Static words that nobody had met yet are what they were at first.
    void go_back() const
    {
        reset_static_words();
        std::size_t done = 0;
        for_each_piece([&](void * to, std::size_t size) {
            if (done < bytes.size()) {
                std::memcpy(to, bytes.data() + done, size);
                done += size;
            }
        });
    }
};

std::uint64_t times_odd(std::uint64_t value)
{
    __extension__ using wide = unsigned __int128;
    wide const product = wide{value} * 0x9E3779B97F4A7C15u;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// In two lanes, for speed: much of the time goes here.
std::uint64_t mix(std::uint64_t hash, void const * from, std::size_t size)
{
    auto const * bytes = static_cast<std::byte const *>(from);
    std::uint64_t other = ~hash;
    for (; size >= 16; size -= 16, bytes += 16) {
        hash = times_odd(hash ^ value_at(bytes, 8));
        other = times_odd(other ^ value_at(bytes + 8, 8));
    }
    for (; size >= 8; size -= 8, bytes += 8) {
        hash = times_odd(hash ^ value_at(bytes, 8));
    }
    return times_odd(hash ^ value_at(bytes, size)) + other;
}

std::uint64_t hash_of_now()
{
    std::uint64_t hash = 0x243F6A8885A308D3;
    for_each_piece([&](void const * from, std::size_t size) { hash = mix(hash, from, size); });
    return hash;
}
/// @}

bounds without_bound(bounds limits)
{
    limits.preemptions = 1'000'000;
    return limits;
}

constexpr char free_mark = 'r'; // in front of a schedule without a bound for preemptions

bool report(entry const & what, std::string const & path)
{
    std::printf("FAILED %s: %s\n", what.name.c_str(), failure);
    replay(what, path);
    return false;
}

bool is_too_long(std::string const & path)
{
    if (path.size() > most_steps) {
        failure = "a step without an end";
    }
    return failure != nullptr;
}

void add_figures(figures & sum, option choice, std::size_t length)
{
    sum.kills += choice.what == deed::kill ? 1 : 0;
    sum.stops += choice.what == deed::stop ? 1 : 0;
    sum.longest = std::max<std::uint64_t>(sum.longest, length);
}

} // namespace

void step(char const * what, void const * word, std::size_t size, char const * file,
          int line) noexcept
{
    meet(word, size);
    if (!on_thread) {
        return;
    }
    switch_to_scheduler();
    if (tracing) {
        char const * const slash = std::strrchr(file, '/');
        std::printf("    %-12s %s:%d %s %llx\n", running_scenario->title(now.current),
                    slash == nullptr ? file : slash + 1, line, what,
                    static_cast<unsigned long long>(value_at(word, size)));
    }
}

void note(char const * what) noexcept
{
    if (tracing && on_thread) {
        trace(what, now.current);
    }
}

thread_state * running() noexcept { return on_thread ? &now.threads[now.current] : nullptr; }
int running_number() noexcept { return now.current; }
std::uint32_t host_number() noexcept
{
    return running_scenario->number(on_thread ? now.current : most_threads);
}
condition condition_of(int thread) { return now.threads[thread].where; }
bool was_told(int thread) { return now.threads[thread].told; }
void leave() noexcept { switch_to_scheduler(); }

void fail(char const * why)
{
    if (failure == nullptr) {
        failure = why;
    }
    while (on_thread) {
        switch_to_scheduler();
    }
}

std::uint8_t sleep(void const * word, std::uint32_t expected, bool limited, bool shared,
                   bool interruptible) noexcept
{
    thread_state & self = *running();
    do {
        step("sleeps on", word, sizeof expected, "address_wait", 0);
        if (interruptible && self.told) {
            return interrupted;
        }
        if (value_at(word, sizeof expected) != expected) {
            return changed;
        }
        self.word = word;
        self.shared = shared;
        self.limited = limited;
        self.interruptible = interruptible;
        self.where = condition::asleep;
        now.sleepers[now.sleeping++] = static_cast<std::uint8_t>(now.current);
        if (interruptible) { // the others are brief locks
            running_scenario->fell_asleep(now.current);
        }
        switch_to_scheduler();
    } while (self.reason == restarted);
    return self.reason;
}

int wake(void const * word, int count, bool shared) noexcept
{
    step("wakes those on", word, 4, "address_wait", 0);
    return wake_sleepers(word, count, shared);
}

void store_and_wake_all(void * word, std::uint32_t value, bool shared) noexcept
{
    step("stores and wakes those on", word, sizeof value, "address_wait", 0);
    std::memcpy(word, &value, sizeof value);
    wake_sleepers(word, most_threads, shared);
}

bool exhaust(entry const & what, orders const & how, figures & sum)
{
    begin(what, what.limits);
    std::unordered_set<std::uint64_t> seen; // by a hash of each state
    std::uint64_t states = 0;
    std::string path; // the choices so far
    std::vector<moment> moments; // where choices are left
    std::size_t open = 0; // how many of them; the rest is kept for its memory
    for (;;) {
        options may = what_may_come();
        if (is_too_long(path)) {
            return report(what, path);
        }
        int choice = 0;
        bool const is_new = may.count == 1 || (may.count > 1 && seen.insert(hash_of_now()).second);
        if (is_new && may.count > 1) {
            if (++states > how.most_states) {
                sum.complete = false;
                break;
            }
            if (open == moments.size()) {
                moments.emplace_back();
            }
            moments[open].path = path.size();
            moments[open].next = 1;
            moments[open++].keep();
        } else if (!is_new) {
            ++sum.schedules;
            bool found = false;
            while (open > 0 && !found) {
                moment & last = moments[open - 1];
                last.go_back();
                may = what_may_come();
                choice = last.next++;
                path.resize(last.path);
                found = choice < may.count;
                open -= found ? 0 : 1;
            }
            if (!found) {
                break;
            }
        }
        path += static_cast<char>('0' + choice);
        add_figures(sum, may.list[choice], path.size());
        follow(may, may.list[choice]);
    }
    sum.states += states;
    return true;
}

// Each thread has a priority, and the first that is ready goes on. At a few moments the running one
// falls behind all others, and whatever else may happen does so at moments that are drawn, too.
bool run_at_random(entry const & what, orders const & how, figures & sum)
{
    std::mt19937_64 random(how.seed);
    auto const below
        = [&random](std::size_t end) { return static_cast<std::size_t>(random() % end); };
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(how.seconds);
    std::size_t usual_length = 100;
    do {
        begin(what, without_bound(what.limits));
        int priority[most_threads];
        for (int i = 0; i < most_threads; ++i) {
            priority[i] = static_cast<int>(below(1000));
        }
        std::vector<std::size_t> changes;
        std::vector<std::size_t> events;
        for (int i = 0; i < how.depth; ++i) {
            changes.push_back(below(usual_length));
            events.push_back(below(usual_length));
        }
        std::string path; // the choices so far
        for (int lowest = -1;;) {
            options const may = what_may_come();
            if (is_too_long(path)) {
                return report(what, free_mark + path);
            }
            if (may.count == 0) {
                break;
            }
            if (std::count(changes.begin(), changes.end(), path.size()) > 0) {
                priority[now.current] = lowest--;
            }
            bool const anything = std::count(events.begin(), events.end(), path.size()) > 0;
            std::size_t choice = 0;
            for (std::size_t i = 0; i < static_cast<std::size_t>(may.count); ++i) {
                bool const better = may.list[choice].what != deed::run
                    || priority[may.list[i].thread] > priority[may.list[choice].thread];
                choice = may.list[i].what == deed::run && better ? i : choice;
            }
            if (anything || may.list[choice].what != deed::run) {
                choice = below(static_cast<std::size_t>(may.count));
            }
            path += static_cast<char>('0' + choice);
            add_figures(sum, may.list[choice], path.size());
            follow(may, may.list[choice]);
        }
        usual_length = std::max<std::size_t>(path.size(), 10);
        ++sum.schedules;
    } while (std::chrono::steady_clock::now() < end);
    return true;
}

bool replay(entry const & what, std::string const & schedule)
{
    bool const is_free = schedule.front() == free_mark;
    begin(what, is_free ? without_bound(what.limits) : what.limits);
    tracing = true;
    for (char const digit : is_free ? schedule.substr(1) : schedule) {
        int const choice = digit - '0';
        options const may = what_may_come();
        if (failure != nullptr || choice >= may.count) {
            break;
        }
        follow(may, may.list[choice]);
    }
    if (failure == nullptr) {
        what_may_come(); // the last look
    }
    tracing = false;
    std::printf("    %s\n    --only '%s' --bounds %d,%d,%d --replay '%s'\n",
                failure == nullptr ? "nothing is wrong" : failure, what.name.c_str(),
                what.limits.preemptions, what.limits.kills, what.limits.stops, schedule.c_str());
    std::fflush(stdout);
    return failure == nullptr;
}

} // namespace zel::explorer
