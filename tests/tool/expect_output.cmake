# Runs a program and fails unless it exits with 0 and prints EXPECT (a
# regular expression): ctest's PASS_REGULAR_EXPRESSION alone would ignore
# the exit code.
#   cmake -DEXPECT=<regex> -P expect_output.cmake -- <program> [args...]
set(command)
set(take OFF)
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE ${last})
  if(take)
    list(APPEND command "${CMAKE_ARGV${i}}")
  elseif(CMAKE_ARGV${i} STREQUAL "--")
    set(take ON)
  endif()
endforeach()
execute_process(COMMAND ${command} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message("${out}${err}")
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "exit code ${rc}: ${command}")
endif()
if(NOT out MATCHES "${EXPECT}")
  message(FATAL_ERROR "output lacks '${EXPECT}'")
endif()
