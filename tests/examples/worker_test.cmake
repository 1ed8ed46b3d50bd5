# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)
set(end "note +[0-9]+ messages of the group 'twin primes' were held back\n[^']*suspended: stood still, resumed: went on, terminated: yes, failed: 1\n")

file(REMOVE worker.log)
expect(STATUS 0 ARGS --log worker.log --numbers 1 OUTPUT ".*78498 primes below 1000000.*${end}")
file(READ worker.log log)
if(NOT log MATCHES "error +Exception 'Zel Conversion Exception: wrong symbol' occured in thread \\(id=0x[0-9a-f]+\\) 'failing'!\n"
   OR NOT log MATCHES "${end}$")
  message(SEND_ERROR "worker.log: ${log}")
endif()

expect(STATUS 0 ARGS --help OUTPUT "usage: [^\n]+\n")
expect(STATUS 2 ERROR "worker: usage: [^\n]+\n")
expect(STATUS 2 ARGS --log ERROR "worker: --log: not understood; usage: [^\n]+\n")
foreach(number 0 -1 1001 12x)
  expect(STATUS 2 ARGS --log worker.log --numbers ${number} ERROR "worker: --numbers [^\n]+\n")
endforeach()
expect(STATUS 2 ARGS --log missing/worker.log
       ERROR "worker: missing/worker.log: No such file or directory\n")
