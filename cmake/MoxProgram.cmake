# mox_program(NAME SOURCES... [LIBRARIES LIBRARIES...]): an executable on the common runtime, with its
# build information (common/buildinfo.h), the hardening of the system, and its install rule. It is a
# target like any other: what add_executable takes are its sources, and what applies to a target can
# be added to it.
include(GNUInstallDirs)
include(CheckPIESupported)
check_pie_supported()
set(MOX_BUILD_INFO_DIR ${CMAKE_CURRENT_LIST_DIR})

function(mox_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
  add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} mox::mox_runtime mox::mox_hardening
    $<TARGET_NAME_IF_EXISTS:mox_options>)
  get_property(languages GLOBAL PROPERTY ENABLED_LANGUAGES)
  set(compiler ${CMAKE_CXX_COMPILER})
  if(C IN_LIST languages)
    set(compiler ${CMAKE_C_COMPILER})
  endif()
  # Whenever the program is linked, and only then, its build information is made.
  string(JOIN " " launcher "\"${CMAKE_COMMAND}\"" "\"-DCOMPILER=${compiler}\""
    "\"-DSOURCE_DIR=${CMAKE_SOURCE_DIR}\"" "\"-DFOLDER=${CMAKE_CURRENT_BINARY_DIR}/${name}.buildinfo\""
    -P "\"${MOX_BUILD_INFO_DIR}/LinkWithBuildInfo.cmake\"" --)
  set_target_properties(${name} PROPERTIES
    POSITION_INDEPENDENT_CODE ON RULE_LAUNCH_LINK "${launcher}")
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
