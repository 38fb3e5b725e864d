include(${CMAKE_CURRENT_LIST_DIR}/moxTargets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/MoxProgram.cmake)

# A project in C alone has no compiler that would add the library of C++ by itself.
get_property(mox_languages GLOBAL PROPERTY ENABLED_LANGUAGES)
if(NOT CXX IN_LIST mox_languages)
  set_property(TARGET mox::mox_runtime PROPERTY INTERFACE_COMPILE_FEATURES "")
  set_property(TARGET mox::mox_runtime APPEND PROPERTY INTERFACE_LINK_LIBRARIES stdc++)
  get_target_property(mox_configurations mox::mox_runtime IMPORTED_CONFIGURATIONS)
  foreach(configuration IN LISTS mox_configurations)
    set_property(TARGET mox::mox_runtime
      PROPERTY IMPORTED_LINK_INTERFACE_LANGUAGES_${configuration} C)
  endforeach()
endif()
