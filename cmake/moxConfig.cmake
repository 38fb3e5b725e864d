include(${CMAKE_CURRENT_LIST_DIR}/moxTargets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/MoxProgram.cmake)
