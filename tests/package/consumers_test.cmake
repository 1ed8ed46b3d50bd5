# SPDX-License-Identifier: MIT
# Builds and runs a small program against the library in every way that a user may link it: shared
# and static, through find_package, pkg-config and add_subdirectory. The installed tree is moved
# before it is used, so that a path baked into it would show. What does not fit is refused in one line.
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

# expect_refusal(regex command...): fails and says so, in one place.
function(expect_refusal regex)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  string(REGEX MATCHALL "${regex}" said "${output}")
  list(LENGTH said count)
  if(result EQUAL 0 OR NOT count EQUAL 1)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\n${count} times ${regex}, status ${result}\n${output}")
  endif()
endfunction()

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
  run(${configure} -S ${consumer} -B ${found} -DCMAKE_PREFIX_PATH=${prefix} -DKIND=${kind})
  run(${CMAKE_COMMAND} --build ${found})
  expect_greeting(${found}/consumer)

  file(GLOB_RECURSE pc ${prefix}/zel.pc)
  get_filename_component(pc_folder ${pc} DIRECTORY)
  get_filename_component(library_folder ${pc_folder} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_folder})
  run(pkg-config --cflags --libs zel)
  separate_arguments(flags UNIX_COMMAND "${output}")
  set(compile ${CXX} -std=c++20 ${consumer}/main.cpp -o ${WORK}/${kind}-pkg-config)
  run(${compile} ${flags} -Wl,-rpath,${library_folder}) # as the README says
  expect_greeting(${WORK}/${kind}-pkg-config)

  set(component -S ${consumer} -B ${WORK}/${kind}-refused -DCMAKE_PREFIX_PATH=${prefix})
  expect_refusal("zel has no component wide here, only" ${configure} ${component}
                 -DKIND=wide)
  expect_refusal("name one component" ${configure} ${component} -DKIND=both)

  # Another standard library, or another shape of the same one.
  expect_refusal("undefined reference to .zel::this_library_was_not_built_with_GLIBCXX_DEBUG"
                 ${compile} -D_GLIBCXX_DEBUG ${flags})
  expect_refusal("error: #error .zel needs the C\\+\\+11 strings of libstdc\\+\\+" ${compile}
                 -D_GLIBCXX_USE_CXX11_ABI=0 ${flags})
  if(CLANG)
    execute_process(COMMAND ${CLANG} -stdlib=libc++ -std=c++20 -fsyntax-only -include version
                            ${consumer}/main.cpp ${flags} RESULT_VARIABLE without_libcxx
                    OUTPUT_QUIET ERROR_QUIET)
    if(NOT without_libcxx)
      expect_refusal("undefined reference to .zel::this_library_was_not_built_with_libcxx" ${CLANG}
                     -stdlib=libc++ -std=c++20 ${consumer}/main.cpp -o ${WORK}/${kind}-libcxx
                     ${flags})
    endif()
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
use_installed(shared ${BUILD})

# Inside another project, whose warnings are not for the library's sources and headers. This build of
# the static library serves three ways: there, and installed from there.
set(inside ${WORK}/add-subdirectory)
set(strict -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wold-style-cast -Wuseless-cast -Weffc++
           -Wsuggest-override -Wduplicated-cond -Wnull-dereference -Wswitch-default -Werror)
list(JOIN strict " " strict)
run(${configure} -S ${consumer} -B ${inside} -DZEL_SOURCE=${SOURCE} -DBUILD_SHARED_LIBS=OFF
    -DZEL_INSTALL=ON "-DSTRICT=${strict}")
run(${CMAKE_COMMAND} --build ${inside})
if(output MATCHES "warning:")
  message(FATAL_ERROR "${output}")
endif()
expect_greeting(${inside}/consumer)
use_installed(static ${inside})

# What was installed goes, what lay there before stays.
set(prefix ${WORK}/uninstalled)
file(WRITE ${prefix}/lib/other "")
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
run(${CMAKE_COMMAND} --build ${BUILD} --target uninstall)
file(GLOB_RECURSE left LIST_DIRECTORIES TRUE RELATIVE ${prefix} ${prefix}/*)
if(NOT left STREQUAL "lib;lib/other")
  message(FATAL_ERROR "uninstall leaves ${left}")
endif()
