# How every target of the system is compiled: the warnings, the hardening of release builds, the
# sanitizers. Targets link `mox_options`.
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(mox_options INTERFACE)
target_compile_features(mox_options INTERFACE cxx_std_20)
target_compile_options(mox_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  # Status records name the source file they were set in: the same text from whatever folder.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(mox_options INTERFACE _FILE_OFFSET_BITS=64)
target_include_directories(mox_options INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)

if(MOX_WARNINGS_AS_ERRORS)
  target_compile_options(mox_options INTERFACE -Werror)
endif()

if(MOX_BUILD_FUZZERS)
  target_compile_options(mox_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Of release builds of the system, and of every program that mox_program makes.
add_library(mox_hardening INTERFACE)
add_library(mox::mox_hardening ALIAS mox_hardening)
target_compile_options(mox_hardening INTERFACE
  -fstack-protector-strong -fstack-clash-protection
  $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i[3-6]86)$")
  target_compile_options(mox_hardening INTERFACE -fcf-protection)
endif()
target_compile_definitions(mox_hardening INTERFACE $<$<COMPILE_LANGUAGE:CXX>:_GLIBCXX_ASSERTIONS>)
target_link_options(mox_hardening INTERFACE -Wl,-z,relro,-z,now)

if(MOX_SANITIZE)
  target_compile_options(mox_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(mox_options INTERFACE -fsanitize=address,undefined)
else()
  target_link_libraries(mox_options INTERFACE mox_hardening)
endif()
