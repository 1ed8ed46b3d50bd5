// SPDX-License-Identifier: MIT
#include "tests/explorer/explorer.h"

#include "tests/explorer/scenario.h"
#include "zel/base/atomic.h"
#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string_view>
#include <unordered_map>
#include <vector>

extern "C" void switch_stack(void ** save, void * to);
asm(R"(
    .text
    .globl switch_stack
    .type switch_stack, @function
switch_stack:
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

using platform::wake_reason;

world now;
figures sum;

namespace {

constexpr std::size_t stack_size = 16384;
constexpr int most_steps = 5'000; // of one schedule: more is a loop without an end

alignas(4096) std::byte stacks[most_threads][stack_size];
scenario * running_scenario = nullptr;
std::size_t world_size = sizeof now; // as far as the scenario needs it
void * scheduler_stack = nullptr;
bool on_thread = false;
char const * failure = nullptr;
bool tracing = false;
std::string path; // what was done so far, a letter each

/// Who was seen to use a word, a bit for each thread, and whether one of them changes it. A step
/// that nobody can have an interest in, for one thread alone uses the word or nobody changes it, is
/// done together with the next one. When more is learned of a word, the search begins again, so
/// that it ends with what is true.
std::unordered_map<void const *, unsigned> facts;
constexpr unsigned changes = 1 << most_threads;
bool learns = false; // in a search of all schedules; in others every word counts
bool has_learned = false;

bool is_alone(void const * word, bool is_changed)
{
    if (!learns || now.current == running_scenario->threads()) {
        return false;
    }
    auto const is_met
        = [](unsigned seen) { return seen > changes && !std::has_single_bit(seen - changes); };
    unsigned & seen = facts[word];
    bool const met = is_met(seen);
    seen |= 1U << now.current | (is_changed ? changes : 0);
    has_learned = has_learned || is_met(seen) != met;
    return !is_met(seen);
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
    return place - reinterpret_cast<std::uintptr_t>(&what) < sizeof what;
}

std::uint64_t value_at(void const * address, std::size_t size)
{
    std::uint64_t value = 0;
    std::memcpy(&value, address, std::min(size, sizeof value));
    return value;
}

// No moment that was kept has a new one in it: the search begins again.
void meet(void const * word, std::size_t size)
{
    auto const same = [=](static_word const & known) { return known.address == word; };
    if (!lies_in(word, now) && !lies_in(word, stacks)
        && std::none_of(static_words.begin(), static_words.end(), same)) {
        static_words.push_back({const_cast<void *>(word), size, value_at(word, size)});
        has_learned = true;
    }
}

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
        leave();
    }
}

