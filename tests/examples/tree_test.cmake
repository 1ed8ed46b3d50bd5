# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)
file(REMOVE_RECURSE work)
file(WRITE work/a/one.txt "12345")
file(WRITE work/a/b/Two.TXT "1234567")
file(WRITE work/a/b/c:x "1")
file(CREATE_LINK .. work/a/b/loop SYMBOLIC)

expect(STATUS 0 ARGS list work
       OUTPUT " +work\n +a/\n +b/\n +1 +c:x\n +- +loop\n +7 +Two.TXT\n +5 +one.txt\n +13 bytes in 4 files and 2 folders\n")
expect(STATUS 0 ARGS find *.txt work OUTPUT "work/a/b/Two.TXT\nwork/a/one.txt\n")
expect(STATUS 1 ARGS find nothing work)
file(REMOVE work/a/b/loop)
expect(STATUS 0 ARGS copy work/a work/new/copy
       OUTPUT "13 bytes in 3 files and 2 folders copied\n")
expect(STATUS 0 ARGS compare work/a work/new/copy
       OUTPUT "equal: 13 bytes in 3 files and 2 folders\n")
file(WRITE work/a/b/Two.TXT "7654321")
file(WRITE work/new/copy/more "")
expect(STATUS 1 ARGS compare work/a work/new/copy
       OUTPUT "work/a/b/Two.TXT and work/new/copy/b/Two.TXT differ\nonly work/new/copy/more\n")
expect(STATUS 0 ARGS copy work/a/one.txt work/one OUTPUT "5 bytes in 1 files and 0 folders copied\n")
expect(STATUS 0 ARGS remove work/new work/one OUTPUT "work/new removed\nwork/one removed\n")
if(EXISTS work/new OR EXISTS work/one OR NOT EXISTS work/a/one.txt)
  message(SEND_ERROR "removed too little or too much")
endif()
expect(STATUS 0 ARGS --help OUTPUT "usage: [^\n]+\n")

# On a terminal a long copy shows how far it is.
find_program(SCRIPT script)
if(SCRIPT)
  execute_process(COMMAND truncate -s 100000000 work/long)
  execute_process(COMMAND ${SCRIPT} -qec "'${PROGRAM}' copy work/long work/longer" /dev/null
                  INPUT_FILE /dev/null OUTPUT_VARIABLE output RESULT_VARIABLE status)
  if(NOT status EQUAL 0 OR NOT output MATCHES "long: 1 MB of 100 MB .1%." OR NOT EXISTS work/longer)
    message(SEND_ERROR "long copy: ${status}, ${output}")
  endif()
  expect(STATUS 0 ARGS compare work/long work/longer OUTPUT "equal: [^\n]+\n")
endif()

# One line says what is wrong.
foreach(words "" "list" "list;work;work" "find;work" "copy;work" "remove" "bend;work")
  expect(STATUS 2 ARGS ${words} ERROR "tree: usage: [^\n]+\n")
endforeach()
expect(STATUS 2 ARGS list missing ERROR "tree: missing: The system cannot find the file[^\n]+\n")
expect(STATUS 2 ARGS list work/a/one.txt ERROR "tree: work/a/one.txt: no folder\n")
expect(STATUS 2 ARGS remove missing ERROR "tree: missing: [^\n]+\n")
expect(STATUS 2 ARGS copy work/a work/a/b/d ERROR "tree: work/a/b/d: is in what is copied\n")
expect(STATUS 2 ARGS copy work/a/one.txt work/a ERROR "tree: [^\n]+ denied[^\n]+\n")
expect(STATUS 2 ARGS list back\\slash ERROR "tree: back.slash: [^\n]+\n")
string(REPEAT x 300 long)
expect(STATUS 2 ARGS list ${long} ERROR "tree: x+: [^\n]+\n")
file(REMOVE_RECURSE work)
