# SPDX-License-Identifier: MIT
# Builds the library of SOURCE with debug information in WORK, and has ABIDW describe its binary
# interface. MODE=dump writes the description into the tree; MODE=compare has ABIDIFF hold the one of
# the tree against it. What was added is no failure, what was changed or removed is.
cmake_minimum_required(VERSION 3.24)
set(flags "-O2 -g")
set(dump ${SOURCE}/packaging/abi/libzel.abi)
string(REGEX MATCH "^[0-9]+" major "${VERSION}")
set(made_by "<!-- GCC ${major}, ${flags} -->") # the second line of the description

if(MODE STREQUAL "compare")
  foreach(tool ABIDW ABIDIFF)
    if(NOT ${tool})
      message("skipped: the package abigail-tools is not installed")
      return()
    endif()
  endforeach()
  file(STRINGS ${dump} lines LIMIT_COUNT 2)
  list(GET lines 1 found)
  if(NOT found STREQUAL made_by)
    message("skipped: this is GCC ${major}, and the description in the tree says ${found}")
    return()
  endif()
endif()

foreach(step "-S;${SOURCE};-B;${WORK};-G;Ninja;-DCMAKE_BUILD_TYPE=None;-DCMAKE_CXX_COMPILER=${CXX};-DCMAKE_CXX_FLAGS=${flags};-DBUILD_SHARED_LIBS=ON;-DZEL_BUILD_TESTS=OFF;-DZEL_BUILD_EXAMPLES=OFF"
             "--build;${WORK};--target;zel")
  execute_process(COMMAND ${CMAKE_COMMAND} ${step} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${output}")
  endif()
endforeach()
file(REMOVE ${WORK}/libzel.abi)
execute_process(
  COMMAND ${ABIDW} --no-show-locs --no-comp-dir-path --no-corpus-path --exported-interfaces-only
          --no-parameter-names --type-id-style hash --out-file ${WORK}/libzel.abi
          ${WORK}/zel/libzel.so COMMAND_ERROR_IS_FATAL ANY)

if(MODE STREQUAL "dump")
  file(READ ${WORK}/libzel.abi text)
  # Sources by their place in the tree, wherever it lies on the machine.
  string(REGEX REPLACE " path='[^']*/(zel/[^']*)'" " path='\\1'" text "${text}")
  string(FIND "${text}" "\n" end)
  string(SUBSTRING "${text}" 0 ${end} first)
  string(SUBSTRING "${text}" ${end} -1 rest)
  file(WRITE ${dump} "${first}\n${made_by}${rest}")
  message(STATUS "written to ${dump}")
else()
  execute_process(COMMAND ${ABIDIFF} --no-added-syms ${dump} ${WORK}/libzel.abi
                  RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  # The bits of the status: 1 and 2 failure, 4 a change, 8 an incompatible one.
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${output}\nThe binary interface differs from packaging/abi/libzel.abi, status ${status}. "
                        "docs/releases.md says what may change when; the target abi-dump renews the description.")
  endif()
endif()
