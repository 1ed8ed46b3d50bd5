# SPDX-License-Identifier: MIT
# Loading the library runs nothing of its own, and only names of zel leave it.
set(failures "")

# An object file with a function to run at load has one of these sections.
foreach(object IN LISTS OBJECTS)
  execute_process(COMMAND ${READELF} --wide --sections ${object} OUTPUT_VARIABLE sections
                          COMMAND_ERROR_IS_FATAL ANY)
  if(sections MATCHES "\\.(init_array|preinit_array|ctors|init)[ .]")
    list(APPEND failures "runs something at load: ${object}")
  endif()
endforeach()

# A child that is forked while another thread initializes a local static variable would wait for that
# thread, which it does not have.
execute_process(COMMAND ${NM} --undefined-only ${OBJECTS} OUTPUT_VARIABLE needed
                        COMMAND_ERROR_IS_FATAL ANY)
if(needed MATCHES "__cxa_(guard_acquire|thread_atexit)")
  list(APPEND failures "a static or thread_local variable is initialized late: ${CMAKE_MATCH_0}")
elseif(NOT needed MATCHES "memcpy")
  list(APPEND failures "the names that the objects need were not read")
endif()

# The shared object: one entry, the C run-time's own frame_dummy.
if(LIBRARY MATCHES "\\.so")
  execute_process(COMMAND ${READELF} --wide --sections ${LIBRARY} OUTPUT_VARIABLE sections
                          COMMAND_ERROR_IS_FATAL ANY)
  if(NOT sections MATCHES "\\.init_array +INIT_ARRAY +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)")
    set(CMAKE_MATCH_1 "0")
  endif()
  math(EXPR bytes "0x${CMAKE_MATCH_1}")
  if(bytes GREATER 8)
    list(APPEND failures ".init_array holds ${bytes} bytes, more than the run-time's own entry")
  endif()

  # Hardened as the distribution hardens its own: what is looked up at load can't be written after,
  # returns and copies are checked. The run-time's start files decide whether the whole object says
  # that its indirect branches are marked, so the library's own files are asked.
  if(HARDENED)
    execute_process(COMMAND ${READELF} --wide --segments --dynamic ${LIBRARY} OUTPUT_VARIABLE facts
                            COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${NM} --dynamic --undefined-only ${LIBRARY} OUTPUT_VARIABLE needed
                            COMMAND_ERROR_IS_FATAL ANY)
    foreach(fact GNU_RELRO BIND_NOW)
      if(NOT facts MATCHES "${fact}")
        list(APPEND failures "not hardened: no ${fact}")
      endif()
    endforeach()
    foreach(name __stack_chk_fail "__[a-z]+_chk")
      if(NOT needed MATCHES " ${name}@?")
        list(APPEND failures "not hardened: calls no ${name}")
      endif()
    endforeach()
    if(facts MATCHES "GNU_STACK[^\n]*RWE" OR facts MATCHES "TEXTREL")
      list(APPEND failures "not hardened: an executable stack, or text that is written")
    endif()
    foreach(object IN LISTS OBJECTS)
      execute_process(COMMAND ${READELF} --notes ${object} OUTPUT_VARIABLE notes
                              COMMAND_ERROR_IS_FATAL ANY)
      if(NOT notes MATCHES "IBT, SHSTK")
        list(APPEND failures "not hardened: branches are not marked in ${object}")
      endif()
    endforeach()
  endif()

  execute_process(COMMAND ${NM} --dynamic --defined-only --demangle ${LIBRARY}
                  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE ";" "," symbols "${symbols}")
  string(REGEX REPLACE "\n$" "" symbols "${symbols}")
  string(REPLACE "\n" ";" symbols "${symbols}")
  list(LENGTH symbols count)
  foreach(symbol IN LISTS symbols)
    string(REGEX REPLACE "^[0-9a-f]* *[A-Za-z] " "" name "${symbol}")
    if(NOT name MATCHES
       "^((vtable|VTT|typeinfo|typeinfo name) for |(non-virtual|virtual) thunk to )?(zel::|(t_point|t_size|t_rect|tagMSG)(::|$))")
      list(APPEND failures "foreign symbol: ${name}")
    endif()
  endforeach()
  if(count LESS 50)
    list(APPEND failures "only ${count} symbols: the list was not read")
  endif()
endif()

list(LENGTH OBJECTS count)
if(count LESS 5)
  list(APPEND failures "only ${count} objects were looked at")
endif()
if(failures)
  list(JOIN failures "\n" text)
  message(FATAL_ERROR "${text}")
endif()
