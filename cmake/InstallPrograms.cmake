# Installs what belongs to the programs but is not compiled: the pages and completions that are there.
# The Debian packages (debian/) are made from this and from InstallRuntime.cmake by component.
file(GLOB program_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*.8)
install(FILES ${program_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

file(GLOB completions CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/completions/*)
install(FILES ${completions} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