void put_on_fresh_stack(int thread)
{
    std::memset(stacks[thread], 0, stack_size);
    auto * const top = reinterpret_cast<std::uintptr_t *>(stacks[thread] + stack_size);
    top[-2] = reinterpret_cast<std::uintptr_t>(thread_main);
    now.threads[thread].stack_pointer = top - 8; // six registers
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
    option const * begin() const { return list; }
    option const * end() const { return list + count; }
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

// Whether a step is done without a look at the others.
[[gnu::noipa]] bool may_go_on(char const * what, void const * word, std::size_t size, int line)
{
    meet(word, size);
    if (!on_thread) {
        return true;
    }
    bool const is_load = *what == 'l';
    bool const is_plain = line != 0; // the kernel's steps concern more than the word
    bool const alone = is_alone(word, !is_load) && is_plain;
    bool const can_be_disturbed
        = now.left.disturbances > 0 && (now.left.stops > 0 || (now.left.kills > 0 && !is_load));
    if (!alone || can_be_disturbed || path.size() >= most_steps) {
        now.threads[now.current].alone = alone;
        return false;
    }
    path += option{deed::run, now.current}.letter();
    return true;
}

void trace(char const * what)
{
    if (tracing) {
        std::printf("    -- %s %s\n", running_scenario->title(now.current), what);
    }
}

void follow(options const & may, option choice)
{
    constexpr char const * texts[] = {"goes on",   "has waited long enough", "is resumed",
                                      "is killed", "is told to stop",        "handles a signal"};
    int const thread = choice.thread;
    thread_state & state = now.threads[thread];
    bool const is_free = may.quiet || (choice.what == deed::run && !is_ready(now.current));
    bool const goes_on = choice.what == deed::run && thread == now.current;
    bool const passes = choice.what <= deed::resume;
    now.left.disturbances -= goes_on || (passes && is_free) ? 0 : 1;
    now.left.kills -= choice.what == deed::kill ? 1 : 0;
    now.left.stops -= choice.what >= deed::stop ? 1 : 0;
    sum.kills += choice.what == deed::kill ? 1 : 0;
    sum.stops += choice.what == deed::stop ? 1 : 0;
    path += choice.letter();
    if (tracing && choice.what != deed::run) {
        std::printf("    -- %s %s\n", running_scenario->title(thread),
                    texts[static_cast<int>(choice.what)]);
    }
    switch (choice.what) {
    case deed::time_out:
        wake_up(thread, wake_reason::timed_out);
        break;
    case deed::resume:
        state.told = false;
        state.where = condition::ready;
        break;
    case deed::kill:
        wake_up(thread, wake_reason::woken);
        state.dying = true;
        state.alone = false;
        put_on_fresh_stack(thread);
        running_scenario->killed(thread);
        return;
    case deed::stop:
        state.told = true;
        running_scenario->disturbed(thread);
        if (state.where == condition::asleep && state.interruptible) {
            wake_up(thread, wake_reason::interrupted);
        } else if (is_ready(thread) && state.depth == 0) {
            state.where = condition::parked;
        }
        return;
    case deed::signal:
        running_scenario->disturbed(thread);
        // A handler with SA_RESTART makes the kernel begin the call again; with a limit it ends.
        wake_up(thread, state.limited ? wake_reason::interrupted : restarted);
        return;
    case deed::run:
        break;
    }
    now.current = thread;
    on_thread = true;
    switch_stack(&scheduler_stack, state.stack_pointer);
    on_thread = false;
}
/// @}

void begin(entry const & what, bounds const & limits)
{
    for (static_word const & word : static_words) {
        std::memcpy(word.address, &word.first, word.size);
    }
    std::memset(static_cast<void *>(&now), 0, sizeof now);
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

bool has_failed()
{
    if (path.size() > most_steps) {
        failure = "a step without an end";
    }
    return failure != nullptr;
}

/// \name Moments that are gone back to
/// @{
// All that a moment consists of; `now` first, for it says how far the others go.
template <class Function> void for_each_piece(Function function)
{
    function(&now, world_size);
    function(scenario::states(), running_scenario->size());
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

    void go_back() const
    {
        std::size_t done = 0;
        for_each_piece([&](void * to, std::size_t size) {
            done += bytes.copy(static_cast<char *>(to), size, done);
        });
        now.left = left;
        path.resize(path_size);
    }
};

/// The moments that were seen, by a hash, and how many disturbances were left there, and one, with
/// so many stops: whoever comes again with no more of anything finds nothing new. A kill shows in
/// the moment itself.
class seen_moments {
public:
    bool add(moment const & one)
    {
        auto & best = seen_[std::hash<std::string>()(one.bytes)];
        auto const stops = best.begin() + one.left.stops;
        auto const value = static_cast<std::uint8_t>(one.left.disturbances + 1);
        if (std::any_of(stops, best.end(), [=](std::uint8_t other) { return other >= value; })) {
            return false;
        }
        *stops = value;
        return true;
    }

private:
    std::unordered_map<std::uint64_t, std::array<std::uint8_t, 3>> seen_;
};
/// @}

// Every schedule, until something is learned of a word.
void search(entry const & what)
{
    begin(what, what.limits);
    seen_moments seen;
    std::vector<moment> moments; // where choices are left
    std::size_t open = 0; // how many of them; the rest is kept for its memory
    for (;;) {
        options may = what_may_come();
        if (has_failed() || has_learned) {
            return;
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
                return;
            }
            moment & last = moments[open - 1];
            last.go_back();
            may = last.may;
            choice = last.next++;
            is_over = choice >= may.count;
            open -= is_over ? 1 : 0;
        }
        follow(may, may.list[choice]);
    }
}

// One schedule.
template <class Choose> void run(entry const & what, bounds limits, Choose choose)
{
    limits.disturbances = 1'000'000;
    begin(what, limits);
    options may = what_may_come();
    while (may.count > 0 && !has_failed()) {
        option const * const choice = choose(may);
        if (choice == may.end()) {
            return;
        }
        follow(may, *choice);
        may = what_may_come();
    }
}

bool report(entry const & what)
{
    if (failure == nullptr) {
        return true;
    }
    std::printf("FAILED %s: %s\n", what.name.c_str(), failure);
    return replay(what, std::string(path));
}

} // namespace

