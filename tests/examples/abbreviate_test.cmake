# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)
set(one_line "[^\n]+\n")

file(WRITE names.c "int temperature_offset = 0x1Fu;\r\nlong pixelClockFrequency; // it's\n")
file(WRITE empty "")
expect(STATUS 0 ARGS --target 10 names.c
       OUTPUT "identifier +short +long +short\nint +int +3 +3\n.*pixelClockFrequency +[A-Za-z]+ +19 +[0-9]+\n.*temperature_offset +TempOfs +18 +7\n.*")
expect(STATUS 0 ARGS --target 10 --lines INPUT names.c
       OUTPUT "[^\n]*\nint temperature_offset = 0x1Fu; [^\n]* 31 +[0-9]+\nlong[^\n]*\n")
expect(STATUS 0 ARGS --stats --target 2 names.c -- names.c
       OUTPUT "names +6\ntarget +2\ndifferent results +[1-6]\nnames that collide +[0-9]+\nmean length before +7.83\nmean length after +[0-2].[0-9]+\n")
expect(STATUS 0 ARGS --stats empty OUTPUT "names +0\n.*mean length after +0.00\n")
expect(STATUS 0 ARGS --help OUTPUT "usage: ${one_line}")

# One line says what is wrong, and nothing else is printed.
expect(STATUS 2 ARGS --targte 10 ERROR "abbreviate: unknown option --targte; usage: ${one_line}")
expect(STATUS 2 ARGS --target ERROR "abbreviate: --target needs a number\n")
foreach(number ten -1 12x 4294967296)
  expect(STATUS 2 ARGS --target ${number} ERROR "abbreviate: --target ${number}: Zel ${one_line}")
endforeach()
expect(STATUS 2 ARGS names.c missing.c ERROR "abbreviate: missing.c: No such file or directory\n")
expect(STATUS 2 ARGS . ERROR "abbreviate: .: Is a directory\n")

# An unreadable file; a superuser may read it all the same.
file(REMOVE locked) # CMake takes the unreadable one of an earlier run for missing
file(WRITE locked "")
file(CHMOD locked PERMISSIONS OWNER_WRITE)
execute_process(COMMAND id -u OUTPUT_VARIABLE user)
if(user EQUAL 0)
  expect(STATUS 0 ARGS --stats locked OUTPUT ".*")
else()
  expect(STATUS 2 ARGS locked ERROR "abbreviate: locked: Permission denied\n")
endif()
execute_process(COMMAND ${PROGRAM} names.c OUTPUT_FILE /dev/full ERROR_VARIABLE error
                RESULT_VARIABLE status)
if(NOT status EQUAL 2 OR NOT error MATCHES "^abbreviate: standard output: ${one_line}$")
  message(SEND_ERROR "full disk: status ${status}, ${error}")
endif()
