# SPDX-License-Identifier: MIT
# Runs Doxygen over HEADERS, the guide, the design pages and the examples of SOURCE; the site goes
# into SITE. Any warning is an error.
file(GLOB pages ${SOURCE}/*.md ${SOURCE}/docs/*.md ${SOURCE}/docs/guide/*.md)
file(GLOB_RECURSE examples ${SOURCE}/examples/*.cpp ${SOURCE}/examples/*.h)
set(INPUT ${HEADERS} ${pages})
list(JOIN INPUT " " INPUT)

# The examples as one page a program, so that links to them lead somewhere in the site too.
set(generated ${SITE}.pages)
file(REMOVE_RECURSE ${SITE} ${generated})
file(MAKE_DIRECTORY ${SITE} ${generated})
configure_file(${SOURCE}/docs/Doxyfile.in ${generated}/Doxyfile @ONLY)
execute_process(COMMAND ${DOXYGEN} ${generated}/Doxyfile RESULT_VARIABLE status
                OUTPUT_VARIABLE output ERROR_VARIABLE warnings)
if(NOT status EQUAL 0 OR NOT warnings STREQUAL "")
  string(REGEX MATCHALL "[^\n]+" lines "${warnings}")
  list(LENGTH lines count)
  message(FATAL_ERROR "${warnings}\n${count} warnings")
endif()
