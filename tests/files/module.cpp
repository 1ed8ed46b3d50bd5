// SPDX-License-Identifier: MIT
// What the tests of dyn_lib load.

namespace {
int loads = 0;
} // namespace

extern "C" [[gnu::visibility("default")]] int count_call() { return ++loads; }
