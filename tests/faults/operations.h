// SPDX-License-Identifier: MIT
#pragma once

#include "tests/files/scratch.h"
#include <span>
#include <string>

/// What an operation finds.
struct places {
    places();
    scratch near{fast_place};
    scratch far; // another file system where there is one
    std::string object = "object" + near.name(); // a name for one
};

/// Something that a user does with the library, and that must be whole or not be there at all
/// whatever fails in it.
struct operation {
    char const * name;
    bool (*run)(places const &); // \returns whether it was done; it may raise too
    bool (*done)(places const &)
        = [](places const &) { return true; }; // once it was run to its end
    bool may_break = false; // by a kill
};
void PrintTo(operation const & it, std::ostream * out);

/// Those that call the host, and those that only compute or take their calls from the others.
extern std::span<operation const> const calling_operations;
extern std::span<operation const> const allocating_operations;

enum class outcome { done, refused, out_of_memory, raised_own, raised_another };

outcome attempt(operation const & tried, places const & at);

extern std::string const fresh_content; // of `source`
extern std::string const old_settings;
