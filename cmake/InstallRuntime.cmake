# The runtime as a package for other programs: the headers that are its interface, a CMake package
# (the library mox::mox_runtime and the function mox_program), a file for pkg-config, the pages and
# the examples. `cmake --install ... --component mox_development` needs the target mox_runtime alone.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mox)

set(interface_headers
  common/base/descriptor.h
  common/base/sourceposition.h
  common/base/whose.h
  common/buildinfo.h
  common/cvariables.h
  common/debugmask.h
  common/interrupt.h
  common/lockmem.h
  common/logconfig.h
  common/logger.h
  common/loglevel.h
  common/logmethod.h
  common/logtrouble.h
  common/releaseinfo.h
  common/scanarg.h
  common/scanconf.h
  common/sharedmem.h
  common/stdstreams.h
  common/syseventlog.h
  common/variable.h
  common/variabledict.h
  common/variables.h
  errutils/moxnumbers.h
  errutils/moxstatus.h
  errutils/statuss.h
  src/utl/fmtstatus.h
  utl/semops.h
)

# Below include/mox they include each other as "mox/common/...", whatever folders a project has.
set(header_dir ${PROJECT_BINARY_DIR}/include)
foreach(header IN LISTS interface_headers)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${header})
  file(READ ${PROJECT_SOURCE_DIR}/${header} text)
  string(REGEX REPLACE "(#include \")(common|errutils|src|utl)/" "\\1mox/\\2/" text "${text}")
  file(CONFIGURE OUTPUT ${header_dir}/mox/${header} CONTENT "${text}" @ONLY)
endforeach()
install(DIRECTORY ${header_dir}/mox COMPONENT mox_development
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(TARGETS mox_runtime mox_hardening EXPORT moxTargets COMPONENT mox_development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT moxTargets NAMESPACE mox:: DESTINATION ${package_dir} COMPONENT mox_development)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/moxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/moxConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/moxConfig.cmake
  ${PROJECT_SOURCE_DIR}/cmake/MoxProgram.cmake
  ${PROJECT_SOURCE_DIR}/cmake/LinkWithBuildInfo.cmake
  ${PROJECT_SOURCE_DIR}/cmake/WriteBuildInfo.cmake
  ${PROJECT_SOURCE_DIR}/cmake/buildinfo.c.in
  DESTINATION ${package_dir} COMPONENT mox_development)

file(RELATIVE_PATH MOX_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/mox.pc.in ${CMAKE_CURRENT_BINARY_DIR}/mox.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mox.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT mox_development)

foreach(page IN ITEMS mox_runtime.7 mox.conf.5)
  string(REGEX REPLACE ".*\\." "man" folder ${page})
  install(FILES ${PROJECT_SOURCE_DIR}/man/${page}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/${folder} COMPONENT mox_development)
endforeach()
foreach(example IN ITEMS runtime-demo runtime-demo-c logrotate)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/${example} COMPONENT mox_development
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libmox-dev/examples)
endforeach()
