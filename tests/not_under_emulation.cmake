# SPDX-License-Identifier: MIT
# Read by ctest in a build for another processor: the tests that QEMU's user emulation cannot follow.
set(CTEST_CUSTOM_TESTS_IGNORE
    examples.tour # starts the programs itself; each has a test of its own
)
