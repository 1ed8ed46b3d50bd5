// SPDX-License-Identifier: MIT
#include "tests/explorer/scenarios.h"
#include "zel/base/atomic.h"
#include "zel/platform/objects/robust_list_linux.h"
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

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

/// All that changes while threads run, apart from their stacks, from what may be promised, and from
/// words of static storage.
struct world {
    thread_state threads[most_threads];
    std::uint8_t sleepers[most_threads]; // in the order in which they fell asleep
    int sleeping;
    int count; // threads that were started
    int current;
    bounds left;
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
std::string path; // what was done so far, a letter each

/// What was seen of a word while several threads were there. A step that nobody can have an interest
/// in, for one thread alone uses the word or nobody changes it, is done together with the next one.
/// When more is learned of a word, the search begins again, so that it ends with what is true.
struct word_facts {
    int user = -1; // the first
    bool has_others = false;
    bool changes = false;
};
std::unordered_map<void const *, word_facts> facts;
bool learns = false; // in a search of all schedules; in others every word counts
bool has_learned = false;

bool is_alone(void const * word, bool changes)
{
    if (!learns || now.current == running_scenario->threads()) {
        return false;
    }
    word_facts & known = facts[word];
    bool const met = known.has_others && known.changes;
    known.user = known.user < 0 ? now.current : known.user;
    known.has_others = known.has_others || known.user != now.current;
    known.changes = known.changes || changes;
    has_learned = has_learned || (known.has_others && known.changes && !met);
    return !known.has_others || !known.changes;
}

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
    auto const same = [=](static_word const & known) { return known.address == word; };
    if (!lies_in(word, now) && !lies_in(word, stacks)
        && std::none_of(static_words.begin(), static_words.end(), same)) {
        static_words.push_back({const_cast<void *>(word), size, value_at(word, size)});
    }
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
    put_on_fresh_stack(thread);
    now.count = std::max(now.count, thread + 1);
}

/// \name What may come next
/// @{
enum class deed : std::uint8_t { run, time_out, resume, kill, stop, signal };
struct option {
    deed what;
    int thread;
    // For a schedule: of threads A to D, 'A' to 'D' for a step, 'E' to 'H' for a limit, and so on.
    char letter() const
    {
        return static_cast<char>('A' + static_cast<int>(what) * most_threads + thread);
    }
};
struct options {
    option list[6 * most_threads];
    int count = 0;
    bool quiet = false;
    void add(deed what, int thread) { list[count++] = {what, thread}; }
};

bool is_ready(int thread) { return now.threads[thread].where == condition::ready; }

void add_disturbances(options & may, int i)
{
    thread_state const & state = now.threads[i];
    if (now.left.disturbances == 0 || state.where == condition::ended || state.dying) {
        return;
    }
    if (now.left.kills > 0 && (running_scenario->dies_anywhere() || state.depth == 0)) {
        may.add(deed::kill, i);
    }
    if (now.left.stops > 0 && !state.told) {
        may.add(deed::stop, i);
        if (state.where == condition::asleep && state.interruptible) {
            may.add(deed::signal, i);
        }
    }
}

