# SPDX-License-Identifier: MIT
# Makes FOLDER/de_DE.CHARSET. localedef comes with the C library; the descriptions that it reads come
# with another package, and without them it fails and leaves an empty folder.
set(target ${FOLDER}/de_DE.${CHARSET})
file(MAKE_DIRECTORY ${FOLDER})
file(REMOVE_RECURSE ${target})
execute_process(COMMAND localedef --no-archive -i de_DE -f ${CHARSET} ${target}
                RESULT_VARIABLE status OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(NOT EXISTS ${target}/LC_NUMERIC OR NOT EXISTS ${target}/LC_CTYPE)
  string(STRIP "${said}" said)
  message(FATAL_ERROR "localedef made no ${target} (${status}: ${said}): the package `locales` has "
                      "the descriptions that it needs")
endif()
