# mox_write_build_info(OUTPUT TEMPLATE DEPENDS... [SETTINGS NAME=value...]): a source that is written
# again whenever, and only when, one of the files it depends on has changed. SOURCE_DATE_EPOCH takes
# the place of the time, so that two builds of the same source give the same bytes.
set(MOX_BUILD_INFO_DIR ${CMAKE_CURRENT_LIST_DIR})

function(mox_write_build_info output template)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "DEPENDS;SETTINGS")
  list(TRANSFORM arg_SETTINGS PREPEND "-D")
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} ${arg_SETTINGS} -DTEMPLATE=${MOX_BUILD_INFO_DIR}/${template}
      -DOUTPUT=${output} -P ${MOX_BUILD_INFO_DIR}/WriteBuildInfo.cmake
    DEPENDS ${arg_DEPENDS} ${MOX_BUILD_INFO_DIR}/${template}
    COMMENT "Writing the build information" VERBATIM)
endfunction()
