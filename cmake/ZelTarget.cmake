# SPDX-License-Identifier: MIT
# How everything of this tree is compiled; users of the target see the language level alone.

# Warnings of the whole tree. They are errors in the presets, not for those who build a release.
add_library(zel_warnings INTERFACE)
target_compile_options(zel_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)

# An executable of this tree, as a user of the library would link it.
function(zel_add_executable name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE zel::zel zel_warnings)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()

# An executable that also calls what the library hides.
function(zel_add_internal_executable name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE zel_internals zel_warnings)
endfunction()