options what_may_come()
{
    options may;
    bool const goes_on = is_ready(now.current);
    if (goes_on) {
        may.add(deed::run, now.current);
        if (now.threads[now.current].alone) {
            add_disturbances(may, now.current);
            return may;
        }
    }
    may.quiet = !goes_on;
    for (int i = 0; i < now.count; ++i) {
        if (i != now.current && is_ready(i)) {
            may.quiet = false;
            if (!goes_on || now.left.disturbances > 0) {
                may.add(deed::run, i);
            }
        }
    }
    if (may.quiet) {
        running_scenario->quiet();
    }
    bool const time_passes = may.quiet || now.left.disturbances > 0;
    for (int i = 0; i < now.count; ++i) {
        thread_state const & state = now.threads[i];
        if (time_passes && state.where == condition::asleep && state.limited) {
            may.add(deed::time_out, i);
        }
        if (time_passes && state.where == condition::parked) {
            may.add(deed::resume, i);
        }
    }
    int const audit = running_scenario->threads();
    if (may.count == 0 && now.count == audit) {
        now.left = {};
        now.current = audit;
        start(audit);
        may.quiet = false;
        may.add(deed::run, audit);
        return may;
    }
    for (int i = 0; i < now.count && may.count > 0; ++i) {
        add_disturbances(may, i);
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
    bool const is_free = may.quiet || (choice.what == deed::run && !is_ready(now.current));
    bool const goes_on = choice.what == deed::run && thread == now.current;
    bool const passes = choice.what <= deed::resume;
    now.left.disturbances -= goes_on || (passes && is_free) ? 0 : 1;
    now.left.kills -= choice.what == deed::kill ? 1 : 0;
    now.left.stops -= choice.what >= deed::stop ? 1 : 0;
    path += choice.letter();
    switch (choice.what) {
    case deed::time_out:
        trace("has waited long enough", thread);
        wake_up(thread, timed_out);
        break;
    case deed::resume:
        trace("is resumed", thread);
        state.told = false;
        state.where = condition::ready;
        break;
    case deed::kill:
        trace("is killed", thread);
        wake_up(thread, woken);
        state.dying = true;
        state.alone = false;
        put_on_fresh_stack(thread);
        running_scenario->killed(thread);
        return;
    case deed::stop:
        trace("is told to stop", thread);
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
        running_scenario->disturbed(thread);
        // A handler with SA_RESTART makes the kernel begin the call again; with a limit it ends.
        wake_up(thread, state.limited ? interrupted : restarted);
        return;
    case deed::run:
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
    path.clear();
    running_scenario = what.make(now.room, what);
    world_size = (offsetof(world, room) + what.size + 7) / 8 * 8;
    running_scenario->begin();
    now.left = limits;
    for (int i = 0; i < running_scenario->threads(); ++i) {
        start(i);
    }
}

/// \name Moments that are gone back to
/// @{
// All that a moment consists of; `now` first, for it says how far the others go.
template <class Function> void for_each_piece(Function function)
{
    function(&now, world_size);
    function(promise::states(), running_scenario->size());
    for (int i = 0; i < now.count; ++i) {
        auto * const begin = static_cast<std::byte *>(now.threads[i].stack_pointer);
        function(begin, static_cast<std::size_t>(stacks[i] + stack_size - begin));
    }
    for (static_word const & word : static_words) {
        function(word.address, word.size);
    }
}

struct moment {
    std::string bytes; // without the bounds
    bounds left;
    std::size_t path_size;
    options may;
    int next; // choice to follow on the next visit

    void keep(options const & what_may_come)
    {
        may = what_may_come;
        left = std::exchange(now.left, {});
        path_size = path.size();
        next = 1;
        bytes.clear();
        for_each_piece([this](void const * from, std::size_t size) {
            bytes.append(static_cast<char const *>(from), size);
        });
        now.left = left;
    }

    // Static words that nobody had met yet are what they were at first.
    void go_back() const
    {
        reset_static_words();
        std::size_t done = 0;
        for_each_piece([&](void * to, std::size_t size) {
            done += done < bytes.size() ? bytes.copy(static_cast<char *>(to), size, done) : 0;
        });
        now.left = left;
        path.resize(path_size);
    }
};
/// @}

constexpr bounds without_bounds{1'000'000, 1'000'000, 1'000'000};

bool report(entry const & what)
{
    std::printf("FAILED %s: %s\n", what.name.c_str(), failure);
    replay(what, std::string(path));
    return false;
}

bool has_failed()
{
    if (path.size() > most_steps) {
        failure = "a step without an end";
    }
    return failure != nullptr;
}

void add_figures(figures & sum, option choice)
{
    sum.kills += choice.what == deed::kill ? 1 : 0;
    sum.stops += choice.what == deed::stop ? 1 : 0;
}

/// The moments that were seen, by a hash, and how many disturbances were left there with so many
/// kills and stops: whoever comes again with no more of anything finds nothing new.
class seen_moments {
public:
    bool add(moment const & one)
    {
        auto & best = seen_[std::hash<std::string>()(one.bytes)];
        auto const value = static_cast<std::uint8_t>(one.left.disturbances + 1);
        for (int kills = one.left.kills; kills < most; ++kills) {
            for (int stops = one.left.stops; stops < most; ++stops) {
                if (best[static_cast<std::size_t>(kills * most + stops)] >= value) {
                    return false;
                }
            }
        }
        best[static_cast<std::size_t>(one.left.kills * most + one.left.stops)] = value;
        return true;
    }

private:
    static constexpr int most = 3;
    std::unordered_map<std::uint64_t, std::array<std::uint8_t, most * most>> seen_;
};

// Every schedule, until something is learned of a word.
bool search(entry const & what, figures & sum)
{
    begin(what, what.limits);
    seen_moments seen;
    std::vector<moment> moments; // where choices are left
    std::size_t open = 0; // how many of them; the rest is kept for its memory
    for (;;) {
        options may = what_may_come();
        if (has_failed()) {
            return report(what);
        }
        if (has_learned) {
            return true;
        }
        int choice = 0;
        bool is_over = may.count == 0;
        if (may.count > 1) {
            moments.resize(std::max(moments.size(), open + 1));
            moments[open].keep(may);
            is_over = !seen.add(moments[open]);
            open += is_over ? 0 : 1;
            sum.states += is_over ? 0 : 1;
        }
        sum.schedules += is_over ? 1 : 0;
        while (is_over) {
            if (open == 0) {
                return true;
            }
            moment & last = moments[open - 1];
            last.go_back();
            may = last.may;
            choice = last.next++;
            is_over = choice >= may.count;
            open -= is_over ? 1 : 0;
        }
        add_figures(sum, may.list[choice]);
        follow(may, may.list[choice]);
    }
}

} // namespace

void step(char const * what, void const * word, std::size_t size, char const * file,
          int line) noexcept
{
    meet(word, size);
    if (!on_thread) {
        return;
    }
    bool const is_plain = line != 0; // the kernel's steps concern more than the word
    bool const alone = is_alone(word, *what != 'l') && is_plain;
    thread_state & self = now.threads[now.current];
    bool const can_be_disturbed
        = now.left.disturbances > 0 && (now.left.stops > 0 || (now.left.kills > 0 && *what != 'l'));
    if (alone && !can_be_disturbed && path.size() < most_steps) {
        path += option{deed::run, now.current}.letter();
        return;
    }
    self.alone = alone;
    switch_to_scheduler();
    self.alone = false;
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
std::uint32_t host_number() noexcept
{
    return running_scenario->number(on_thread ? now.current : most_threads);
}
condition condition_of(int thread) { return now.threads[thread].where; }
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

bool exhaust(entry const & what, figures & sum)
{
    facts.clear();
    learns = true;
    figures own;
    bool fine = true;
    do {
        has_learned = false;
        own = {};
        fine = search(what, own);
    } while (has_learned && fine);
    learns = false;
    sum.states += own.states;
    sum.schedules += own.schedules;
    sum.kills += own.kills;
    sum.stops += own.stops;
    return fine;
}

// Each thread has a priority, and the first that is ready goes on. At a few moments the running one
// falls behind all others, and at a few whatever may happen does.
bool run_at_random(entry const & what, double seconds, std::uint64_t seed, figures & sum)
{
    std::mt19937_64 random(seed);
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::size_t usual_length = 100;
    bounds limits = what.limits;
    limits.disturbances = without_bounds.disturbances;
    do {
        begin(what, limits);
        auto const at_few_moments = [&] { return random() % usual_length < 3; };
        int priority[most_threads];
        for (int & one : priority) {
            one = static_cast<int>(random() % 1000);
        }
        int lowest = -1;
        for (options may = what_may_come(); may.count > 0; may = what_may_come()) {
            if (has_failed()) {
                return report(what);
            }
            priority[now.current] = at_few_moments() ? lowest-- : priority[now.current];
            auto const rank = [&](option one) {
                return one.what == deed::run ? priority[one.thread] : -most_steps;
            };
            option choice
                = *std::max_element(may.list, may.list + may.count, [&](option one, option other) {
                      return rank(one) < rank(other);
                  });
            if (choice.what != deed::run || at_few_moments()) {
                choice = may.list[random() % static_cast<unsigned>(may.count)];
            }
            add_figures(sum, choice);
            follow(may, choice);
        }
        if (has_failed()) {
            return report(what);
        }
        usual_length = std::max<std::size_t>(path.size(), 10);
        ++sum.schedules;
    } while (std::chrono::steady_clock::now() < end);
    return true;
}

bool replay(entry const & what, std::string const & schedule)
{
    learns = false;
    begin(what, without_bounds);
    tracing = true;
    for (char const letter : schedule) {
        options const may = what_may_come();
        auto const * const end = may.list + may.count;
        auto const * const choice
            = std::find_if(may.list, end, [=](option one) { return one.letter() == letter; });
        if (failure != nullptr || choice == end) {
            break;
        }
        follow(may, *choice);
    }
    if (failure == nullptr) {
        what_may_come(); // the last look
    }
    tracing = false;
    std::printf("    %s\n    --only '%s' --replay '%s'\n",
                failure == nullptr ? "nothing is wrong" : failure, what.name.c_str(),
                schedule.c_str());
    std::fflush(stdout);
    return failure == nullptr;
}

} // namespace zel::explorer
