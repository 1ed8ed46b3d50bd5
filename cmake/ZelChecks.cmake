# SPDX-License-Identifier: MIT
# The form of the sources: targets `format` and `tidy`. Version 14 of both tools decides; others
# break lines differently.
find_program(CLANG_FORMAT NAMES clang-format-14 clang-format)
find_program(RUN_CLANG_TIDY NAMES run-clang-tidy-14 run-clang-tidy)

if(CLANG_FORMAT)
  execute_process(COMMAND ${CLANG_FORMAT} --version OUTPUT_VARIABLE zel_version)
  if(zel_version MATCHES "version 14\\.")
    set(ZEL_CLANG_FORMAT ${CLANG_FORMAT})
    add_custom_target(
      format
      COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR} -DCLANG_FORMAT=${CLANG_FORMAT}
              -DMODE=-i -P ${CMAKE_CURRENT_LIST_DIR}/format.cmake
      COMMENT "Formatting the sources"
      VERBATIM)
  endif()
endif()

if(RUN_CLANG_TIDY)
  add_custom_target(
    tidy
    COMMAND ${RUN_CLANG_TIDY} -quiet -p ${PROJECT_BINARY_DIR} "${PROJECT_SOURCE_DIR}/zel/.*"
    COMMENT "Looking through the library with clang-tidy"
    VERBATIM)
endif()

# The counts of preset coverage as a table.
find_program(GCOVR gcovr)
if(GCOVR)
  add_custom_target(
    coverage
    COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR} -DBUILD=${PROJECT_BINARY_DIR}
            -DGCOVR=${GCOVR} -DLEAST=95 -P ${CMAKE_CURRENT_LIST_DIR}/coverage.cmake
    COMMENT "Lines and branches of the library that the tests have run"
    VERBATIM)
endif()

# The binary interface as it stands in packaging/abi; docs/releases.md tells when to renew it.
find_program(ABIDW abidw)
find_program(ABIDIFF abidiff)
set(zel_abi_arguments
    -DSOURCE=${PROJECT_SOURCE_DIR} -DWORK=${PROJECT_BINARY_DIR}/abi -DCXX=${CMAKE_CXX_COMPILER}
    -DVERSION=${CMAKE_CXX_COMPILER_VERSION} -DABIDW=${ABIDW} -DABIDIFF=${ABIDIFF})
if(ABIDW AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_custom_target(
    abi-dump
    COMMAND ${CMAKE_COMMAND} ${zel_abi_arguments} -DMODE=dump -P ${CMAKE_CURRENT_LIST_DIR}/abi.cmake
    COMMENT "Describing the binary interface"
    VERBATIM)
endif()
