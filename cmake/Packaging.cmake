# Installs what belongs to the programs but is not compiled, and describes the two Debian packages
# that `cpack -G DEB` makes: mox-resources, the programs, and libmox-dev, the runtime.
set(MOX_MAINTAINER "The Mox Authors <authors@mox.invalid>")
set(deb_release 1)
set(MOX_DEB_VERSION ${PROJECT_VERSION}-${deb_release})

find_program(GZIP gzip REQUIRED)

# mox_install_compressed(SOURCE FOLDER NAME COMPONENT...): SOURCE as FOLDER/NAME.gz, the same bytes
# from every build, installed with each component.
function(mox_install_compressed source folder name)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${folder}/${name}.gz)
  get_filename_component(output_folder ${output} DIRECTORY)
  file(MAKE_DIRECTORY ${output_folder})
  add_custom_command(OUTPUT ${output} COMMAND ${GZIP} -9nc ${source} > ${output}
    DEPENDS ${source} VERBATIM)
  string(MAKE_C_IDENTIFIER "compressed_${folder}_${name}" target)
  add_custom_target(${target} ALL DEPENDS ${output})
  install(FILES ${output} DESTINATION ${folder} COMPONENT ${ARGN})
endfunction()

foreach(page IN ITEMS mox_res_mgr.8 devinit.8 mox.conf.5)
  get_filename_component(section ${page} LAST_EXT)
  string(REPLACE "." "man" folder ${section})
  mox_install_compressed(${PROJECT_SOURCE_DIR}/man/${page} ${CMAKE_INSTALL_MANDIR}/${folder} ${page}
    programs)
endforeach()

install(FILES completions/mox_res_mgr completions/devinit
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES packaging/mox-resources@.service DESTINATION lib/systemd/system)
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc)
install(DIRECTORY examples/ DESTINATION ${doc_dir}/mox-resources/examples
  PATTERN runtime-demo EXCLUDE)
install(DIRECTORY examples/runtime-demo DESTINATION ${doc_dir}/libmox-dev/examples
  COMPONENT mox_development)

configure_file(packaging/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/changelog @ONLY)
foreach(pair IN ITEMS "mox-resources;programs" "libmox-dev;mox_development")
  list(GET pair 0 package)
  list(GET pair 1 component)
  install(FILES packaging/copyright DESTINATION ${doc_dir}/${package} COMPONENT ${component})
  mox_install_compressed(${CMAKE_CURRENT_BINARY_DIR}/changelog ${doc_dir}/${package}
    changelog.Debian ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${MOX_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL programs mox_development)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${deb_release})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_PROGRAMS_PACKAGE_NAME mox-resources)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_PROGRAMS_DESCRIPTION
"resources and devices of clustered database nodes
mox_res_mgr creates, checks and deletes the shared memory segments,
semaphore sets and device files that database nodes need on a host.
devinit initialises and verifies database devices.")

set(CPACK_DEBIAN_MOX_DEVELOPMENT_PACKAGE_NAME libmox-dev)
set(CPACK_DEBIAN_MOX_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_MOX_DEVELOPMENT_PACKAGE_DEPENDS "libstdc++-12-dev | libstdc++-dev")
set(CPACK_COMPONENT_MOX_DEVELOPMENT_DESCRIPTION
"common runtime of the database system, for development
Status records, logging, configuration variables, standard options and
release information: a static library, its headers and a CMake package.")
include(CPack)
