// SPDX-License-Identifier: MIT
// explorer [--only EXPRESSION] [--bounds DISTURBANCES,KILLS,STOPS] [--old-kernel]
//          [--random SECONDS [--seed N]] [--replay SCHEDULE]
//
// Runs every schedule within each scenario's bounds; with --random those scenarios that are too
// long for that, in schedules that are drawn for so many seconds together. --only picks scenarios
// by name. A failure prints the schedule and the arguments that show it again, and ends the program
// with 1.
#include "tests/explorer/scenario.h"
#include <cstdio>
#include <cstdlib>
#include <map>
#include <regex>

int main(int argc, char ** argv)
{
    using namespace zel::explorer;
    std::map<std::string, std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        bool const has_value = i + 1 < argc && argv[i + 1][0] != '-';
        std::string const name = argv[i];
        arguments[name] = has_value ? argv[++i] : "";
    }
    std::regex const only(arguments["--only"]);
    double const seconds = std::atof(arguments["--random"].c_str());
    std::uint64_t const seed = std::strtoull(arguments["--seed"].c_str(), nullptr, 10);
    std::string const schedule = arguments["--replay"];
    old_kernel = arguments.contains("--old-kernel");

    std::vector<entry> entries;
    add_kernel_objects(entries);
    add_names_and_handles(entries);
    add_messages(entries);
    std::erase_if(entries, [&](entry const & one) {
        bool const fits = !schedule.empty() || one.is_long == (seconds > 0);
        return !fits || !std::regex_search(one.name, only);
    });
    for (entry & one : entries) {
        bounds & limits = one.limits;
        std::sscanf(arguments["--bounds"].c_str(), "%d,%d,%d", &limits.disturbances, &limits.kills,
                    &limits.stops);
        if (!schedule.empty()) {
            return replay(one, schedule) ? 0 : 1;
        }
        if (seconds > 0 ? !run_at_random(one, seconds / static_cast<double>(entries.size()), seed)
                        : !exhaust(one)) {
            return 1;
        }
    }
    auto const wide = [](std::uint64_t number) { return static_cast<unsigned long long>(number); };
    std::printf("%zu scenarios: %llu states, %llu schedules, %llu kills, %llu stops\n",
                entries.size(), wide(sum.states), wide(sum.schedules), wide(sum.kills),
                wide(sum.stops));
    return entries.empty() ? 1 : 0;
}