thread_state * running() noexcept { return on_thread ? &now.threads[now.current] : nullptr; }
std::uint32_t host_number() noexcept
{
    return running_scenario->number(on_thread ? now.current : most_threads);
}
void leave() noexcept { switch_stack(&now.threads[now.current].stack_pointer, scheduler_stack); }
void fell_asleep() { running_scenario->fell_asleep(now.current); }

void note(char const * what) noexcept
{
    if (on_thread) {
        trace(what);
    }
}

void fail(char const * why)
{
    failure = failure == nullptr ? why : failure;
    while (on_thread) {
        leave();
    }
}

bool exhaust(entry const & what)
{
    facts.clear();
    learns = true;
    figures const before = sum;
    do {
        has_learned = false;
        sum = before;
        search(what);
    } while (has_learned && failure == nullptr);
    learns = false;
    return report(what);
}

// Each thread has a priority, and the first that is ready goes on. At a few moments the running one
// falls behind all others, and at a few whatever may happen does.
bool run_at_random(entry const & what, double seconds, std::uint64_t seed)
{
    std::mt19937_64 random(seed);
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::size_t usual_length = 100;
    while (std::chrono::steady_clock::now() < end && failure == nullptr) {
        auto const at_few_moments = [&] { return random() % usual_length < 3; };
        int priority[most_threads];
        std::generate(priority, priority + most_threads,
                      [&] { return static_cast<int>(random() % 1000); });
        int lowest = -1;
        run(what, what.limits, [&](options const & may) {
            priority[now.current] = at_few_moments() ? lowest-- : priority[now.current];
            auto const comes_later = [&](option one, option other) {
                auto const rank = [&](option it) {
                    return it.what == deed::run ? priority[it.thread] : -most_steps;
                };
                return rank(one) < rank(other);
            };
            option const * const first = std::max_element(may.begin(), may.end(), comes_later);
            return first->what != deed::run || at_few_moments()
                ? may.begin() + random() % static_cast<unsigned>(may.count)
                : first;
        });
        usual_length = std::max<std::size_t>(path.size(), 10);
        ++sum.schedules;
    }
    return report(what);
}

bool replay(entry const & what, std::string const & schedule)
{
    tracing = true;
    auto letter = schedule.begin();
    run(what, {0, 1'000'000, 1'000'000}, [&](options const & may) {
        return letter == schedule.end()
            ? may.end()
            : std::find_if(may.begin(), may.end(),
                           [next = *letter++](option one) { return one.letter() == next; });
    });
    tracing = false;
    std::printf("    %s\n    --only '%s' --replay '%s'\n",
                failure == nullptr ? "nothing is wrong" : failure, what.name.c_str(),
                schedule.c_str());
    std::fflush(stdout);
    return failure == nullptr;
}

} // namespace zel::explorer

void zel::before_step(char const * what, void const * word, std::size_t size, char const * file,
                      int line) noexcept
{
    using namespace zel::explorer;
    if (may_go_on(what, word, size, line)) {
        return;
    }
    leave();
    now.threads[now.current].alone = false;
    if (tracing) {
        std::string_view const full = file;
        std::printf("    %-12s %s:%d %s %llx\n", running_scenario->title(now.current),
                    file + full.rfind('/') + 1, line, what,
                    static_cast<unsigned long long>(value_at(word, size)));
    }
}
