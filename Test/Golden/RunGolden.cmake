# Runs one golden-log scenario and compares vornsim's standard output, byte
# for byte, with the log checked in beside the scenario.
#
#   cmake -DVORNSIM=<vornsim> -DSCENARIO=<dir>/<name>.cmd -DWORKDIR=<dir> -P RunGolden.cmake
#
# <name>.cmd holds one line of vornsim arguments per run; blank lines and
# lines starting with '#' are skipped. The runs go in order in WORKDIR
# (emptied first, so files a scenario keeps between runs, such as the flash
# image, start afresh and then carry from run to run). <name>.log is the
# expected standard output of all runs, one after the other; the actual one
# is left in WORKDIR as <name>.out for inspection. A line "file NAME" runs
# nothing: it adds the bytes of the file NAME that the runs so far left in
# WORKDIR (a serial log written with --log, say) at that point of the output.
# A run line starting with "! " may fail: its standard error and a line
# "exit N" follow its standard output, so refusals are pinned as well.
#
# With -DUPDATE=ON a differing output replaces <name>.log (after showing the
# difference, for review) instead of failing: that is how `make golden`
# regenerates the logs.

foreach(variable VORNSIM SCENARIO WORKDIR)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "RunGolden.cmake needs -D${variable}=...")
  endif()
endforeach()

get_filename_component(name ${SCENARIO} NAME_WE)
get_filename_component(directory ${SCENARIO} DIRECTORY)
set(expected ${directory}/${name}.log)
set(actual ${WORKDIR}/${name}.out)

file(STRINGS ${SCENARIO} all_lines)
set(lines)
foreach(line IN LISTS all_lines)
  if(NOT line MATCHES "^[ \t]*(#|$)")
    list(APPEND lines "${line}")
  endif()
endforeach()
list(LENGTH lines count)
if(count EQUAL 0)
  message(FATAL_ERROR "${SCENARIO}: no line of vornsim arguments")
endif()

file(REMOVE_RECURSE ${WORKDIR})
file(MAKE_DIRECTORY ${WORKDIR})
set(parts)
set(run 0)
foreach(line IN LISTS lines)
  if(line MATCHES "^file[ \t]+(.+)$")
    if(NOT EXISTS ${WORKDIR}/${CMAKE_MATCH_1})
      message(FATAL_ERROR "${SCENARIO}: no file ${CMAKE_MATCH_1} was left to compare")
    endif()
    list(APPEND parts ${WORKDIR}/${CMAKE_MATCH_1})
    continue()
  endif()
  math(EXPR run "${run} + 1")
  set(show_status FALSE)
  if(line MATCHES "^![ \t]+(.+)$")
    set(show_status TRUE)
    set(line "${CMAKE_MATCH_1}")
  endif()
  separate_arguments(arguments UNIX_COMMAND "${line}")
  set(part ${WORKDIR}/${name}.out.${run})
  list(APPEND parts ${part})
  execute_process(
    COMMAND ${VORNSIM} ${arguments}
    WORKING_DIRECTORY ${WORKDIR}
    OUTPUT_FILE ${part}
    ERROR_VARIABLE errors
    RESULT_VARIABLE result)
  if(show_status)
    file(WRITE ${part}.status "${errors}exit ${result}\n")
    list(APPEND parts ${part}.status)
  elseif(NOT result EQUAL 0)
    message(FATAL_ERROR "vornsim ${line} (run ${run} of ${SCENARIO}) exited with ${result}:\n${errors}")
  endif()
endforeach()
# Byte for byte: the logs end their lines with CR LF.
execute_process(COMMAND ${CMAKE_COMMAND} -E cat ${parts} OUTPUT_FILE ${actual} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cannot join the outputs of ${SCENARIO}")
endif()
string(REPLACE ";" " | " lines "${lines}")

execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${expected} ${actual} RESULT_VARIABLE different)
if(different)
  find_program(DIFF diff)
  if(DIFF)
    # Straight to the console: message() would rewrap the lines. Carriage
    # returns are ignored for display only; the comparison above is exact.
    execute_process(COMMAND ${DIFF} -u --strip-trailing-cr ${expected} ${actual} RESULT_VARIABLE shown)
    if(shown EQUAL 0)
      message(NOTICE "The outputs differ only in line endings.")
    endif()
  else()
    # No diff tool: name the first line that differs.
    file(STRINGS ${expected} expected_lines)
    file(STRINGS ${actual} actual_lines)
    list(LENGTH expected_lines expected_count)
    list(LENGTH actual_lines actual_count)
    set(report "The outputs differ only in line endings.")
    set(line 0)
    while(line LESS expected_count OR line LESS actual_count)
      set(want "<end of file>")
      set(got "<end of file>")
      if(line LESS expected_count)
        list(GET expected_lines ${line} want)
      endif()
      if(line LESS actual_count)
        list(GET actual_lines ${line} got)
      endif()
      if(NOT want STREQUAL got)
        math(EXPR number "${line} + 1")
        set(report "First difference, line ${number}:\n  expected: ${want}\n  actual:   ${got}")
        break()
      endif()
      math(EXPR line "${line} + 1")
    endwhile()
    message(NOTICE "${report}")
  endif()
  if(UPDATE)
    execute_process(COMMAND ${CMAKE_COMMAND} -E copy ${actual} ${expected})
    message(STATUS "vornsim ${lines}: ${name}.log updated; review the difference above")
    return()
  endif()
  message(FATAL_ERROR "vornsim ${lines}: output differs from ${expected} (actual output kept in ${actual})")
endif()
message(STATUS "vornsim ${lines}: output matches ${name}.log")
