// SPDX-License-Identifier: MIT
// explorer [--only TEXT] [--random SECONDS] [--seed N] [--depth N] [--states N] [--old-kernel]
//          [--list] [--replay SCHEDULE] [--keep-going]
//
// Without --random every schedule within each scenario's bounds; with it, schedules drawn for so
// many seconds a scenario. --only picks the scenarios whose names hold the text. A failure prints
// the schedule and the arguments that show it again, and ends the program with 1.
#include "tests/explorer/scenarios.h"
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

int main(int argc, char ** argv)
{
    using namespace zel::explorer;
    orders how;
    std::string only;
    std::string schedule;
    bool lists = false;
    bool keeps_going = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view const name = argv[i];
        auto const value = [&] { return ++i < argc ? argv[i] : ""; };
        if (name == "--only") {
            only = value();
        } else if (name == "--random") {
            how.seconds = std::atof(value());
        } else if (name == "--seed") {
            how.seed = std::strtoull(value(), nullptr, 10);
        } else if (name == "--depth") {
            how.depth = std::atoi(value());
        } else if (name == "--states") {
            how.most_states = std::strtoull(value(), nullptr, 10);
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
    figures sum;
    int scenarios = 0;
    int incomplete = 0;
    int failed = 0;
    for (entry const & one : entries) {
        if (one.name.find(only) == std::string::npos) {
            continue;
        }
        ++scenarios;
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
        "%d scenarios, %d cut short, %d failed: %llu states, %llu schedules, %llu kills, "
        "%llu stops, up to %llu steps\n",
        scenarios, incomplete, failed, static_cast<unsigned long long>(sum.states),
        static_cast<unsigned long long>(sum.schedules), static_cast<unsigned long long>(sum.kills),
        static_cast<unsigned long long>(sum.stops), static_cast<unsigned long long>(sum.longest));
    return scenarios > 0 && failed == 0 ? 0 : 1;
}
