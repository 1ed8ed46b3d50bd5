# SPDX-License-Identifier: MIT
# expect(STATUS 0 OUTPUT regex ERROR regex ARGS words... INPUT file): runs PROGRAM and holds it
# against what is expected; an output or error that is not named has to be empty.
function(expect)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "STATUS;OUTPUT;ERROR;INPUT" "ARGS")
  set(input "")
  if(arg_INPUT)
    set(input INPUT_FILE ${arg_INPUT})
  endif()
  execute_process(COMMAND ${PROGRAM} ${arg_ARGS} ${input} RESULT_VARIABLE status
                  OUTPUT_VARIABLE output ERROR_VARIABLE error)
  if(NOT status EQUAL arg_STATUS
     OR NOT output MATCHES "^${arg_OUTPUT}$"
     OR NOT error MATCHES "^${arg_ERROR}$")
    list(JOIN arg_ARGS " " words)
    message(SEND_ERROR "${words}\nstatus ${status}\noutput: ${output}\nerror: ${error}")
  endif()
endfunction()
