# mox_program(NAME SOURCES... [LIBRARIES LIBRARIES...]): an executable on the common runtime, with its
# build information (common/buildinfo.h), the hardening of the system, and its install rule. Name
# every library whose change shall count as a new link.
include(GNUInstallDirs)
include(CheckPIESupported)
include(${CMAKE_CURRENT_LIST_DIR}/BuildInfo.cmake)
check_pie_supported()

function(mox_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
  set(libraries ${arg_LIBRARIES} mox::mox_runtime $<TARGET_NAME_IF_EXISTS:mox_options>)
  set(objects ${name}_objects)
  add_library(${objects} OBJECT ${arg_UNPARSED_ARGUMENTS})
  target_link_libraries(${objects} PRIVATE ${libraries})

  set(archives "")
  foreach(library IN LISTS arg_LIBRARIES ITEMS mox::mox_runtime)
    list(APPEND archives $<TARGET_FILE:${library}>)
  endforeach()
  mox_link_command(${name} command SOURCES ${arg_UNPARSED_ARGUMENTS}
    LIBRARIES ${arg_LIBRARIES} mox_runtime)
  set(info ${CMAKE_CURRENT_BINARY_DIR}/${name}_buildinfo.cc)
  mox_write_build_info(${info} buildinfo.cc.in
    DEPENDS $<TARGET_OBJECTS:${objects}> ${archives} SETTINGS "LINK_COMMAND=${command}")

  add_executable(${name} $<TARGET_OBJECTS:${objects}> ${info})
  target_link_libraries(${name} PRIVATE ${libraries})
  set_target_properties(${objects} ${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# The command as the build issues it, without the folders of this one build.
function(mox_link_command name result)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;LIBRARIES")
  string(TOUPPER "${CMAKE_BUILD_TYPE}" config)
  get_filename_component(compiler ${CMAKE_CXX_COMPILER} NAME)
  set(words ${compiler} ${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${config}}
    "$<JOIN:$<TARGET_PROPERTY:${name},LINK_OPTIONS>, >" ${CMAKE_EXE_LINKER_FLAGS} -pie -o ${name})
  foreach(source IN LISTS arg_SOURCES)
    get_filename_component(stem ${source} NAME)
    list(APPEND words ${stem}.o)
  endforeach()
  list(APPEND words ${name}_buildinfo.cc.o)
  foreach(library IN LISTS arg_LIBRARIES)
    list(APPEND words lib${library}.a)
  endforeach()
  list(JOIN words " " command)
  set(${result} "${command}" PARENT_SCOPE)
endfunction()
