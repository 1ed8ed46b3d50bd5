# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)
set(folder ${CMAKE_CURRENT_BINARY_DIR}/configuration)
file(REMOVE_RECURSE ${folder})
file(MAKE_DIRECTORY ${folder})
set(ENV{XDG_CONFIG_HOME} ${folder})
set(file ${folder}/zel-example/settings.ini)

expect(STATUS 0 ARGS --read OUTPUT "a second process finds:\n  started 0 times\n  window  untitled, at 100,100, 640 wide\n")
expect(STATUS 0 OUTPUT "before:\n  .no settings.\nafter:\n  . .application.\n  . starts=1\n.*a second process finds:\n  started 1 times\n  window  untitled, at 120,110, 640 wide\n  file 1  C:.texts.letter 1.txt\n")
file(READ ${file} text)
if(NOT text STREQUAL "[application]\nstarts=1\n[editor\\window]\nframe=780000006E000000F80200004E02000030\n[recent\\files]\nfile1=C:\\texts\\letter 1.txt\norder=1\n")
  message(SEND_ERROR "${text}")
endif()
# What a user writes into the file is found, and stays.
file(APPEND ${file} "; mine\n")
file(WRITE ${file} "; mine\n[EDITOR\\window]\ntitle = 'letters'\n${text}")
expect(STATUS 0 OUTPUT "before:\n  . ; mine\n.*after:\n  . ; mine\n.*started 2 times\n  window  letters, at 120,110, 640 wide\n  file 2  C:.texts.letter 2.txt\n  file 1  C:.texts.letter 1.txt\n")

expect(STATUS 0 ARGS --help OUTPUT "usage: [^\n]+\n")
expect(STATUS 2 ARGS --reed ERROR "settings: unknown argument --reed; usage: settings .--read.\n")
expect(STATUS 2 ARGS --read x ERROR "settings: unknown argument x; usage: settings .--read.\n")
# Settings that cannot be written are no success.
file(CHMOD ${file} PERMISSIONS OWNER_READ)
expect(STATUS 1 OUTPUT "before:\n.*" ERROR "settings: ${file} cannot be written\n")
set(ENV{XDG_CONFIG_HOME} /dev/null)
expect(STATUS 1 ERROR "settings: there is no folder for settings\n")
