// SPDX-License-Identifier: MIT
// explorer [--only EXPRESSION] [--bounds PREEMPTIONS,KILLS,STOPS] [--states N]
//          [--old-kernel] [--keep-going] [--list]
//          [--random SECONDS [--seed N] [--depth N]]
//          [--replay SCHEDULE]
//
// Runs every schedule within each scenario's bounds; with --random those scenarios that are too
// long for that, in schedules that are drawn for so many seconds together. --only picks scenarios
// by name. A failure prints the schedule and the arguments that show it again, and ends the program
// with 1.
#include "tests/explorer/scenarios.h"
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <string_view>

int main(int argc, char ** argv)
{
    using namespace zel::explorer;
    orders how;
    std::regex only("");
    std::string schedule;
    bounds limits{-1, 0, 0}; // each scenario's own
    bool lists = false;
    bool keeps_going = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view const name = argv[i];
        auto const value = [&] { return ++i < argc ? argv[i] : ""; };
        if (name == "--only") {
            only = std::regex(value());
        } else if (name == "--random") {
            how.seconds = std::atof(value());
        } else if (name == "--seed") {
            how.seed = std::strtoull(value(), nullptr, 10);
        } else if (name == "--depth") {
            how.depth = std::atoi(value());
        } else if (name == "--states") {
            how.most_states = std::strtoull(value(), nullptr, 10);
        } else if (name == "--bounds") {
            std::sscanf(value(), "%d,%d,%d", &limits.preemptions, &limits.kills, &limits.stops);
        } else if (name == "--old-kernel") {
            old_kernel = true;
        } else if (name == "--list") {
            lists = true;
        } else if (name == "--keep-going") {
            keeps_going = true;
        } else if (name == "--replay") {
            schedule = value();
        } else {
            std::fprintf(stderr, "explorer: what is %s?\n", argv[i]);
            return 2;
        }
    }

    std::vector<entry> entries;
    add_waitables(entries);
    add_mutexes(entries);
    add_names_and_handles(entries);
    std::erase_if(entries, [&](entry const & one) {
        bool const fits = lists || !schedule.empty() || one.is_long == (how.seconds > 0);
        return !fits || !std::regex_search(one.name, only);
    });
    how.seconds /= static_cast<double>(entries.size());
    figures sum;
    int incomplete = 0;
    int failed = 0;
    for (entry & one : entries) {
        one.limits = limits.preemptions < 0 ? one.limits : limits;
        if (lists) {
            std::printf("%s\n", one.name.c_str());
            continue;
        }
        if (!schedule.empty()) {
            return replay(one, schedule) ? 0 : 1;
        }
        figures own;
        if (!(how.seconds > 0 ? run_at_random(one, how, own) : exhaust(one, how, own))) {
            ++failed;
            if (!keeps_going) {
                return 1;
            }
        }
        incomplete += own.complete ? 0 : 1;
        sum.states += own.states;
        sum.schedules += own.schedules;
        sum.kills += own.kills;
        sum.stops += own.stops;
        sum.longest = std::max(sum.longest, own.longest);
    }
    std::printf(
        "%zu scenarios, %d cut short, %d failed: %llu states, %llu schedules, %llu kills, "
        "%llu stops, up to %llu steps\n",
        entries.size(), incomplete, failed, static_cast<unsigned long long>(sum.states),
        static_cast<unsigned long long>(sum.schedules), static_cast<unsigned long long>(sum.kills),
        static_cast<unsigned long long>(sum.stops), static_cast<unsigned long long>(sum.longest));
    return !entries.empty() && failed == 0 ? 0 : 1;
}
