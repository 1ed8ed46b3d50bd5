# SPDX-License-Identifier: MIT
# Calls go down only: reads every #include below zel/ and holds it against the table of what each
# folder may include. Besides, headers form no cycle, no neutral file names the host or the
# processor, and no file is longer than a reader wants to scroll.
#     cmake [-DSOURCE=folder of the project] -P tests/package/layers_test.cmake
cmake_minimum_required(VERSION 3.24)
if(NOT SOURCE)
  cmake_path(SET SOURCE NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../..)
endif()

# A folder may always include itself. `platform` are the headers that users may include; what a room
# above may use of the layer is all of it.
set(layer platform platform/host platform/paths platform/waits platform/threads platform/objects
          platform/queues platform/files platform/profiles)
set(may_base "")
set(may_platform base)
set(may_platform/host base platform)
set(may_platform/paths base platform platform/host)
set(may_platform/waits base platform platform/host)
set(may_platform/threads base platform platform/host platform/waits)
set(may_platform/objects base platform platform/host platform/waits platform/threads)
set(may_platform/queues base platform platform/host platform/waits platform/threads
                        platform/objects)
set(may_platform/files base platform platform/host platform/paths)
set(may_platform/profiles base platform platform/host platform/waits platform/threads
                          platform/paths)
set(may_core base ${layer} text)
set(may_text base ${layer} core)
set(may_naming base ${layer} core text)
set(may_values base ${layer} core text)
set(may_files base ${layer} core text)
set(may_log base ${layer} core text)
set(may_threads base ${layer} core text files log)
set(may_profile base ${layer} core text files log)
set(may_. base ${layer} core text naming values files log threads profile)

set(longest 450)
# The one file that names a processor and is neutral all the same, with a portable form beside it.
set(with_a_portable_form "base/block16.h")
set(processor_names "_mm[0-9]*_[a-z]|__m(128|256|512)|__builtin_ia32|__x86_64__|__SSE|__aarch64__|__ARM")
# What the name of a file says that is not neutral.
set(of_a_machine "_(linux|x86_64|aarch64)")
set(host_names "__linux__|__GLIBC__|__gnu_linux__")

# What has not come to its place yet; this list only shrinks.
set(not_yet
    "long files/path.cpp" "long platform/files/file_system_linux.cpp"
    "long platform/paths/shell_path.cpp"
   
    "long text/format.cpp"
    "long text/string.cpp")

file(GLOB_RECURSE files RELATIVE ${SOURCE}/zel ${SOURCE}/zel/*.h ${SOURCE}/zel/*.cpp)
list(LENGTH files count)
if(count LESS 100)
  message(FATAL_ERROR "only ${count} files were found below ${SOURCE}/zel")
endif()

set(layer_headers ${files})
list(FILTER layer_headers INCLUDE REGEX "^platform/[^/]*$")
if(NOT "${layer_headers}" STREQUAL
   "platform/kernel_objects.h;platform/last_error.h;platform/message_queue.h;platform/rectangles.h")
  message(SEND_ERROR "zel/platform/ itself holds what users include and nothing else: "
                     "${layer_headers}")
endif()

function(complain key text)
  if(NOT key IN_LIST not_yet)
    message(SEND_ERROR "zel/${text}")
  endif()
endfunction()

set(headers "")
foreach(file IN LISTS files)
  cmake_path(GET file PARENT_PATH folder)
  if(folder STREQUAL "")
    set(folder .)
  endif()
  if(NOT DEFINED may_${folder})
    message(SEND_ERROR "zel/${folder} is not in the table of this test")
    continue()
  endif()
  if(file MATCHES "\\.h$")
    list(APPEND headers ${file})
  endif()
  file(STRINGS ${SOURCE}/zel/${file} includes REGEX "^ *# *include")
  foreach(include IN LISTS includes)
    if(include MATCHES "\"zel/(.*)\"")
      set(target ${CMAKE_MATCH_1})
      cmake_path(GET target PARENT_PATH target_folder)
      if(target_folder STREQUAL "")
        set(target_folder .)
      endif()
      if(NOT target_folder STREQUAL folder AND NOT target_folder IN_LIST may_${folder})
        string(REGEX REPLACE "^platform/" "" from ${folder})
        string(REGEX REPLACE "^platform/" "" to "${target_folder}")
        complain("${from} -> ${to}" "${file} includes zel/${target}, which stands above it")
      endif()
      if(target MATCHES "${of_a_machine}" AND NOT file MATCHES "${of_a_machine}"
         AND NOT file IN_LIST with_a_portable_form)
        message(SEND_ERROR "zel/${file} is neutral and includes zel/${target}")
      endif()
      list(APPEND includes_of_${file} ${target})
    elseif(NOT include MATCHES "<([a-z_0-9]+)>" AND NOT file MATCHES "${of_a_machine}")
      # A header of the C++ standard has neither a dot nor a slash.
      if(NOT file IN_LIST with_a_portable_form)
        message(SEND_ERROR "zel/${file} is neutral: ${include}")
      endif()
    endif()
  endforeach()
  if(NOT file MATCHES "${of_a_machine}" AND NOT file IN_LIST with_a_portable_form)
    file(STRINGS ${SOURCE}/zel/${file} names REGEX "${processor_names}|${host_names}")
    if(names)
      list(GET names 0 name)
      string(STRIP "${name}" name)
      message(SEND_ERROR "zel/${file} is neutral: ${name}")
    endif()
  endif()
  file(READ ${SOURCE}/zel/${file} text)
  string(REGEX REPLACE "[^\n]" "" text "${text}")
  string(LENGTH "${text}" lines)
  if(lines GREATER longest)
    complain("long ${file}" "${file} has ${lines} lines, more than ${longest}")
  endif()
endforeach()

# Takes away the headers that need none of those left, until none is left or none can go.
set(left ${headers})
set(before "")
while(NOT "${left}" STREQUAL "${before}")
  set(before "${left}")
  set(left "")
  foreach(header IN LISTS before)
    foreach(target IN LISTS includes_of_${header})
      if(target IN_LIST before)
        list(APPEND left ${header})
        break()
      endif()
    endforeach()
  endforeach()
endwhile()
if(left)
  list(JOIN left " " left)
  message(SEND_ERROR "headers that include each other, or such: ${left}")
endif()
