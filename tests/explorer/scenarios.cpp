// SPDX-License-Identifier: MIT
#include "tests/explorer/scenarios.h"

#include <cstdio>

namespace zel::explorer {

int scenario::threads() const { return static_cast<int>(what_.programs.size()) - 1; }

char const * scenario::program(int thread) const
{
    return what_.programs[static_cast<std::size_t>(thread)].c_str();
}

char const * scenario::title(int thread) const
{
    static char text[24];
    std::snprintf(text, sizeof text, "%c:%s", thread < threads() ? 'A' + thread : '=',
                  program(thread));
    return text;
}

void scenario::run(int thread)
{
    for (char const * operation = program(thread); *operation != '\0'; ++operation) {
        if (applies(thread, *operation)) {
            char const text[] = {'c', 'a', 'l', 'l', 's', ' ', *operation, '\0'};
            note(text);
            called(thread, *operation);
            returned(thread, call(thread, *operation));
        }
    }
}

} // namespace zel::explorer
