# SPDX-License-Identifier: MIT
# Builds and runs a small program against the library in every way that a user may link it: shared
# and static, through find_package, pkg-config and add_subdirectory. The installed tree is moved
# before it is used, so that a path baked into it would show.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGV " " command)
    message(FATAL_ERROR "${command}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

set(consumer ${SOURCE}/tests/package/consumer)
set(configure ${CMAKE_COMMAND} -G Ninja -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Release)

function(expect_greeting)
  run(${ARGV})
  if(NOT output STREQUAL "TempOfs\n")
    message(FATAL_ERROR "unexpected output of ${ARGV}: ${output}")
  endif()
endfunction()

# use_installed(kind build): installs from a build tree, moves the result, and uses it twice.
function(use_installed kind build)
  set(first ${WORK}/${kind}-first)
  set(prefix ${WORK}/${kind}-moved)
  run(${CMAKE_COMMAND} --install ${build} --prefix ${first})
  file(RENAME ${first} ${prefix})

  set(found ${WORK}/${kind}-find-package)
  run(${configure} -S ${consumer} -B ${found} -DCMAKE_PREFIX_PATH=${prefix})
  run(${CMAKE_COMMAND} --build ${found})
  expect_greeting(${found}/consumer)

  file(GLOB_RECURSE pc ${prefix}/zel.pc)
  get_filename_component(pc_folder ${pc} DIRECTORY)
  get_filename_component(library_folder ${pc_folder} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_folder})
  run(pkg-config --cflags --libs zel)
  separate_arguments(flags UNIX_COMMAND "${output}")
  run(${CXX} -std=c++20 ${consumer}/main.cpp -o ${WORK}/${kind}-pkg-config ${flags})
  expect_greeting(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${library_folder}
                  ${WORK}/${kind}-pkg-config)
endfunction()

file(REMOVE_RECURSE ${WORK})
use_installed(shared ${BUILD})

# One build of the static library serves three ways: inside the consumer's project, and installed
# from there.
set(inside ${WORK}/add-subdirectory)
run(${configure} -S ${consumer} -B ${inside} -DZEL_SOURCE=${SOURCE} -DBUILD_SHARED_LIBS=OFF
    -DZEL_INSTALL=ON)
run(${CMAKE_COMMAND} --build ${inside})
expect_greeting(${inside}/consumer)
use_installed(static ${inside})
