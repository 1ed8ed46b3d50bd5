# SPDX-License-Identifier: MIT
# Each installed header compiles alone, without a warning, as a user of the library would include it.
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE headers RELATIVE ${WORK}/include ${WORK}/include/*.h)
list(LENGTH headers count)
if(count LESS 20)
  message(FATAL_ERROR "only ${count} headers were installed")
endif()

function(compile compiler header)
  file(WRITE ${WORK}/alone.cpp "#include <${header}>\n")
  execute_process(COMMAND ${compiler} -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion
                          -Wshadow -Werror -I ${WORK}/include ${WORK}/alone.cpp
                  RESULT_VARIABLE result ERROR_VARIABLE error)
  if(NOT result EQUAL 0)
    message(SEND_ERROR "${compiler} ${header}\n${error}")
  endif()
endfunction()

foreach(header IN LISTS headers)
  compile(${CXX} ${header})
endforeach()
if(CLANG)
  compile(${CLANG} zel/zel.h)
endif()

# What is public comes with the header of everything.
file(WRITE ${WORK}/everything.cpp "#include <zel/zel.h>\n")
execute_process(COMMAND ${CXX} -std=c++20 -M -I include everything.cpp WORKING_DIRECTORY ${WORK}
                OUTPUT_VARIABLE everything COMMAND_ERROR_IS_FATAL ANY)
foreach(header IN LISTS headers)
  if(NOT everything MATCHES "include/${header}[ \n]")
    message(SEND_ERROR "zel/zel.h does not bring ${header}")
  endif()
endforeach()

# Code of the standard library means the same behind the header of everything.
foreach(compiler IN ITEMS ${CXX} ${CLANG})
  foreach(standard IN ITEMS 20 2b)
    execute_process(
      COMMAND ${compiler} -std=c++${standard} -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion
              -Werror -I ${WORK}/include ${CMAKE_CURRENT_LIST_DIR}/ordinary_code.cpp
      RESULT_VARIABLE result ERROR_VARIABLE error)
    if(NOT result EQUAL 0)
      message(SEND_ERROR "${compiler} -std=c++${standard}\n${error}")
    endif()
  endforeach()

  # An older standard gives one error, which says what is needed.
  execute_process(COMMAND ${compiler} -std=c++17 -fsyntax-only -I ${WORK}/include
                          ${WORK}/everything.cpp ERROR_VARIABLE error)
  string(REGEX MATCHALL "error: [^\n]*" errors "${error}")
  list(LENGTH errors count)
  if(NOT count EQUAL 1 OR NOT errors MATCHES "zel needs C\\+\\+20")
    message(SEND_ERROR "${compiler} -std=c++17\n${error}")
  endif()
endforeach()
