# SPDX-License-Identifier: MIT
# Target `reference`: guide, design pages, examples and the reference of every installed header, in
# one site. Words that are missing or wrong end it.
set(ZEL_SITE ${PROJECT_SOURCE_DIR}/build/site)
find_program(DOXYGEN doxygen)
if(NOT DOXYGEN)
  return()
endif()
add_custom_target(
  reference
  COMMAND ${CMAKE_COMMAND} -DDOXYGEN=${DOXYGEN} -DSOURCE=${PROJECT_SOURCE_DIR} -DSITE=${ZEL_SITE}
          -DVERSION=${PROJECT_VERSION} "-DDESCRIPTION=${PROJECT_DESCRIPTION}"
          "-DHEADERS=$<TARGET_PROPERTY:zel,HEADER_SET>" -P
          ${PROJECT_SOURCE_DIR}/cmake/reference.cmake
  COMMENT "Writing the site into ${ZEL_SITE}"
  VERBATIM)
