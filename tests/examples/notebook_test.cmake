# SPDX-License-Identifier: MIT
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)
set(work ${CMAKE_CURRENT_BINARY_DIR})
set(ENV{XDG_CONFIG_HOME} ${work}/configuration)
set(ENV{TZ} UTC)
set(pages ${work}/pages)
set(kept ${work}/configuration/zel-notebook)
file(REMOVE_RECURSE ${work}/configuration ${pages})
file(MAKE_DIRECTORY ${work}/configuration)

# notes(INPUT lines... STATUS n OUTPUT regex ERROR regex ARGS words...): a run that is fed these lines.
function(notes)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "STATUS;OUTPUT;ERROR" "INPUT;ARGS")
  list(JOIN arg_INPUT "\n" text)
  file(WRITE ${work}/input "${text}\n")
  expect(STATUS ${arg_STATUS} OUTPUT "${arg_OUTPUT}" ERROR "${arg_ERROR}" INPUT ${work}/input
         ARGS --folder ${pages} ${arg_ARGS})
endfunction()
function(same file text)
  file(READ ${file} found)
  if(NOT found STREQUAL text)
    message(SEND_ERROR "${file}: ${found}")
  endif()
endfunction()

# Pages, copies, checksums, a listing, a plug-in.
notes(STATUS 0 ARGS "shopping list for the weekend"
      INPUT "show" "add bread & butter" "add" "add milk" "save" "list" "show" "words" "export html"
      OUTPUT "shopping list for the weekend.txt: 0 bytes
saved, sum [0-9A-F]+
[A-Za-z]+ +21  [0-9A-F]+  shopping list for the weekend.txt
bread & butter

milk
4 words in 1 pages
written to ${pages}/shopping list for the weekend.html
")
same("${pages}/shopping list for the weekend.html"
     "<!DOCTYPE html>\n<meta charset=\"utf-8\">\n<title>shopping list for the weekend</title>\n<h1>shopping list for the weekend</h1>\n<p>bread &amp; butter</p>\n<p>milk</p>\n")
notes(STATUS 0 INPUT "recent 1" "add eggs" "save" "open b" "add 1" "save" "backup" "recent"
      OUTPUT "shopping list for the weekend.txt: 21 bytes\nsaved, sum [0-9A-F]+\nb.txt: 0 bytes\nsaved, sum [0-9A-F]+
2 pages copied to ${pages}/backup/[-0-9. ]+\n1  ${pages}/b.txt\n2  ${pages}/shopping list for the weekend.txt\n")
same("${pages}/shopping list for the weekend.txt.bak" "bread & butter\n\nmilk\n")
file(GLOB_RECURSE copies ${pages}/backup/*.txt)
list(LENGTH copies count)
if(NOT count EQUAL 2)
  message(SEND_ERROR "copies: ${copies}")
endif()

# Another program's change shows; of six pages five are remembered; the window has its place.
file(APPEND ${pages}/b.txt "2\n")
notes(STATUS 0 INPUT "open b" "open c" "open d" "open e" "open f" "recent" "place 3 4 80 25"
      OUTPUT "b.txt: 4 bytes\nanother program has changed it since\n.*1  [^\n]*/f.txt\n2  [^\n]*/e.txt\n3  [^\n]*/d.txt\n4  [^\n]*/c.txt\n5  [^\n]*/b.txt\n")
file(READ ${kept}/settings.ini text)
if(NOT text MATCHES "\\[window.place\\]\nframe=0300000004000000530000001D000000")
  message(SEND_ERROR "settings: ${text}")
endif()

# On a terminal the bar grows, and its line is wiped for what comes next.
find_program(SCRIPT script)
if(SCRIPT)
  file(WRITE ${work}/input "words\nquit\n")
  execute_process(COMMAND ${SCRIPT} -qec "${PROGRAM} --folder ${pages}" /dev/null
                  INPUT_FILE ${work}/input RESULT_VARIABLE status OUTPUT_VARIABLE output)
  string(ASCII 27 escape)
  if(NOT status EQUAL 0
     OR NOT output MATCHES "\r.#[.]+. +13 %.*\r.##########. 100 %.*\r${escape}.K7 words in 2 pages")
    message(SEND_ERROR "status ${status}\n${output}")
  endif()
endif()

# A second start calls the first, which is then killed while a third waits for its end. No line is
# lost.
file(WRITE ${work}/kill.sh [[
program=$1 pages=$2
rm -f in
mkfifo in
: >first.log # or what an earlier run has said would count
: >third.log
says() {
    for _ in $(seq 400); do grep -q "$2" "$1" && return; sleep 0.05; done
    echo "$1 never said: $2"
    cat "$1"
    kill -9 "$holder"
    exit 1
}
"$program" --folder "$pages" crash <in >first.log 2>&1 &
holder=$!
exec 3>in
echo 'add kept' >&3
says first.log 'crash.txt: 0 bytes'
"$program" --folder "$pages" b </dev/null
says first.log 'another start has called'
says first.log 'b.txt: 4 bytes'
kill -STOP "$holder"
"$program" --folder "$pages" </dev/null
echo "status $?"
"$program" --wait --folder "$pages" </dev/null >third.log 2>&1 &
third=$!
says third.log waiting
kill -9 "$holder"
wait "$third" && cat third.log
echo save | "$program" --folder "$pages" crash
cat "$pages/crash.txt"
]])
execute_process(COMMAND sh ${work}/kill.sh ${PROGRAM} ${pages} RESULT_VARIABLE status
                OUTPUT_VARIABLE output ERROR_VARIABLE error)
if(NOT status EQUAL 0 OR NOT output MATCHES
"^another notebook runs, and was called
status 1
waiting for the end of another notebook
the notebook before did not end by itself
crash.txt: 5 bytes, with lines that were never saved
saved, sum [0-9A-F]+
kept
$")
  message(SEND_ERROR "status ${status}\noutput: ${output}\nerror: ${error}")
endif()
file(READ ${kept}/notebook.log log)
if(NOT log MATCHES "warning +the notebook before did not end by itself\n[^']*ended with 0 errors\n")
  message(SEND_ERROR "${log}")
endif()

# What cannot be done is told, and the status says so.
notes(STATUS 1 INPUT "add x" "recent 9" "recent x" "place 1 2 3" "place 1 2 0 4" "export html" "fly" "open g"
                     "export pdf" "export ../html"
      OUTPUT "g.txt: 0 bytes\n"
      ERROR "notebook: no page is open\nnotebook: there is no page 9\n(notebook: [^\n]*\n)*notebook: fly: no command; help lists them\nnotebook: there is no plug-in for pdf\nnotebook: export needs the name of a format\n")
expect(STATUS 0 ARGS --help OUTPUT "usage: [^\n]+\n\n(  [^\n]+\n)+")
foreach(words "--fly" "a;b" "--folder")
  expect(STATUS 2 ARGS ${words} ERROR "notebook: usage: [^\n]+\n")
endforeach()
file(CHMOD ${kept}/settings.ini PERMISSIONS OWNER_READ)
notes(STATUS 1 ARGS z INPUT "list" OUTPUT "z.txt: 0 bytes\n" ERROR "notebook: ${kept}/settings.ini: [^\n]+\n")
set(ENV{XDG_CONFIG_HOME} /dev/null)
notes(STATUS 1 INPUT "list" ERROR "notebook: there is no folder for settings\n")
