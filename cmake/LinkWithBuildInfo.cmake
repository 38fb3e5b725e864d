# Run by the build in front of a link, as
#   cmake -DCOMPILER=... -DSOURCE_DIR=... -DFOLDER=... -P LinkWithBuildInfo.cmake -- LINK COMMAND...
# adds an object with the time and the command to it. The command is told as the build issues it, but
# for the folders of this one build, and SOURCE_DATE_EPOCH takes the place of the time: two builds of
# the same source give the same bytes.
cmake_minimum_required(VERSION 3.25)

set(command "")
set(in_command OFF)
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE ${last})
  if(in_command)
    string(REPLACE ";" "\\;" word "${CMAKE_ARGV${i}}")
    list(APPEND command "${word}")
  elseif(CMAKE_ARGV${i} STREQUAL "--")
    set(in_command ON)
  endif()
endforeach()

list(JOIN command " " LINK_COMMAND)
string(REPLACE "${FOLDER}" "." LINK_COMMAND "${LINK_COMMAND}")
string(REPLACE "${SOURCE_DIR}" "." LINK_COMMAND "${LINK_COMMAND}")
string(MD5 name "${command}")
file(MAKE_DIRECTORY ${FOLDER})
set(OUTPUT ${FOLDER}/${name}.c)
set(TEMPLATE ${CMAKE_CURRENT_LIST_DIR}/buildinfo.c.in)
include(${CMAKE_CURRENT_LIST_DIR}/WriteBuildInfo.cmake)

foreach(step IN ITEMS "COMPILER;-x;c;-c;${OUTPUT};-o;${OUTPUT}.o" "command;${OUTPUT}.o")
  list(POP_FRONT step program)
  execute_process(COMMAND ${${program}} ${step} RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "the link failed: ${status}")
  endif()
endforeach()
