// SPDX-License-Identifier: MIT
#pragma once

#include "tests/explorer/explorer.h"
#include "tests/explorer/promise.h"
#include <functional>
#include <initializer_list>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace zel::explorer {

/// One thing of the library's, and threads that use it. Each thread's program is a text whose
/// letters are operations; the last program is the audit's. A kind of thing says in `call` how an
/// operation is done, and in promise::take_effect what it may do.
class scenario : public promise {
public:
    explicit scenario(entry const & what)
        : what_(what)
    {
    }
    virtual ~scenario() = default;
    virtual void begin() { } // makes the object; nothing is explored yet

    int threads() const; // without the audit
    char const * title(int thread) const;
    void run(int thread);

    /// Whether a kill may hit a thread anywhere, as that of a process does, or only where it may be
    /// terminated: outside of `uninterrupted`.
    virtual bool dies_anywhere() const { return true; }
    /// The host's number of the thread; two threads of different containers may have the same.
    virtual std::uint32_t number(int thread) const { return 101 + static_cast<unsigned>(thread); }

protected:
    char const * program(int thread) const;
    /// Whether the operation makes sense now: an unlock of what the thread has.
    virtual bool applies(int, char) const { return true; }
    virtual progress call(int thread, char operation) = 0;

private:
    entry const & what_;
};

struct entry {
    std::string name;
    std::vector<std::string> programs;
    bounds limits;
    bool is_long; // for schedules that are drawn
    std::size_t size;
    std::function<scenario *(void * room, entry const &)> make;
};

constexpr std::size_t scenario_size = 6144;

template <class Scenario, class... Arguments>
void add(std::vector<entry> & entries, std::string name, std::vector<std::string> programs,
         char const * audit, bounds limits, bool is_long, Arguments... arguments)
{
    static_assert(sizeof(Scenario) <= scenario_size && alignof(Scenario) <= 128);
    for (std::string const & program : programs) {
        name += " " + (program.empty() ? "-" : program);
    }
    name += " k" + std::to_string(limits.kills) + "s" + std::to_string(limits.stops);
    programs.emplace_back(audit);
    entries.push_back({std::move(name), std::move(programs), limits, is_long, sizeof(Scenario),
                       [=](void * room, entry const & what) -> scenario * {
                           return new (room) Scenario(what, arguments...);
                       }});
}

/// Every two and three of these programs beside each other.
template <class Function>
void for_each_group(std::initializer_list<char const *> all, Function function)
{
    for (auto const * a = all.begin(); a != all.end(); ++a) {
        for (auto const * b = a; b != all.end(); ++b) {
            function(std::vector<std::string>{*a, *b});
            for (auto const * c = b; c != all.end(); ++c) {
                function(std::vector<std::string>{*a, *b, *c});
            }
        }
    }
}

void add_waitables(std::vector<entry> & entries);
void add_mutexes(std::vector<entry> & entries);
void add_names_and_handles(std::vector<entry> & entries);
void add_messages(std::vector<entry> & entries);

} // namespace zel::explorer
