# SPDX-License-Identifier: MIT
# Runs Doxygen over HEADERS, the guide and the design pages of SOURCE; the site goes
# into SITE. Any warning is an error, and so is a link that leads nowhere.
file(GLOB pages ${SOURCE}/*.md ${SOURCE}/docs/*.md ${SOURCE}/docs/guide/*.md)
set(INPUT ${HEADERS} ${pages})
list(JOIN INPUT " " INPUT)

set(generated ${SITE}.pages)
file(REMOVE_RECURSE ${SITE} ${generated})
file(MAKE_DIRECTORY ${SITE} ${generated})
# The examples on one page, where links to their folder lead.
set(page "# Examples {#examples}\n\nPrograms to copy from. `./run-tour` shows them at work.\n")
file(GLOB_RECURSE programs RELATIVE ${SOURCE} ${SOURCE}/examples/*.cpp ${SOURCE}/examples/*.h)
foreach(program IN LISTS programs)
  file(READ ${SOURCE}/${program} code)
  string(APPEND page "\n## ${program}\n\n```cpp\n${code}```\n")
endforeach()
file(WRITE ${generated}/examples.md "${page}")
string(APPEND INPUT " ${generated}/examples.md")
configure_file(${SOURCE}/docs/Doxyfile.in ${generated}/Doxyfile @ONLY)
execute_process(COMMAND ${DOXYGEN} ${generated}/Doxyfile RESULT_VARIABLE status
                OUTPUT_VARIABLE output ERROR_VARIABLE warnings)
if(NOT EXISTS ${SITE}/classzel_1_1string.html OR NOT EXISTS ${SITE}/index.html)
  message(SEND_ERROR "the site in ${SITE} lacks pages")
endif()
if(NOT status EQUAL 0 OR NOT warnings STREQUAL "")
  string(REGEX MATCHALL "[^\n]+" lines "${warnings}")
  list(LENGTH lines count)
  message(FATAL_ERROR "${warnings}\n${count} warnings")
endif()

# Links lead somewhere.
file(GLOB html ${SITE}/*.html)
execute_process(COMMAND awk -f ${CMAKE_CURRENT_LIST_DIR}/links.awk ${html} RESULT_VARIABLE status
                OUTPUT_VARIABLE broken)
if(NOT status EQUAL 0 OR NOT broken STREQUAL "")
  message(FATAL_ERROR "${broken}")
endif()
