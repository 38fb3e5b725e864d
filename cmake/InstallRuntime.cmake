# The runtime as a package for other programs: find_package(mox) gives the library mox::mox_runtime
# and the function mox_program. Headers keep their folders, so that includes read as they do here.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mox)

install(TARGETS mox_runtime EXPORT moxTargets COMPONENT mox_development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT moxTargets NAMESPACE mox:: DESTINATION ${package_dir} COMPONENT mox_development)
foreach(folder IN ITEMS common errutils src/utl utl)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/ COMPONENT mox_development
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mox/${folder} FILES_MATCHING PATTERN "*.h")
endforeach()

write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/moxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/moxConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/moxConfig.cmake
  ${PROJECT_SOURCE_DIR}/cmake/MoxProgram.cmake
  ${PROJECT_SOURCE_DIR}/cmake/BuildInfo.cmake
  ${PROJECT_SOURCE_DIR}/cmake/WriteBuildInfo.cmake
  ${PROJECT_SOURCE_DIR}/cmake/buildinfo.cc.in
  DESTINATION ${package_dir} COMPONENT mox_development)
