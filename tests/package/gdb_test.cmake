# SPDX-License-Identifier: MIT
# Prints the variables of a small program in GDB, which loads the printers by itself: first from the
# build tree, then from an installed library.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    list(JOIN ARGV " " command)
    message(FATAL_ERROR "${command}\n${output}${errors}")
  endif()
  set(output "${output}" PARENT_SCOPE)
  set(errors "${errors}" PARENT_SCOPE)
endfunction()

set(expected_file ${SOURCE}/tests/package/gdb/expected.txt)
file(READ ${expected_file} expected)
file(STRINGS ${expected_file} lines)

function(expect_values library_folder)
  set(commands "set environment LD_LIBRARY_PATH ${library_folder}\nbreak stop_here\nrun\nup\n")
  string(APPEND commands "echo begin\\n\n")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE " = .*" "" name "${line}")
    string(APPEND commands "printf \"${name} = \"\noutput ${name}\necho \\n\n")
  endforeach()
  file(WRITE ${WORK}/commands.gdb "${commands}echo end\\n\n")
  run(${GDB} -nx -batch -iex "add-auto-load-safe-path ${library_folder}" -x ${WORK}/commands.gdb
      ${PROGRAM})
  string(REGEX REPLACE "^.*\nbegin\n(.*)end\n.*" "\\1" shown "${output}")
  if(NOT shown STREQUAL expected)
    message(FATAL_ERROR "with the library in ${library_folder} GDB shows\n${shown}\n${errors}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
cmake_path(GET LIBRARY PARENT_PATH build_folder)
expect_values(${build_folder})

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/installed)
file(GLOB_RECURSE installed ${WORK}/installed/*/libzel.so)
cmake_path(GET installed PARENT_PATH installed_folder)
expect_values(${installed_folder})
