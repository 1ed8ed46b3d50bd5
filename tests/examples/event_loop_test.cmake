# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)
file(WRITE names "temperatureOffset\nint\n\nno line end")
expect(STATUS 0 ARGS 8 INPUT names OUTPUT "TempOfs\nint\n\n[^\n]+\n")
# More lines than the two queues hold.
set(lines "")
foreach(number RANGE 25000)
  string(APPEND lines "${number}\n")
endforeach()
file(WRITE many "${lines}")
expect(STATUS 0 ARGS 9 INPUT many OUTPUT "0\n.*\n25000\n")

expect(STATUS 0 ARGS --help OUTPUT "usage: [^\n]+\n")
expect(STATUS 2 ERROR "event_loop: usage: [^\n]+\n")
expect(STATUS 2 ARGS x ERROR "event_loop: Zel Conversion Exception: wrong symbol\n")
