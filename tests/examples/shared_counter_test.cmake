# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)
foreach(processes 1 6)
  math(EXPR total "(${processes} + 1) * 200")
  expect(STATUS 0 ARGS --processes ${processes} --steps 200
         OUTPUT "warning +process [0-9]+: the owner died in the step to 201, taken back\n${processes} processes, 200 steps each and 200 of the one that was killed: ${total}, right\n")
endforeach()

expect(STATUS 0 ARGS --help OUTPUT "usage: [^\n]+\n")
expect(STATUS 2 ARGS --steps ERROR "shared_counter: --steps: not understood; usage: [^\n]+\n")
foreach(number 0 -1 1000001 12x)
  expect(STATUS 2 ARGS --steps ${number}
         ERROR "shared_counter: --steps takes a number from 1 to 1000000, not '${number}'\n")
endforeach()
