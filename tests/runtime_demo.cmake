# Installs the runtime, builds the example against it twice, and compares and runs the results.
# Given: SOURCE_DIR, BUILD_DIR, GENERATOR, COMPILER, FLAGS (what the library's compiler options oblige to).
cmake_minimum_required(VERSION 3.25)
string(RANDOM LENGTH 8 suffix)
set(work ${BUILD_DIR}/runtime_demo_${suffix})

function(check condition_text)
  if(NOT (${ARGN}))
    file(REMOVE_RECURSE ${work})
    message(FATAL_ERROR "${condition_text}")
  endif()
endfunction()

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${work}
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
  set(out "${out}" PARENT_SCOPE)
  set(err "${err}" PARENT_SCOPE)
  check("${ARGN} ended with ${status}:\n${out}${err}" status EQUAL 0)
endfunction()

file(MAKE_DIRECTORY ${work})
file(COPY ${SOURCE_DIR}/examples/runtime-demo/ DESTINATION ${work}/source)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${work}/prefix --component mox_development)

set(ENV{SOURCE_DATE_EPOCH} 1700000000)
foreach(build IN ITEMS one two)
  run(${CMAKE_COMMAND} -S source -B ${build} -G ${GENERATOR} -DCMAKE_BUILD_TYPE=Release
    -DCMAKE_PREFIX_PATH=${work}/prefix -DCMAKE_CXX_COMPILER=${COMPILER} "-DCMAKE_CXX_FLAGS=${FLAGS}")
  run(${CMAKE_COMMAND} --build ${build})
endforeach()
file(SHA256 ${work}/one/runtime_demo first)
file(SHA256 ${work}/two/runtime_demo second)
if(FLAGS STREQUAL "")  # sanitizers write the path of every source into the program
  check("Two builds with one SOURCE_DATE_EPOCH differ" first STREQUAL second)
endif()
run(one/runtime_demo -V)
check("No link time: ${out}" out MATCHES "link_time   : 2023-11-14 22:13:20 UTC\nlink_command: ")

# Without a change nothing is linked again; with one the link time is that of the link.
unset(ENV{SOURCE_DATE_EPOCH})
run(${CMAKE_COMMAND} --build one)
file(SHA256 ${work}/one/runtime_demo unchanged)
check("Linked again without a change" unchanged STREQUAL first)
file(APPEND ${work}/source/main.cc "// changed\n")
run(${CMAKE_COMMAND} --build one)
run(one/runtime_demo -V)
check("An old link time: ${out}" NOT out MATCHES "link_time   : 2023-11-14")

run(one/runtime_demo -c source/demo.conf -n 7 -D acktimeout=1000 hello world)
check("Unexpected output: ${out}" out STREQUAL
  "acktimeout = 1000\nnode 1 at host-a:1862\nnode 2 at host-b:1862\noperand hello\noperand world\n")
file(READ ${work}/demo.log7 log)
check("Unexpected log: ${log}"
  log MATCHES "^n:7 DEMO p:[0-9]+ operand hello\nn:7 DEMO p:[0-9]+ operand world\n$")
file(REMOVE_RECURSE ${work})
