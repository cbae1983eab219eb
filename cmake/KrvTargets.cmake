# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT

# Compile options for every target. Includes are written from the root of the project.
add_library(krv_build_options INTERFACE)
target_include_directories(krv_build_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(
  krv_build_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wnon-virtual-dtor
            -Wold-style-cast
            $<$<BOOL:${KRV_WARNINGS_AS_ERRORS}>:-Werror>)

# 32-bit processors: allows file sizes above 2 GiB and times after 2038, and keeps sums of claimed sizes from overflow.
target_compile_definitions(krv_build_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

# Hardening flags. scripts/check-hardening checks the programs for each of them. FORTIFY works only with optimisation; a
# C library without level 3 uses its highest level.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
check_cxx_compiler_flag(-fcf-protection KRV_HAS_CF_PROTECTION) # x86 only
target_compile_options(
  krv_build_options
  INTERFACE -fstack-protector-strong -fstack-clash-protection $<$<BOOL:${KRV_HAS_CF_PROTECTION}>:-fcf-protection>
            "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>")
target_link_options(krv_build_options INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack)

# A release names its source files from the root of the project, so that it does not depend on the folder of the build
# (scripts/check-reproducible). The first option is for the relative paths that Ninja uses, the second for other places.
# Debug information keeps the real paths for debuggers and for rpmbuild, which rewrites them.
file(RELATIVE_PATH sources_from_build "${PROJECT_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")
target_compile_options(
  krv_build_options INTERFACE "$<$<CONFIG:Release>:-fmacro-prefix-map=${sources_from_build}=>"
                              "$<$<CONFIG:Release>:-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=>")

# krv_library(NAME SOURCES file... [PUBLIC target...] [PRIVATE target...])
#
# A static library of one folder. PUBLIC lists only libraries whose types appear in a header of the folder.
function(krv_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;PUBLIC;PRIVATE")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(
    ${name}
    PUBLIC ${arg_PUBLIC}
    PRIVATE krv_build_options ${arg_PRIVATE})
endfunction()

# krv_program(NAME SOURCES file... LIBRARIES target...)
function(krv_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE krv_build_options ${arg_LIBRARIES})
endfunction()

# krv_test(NAME SOURCES file... LIBRARIES target... [PROGRAMS target...])
#
# A GoogleTest program; each of its tests becomes a CTest test and runs in its own process. It may include
# tests/support/process and tests/support/diagnostics. PROGRAMS are executables of this build that the tests start; they
# are built first.
function(krv_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES;PROGRAMS")
  krv_program(
    ${name}
    SOURCES ${arg_SOURCES}
    LIBRARIES ${arg_LIBRARIES} krv_test_diagnostics krv_test_process GTest::gmock_main)
  if(arg_PROGRAMS)
    add_dependencies(${name} ${arg_PROGRAMS})
  endif()
  gtest_discover_tests(
    ${name}
    DISCOVERY_MODE PRE_TEST
    NO_PRETTY_VALUES
    PROPERTIES TIMEOUT 300)
endfunction()
