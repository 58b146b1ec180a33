# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` puts where: libraries, public header, clients and their manual pages in the folders of
# GNUInstallDirs, and the files by which pkg-config and find_package(lyn) lead to them. What is installed may be moved as
# a whole.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Libraries in a prefix of their own are looked for beside what needs them; those in /usr are found by everybody.
set(lyn_rpath_lib "")
set(lyn_rpath_bin "")
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(lyn_rpath_lib "$ORIGIN")
  set(lyn_rpath_bin "$ORIGIN/${bin_to_lib}")
endif()

# lyn_install_library(TARGET NAME): as lyn::NAME.
function(lyn_install_library target name)
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
  install(TARGETS ${target} EXPORT lyn)
endfunction()

# lyn_install_libraries(TARGET): a static library as lyn::TARGET_static, without its prefix lyn_; and, with LYN_SHARED, a
# shared one of the same objects as lyn::TARGET. What that exports is in the file libTARGET.map.
function(lyn_install_libraries target)
  string(REGEX REPLACE "^lyn_" "" name ${target})
  # Each source is compiled once, for both.
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  # A program in C brings no C++ library of its own.
  target_link_libraries(${target} PRIVATE Threads::Threads INTERFACE $<INSTALL_INTERFACE:stdc++> $<INSTALL_INTERFACE:m>)
  lyn_install_library(${target} ${name}_static)
  if(LYN_SHARED)
    set(map ${CMAKE_CURRENT_SOURCE_DIR}/lib${target}.map)
    add_library(${target}_shared SHARED $<TARGET_OBJECTS:${target}>)
    target_link_libraries(${target}_shared PRIVATE Threads::Threads)
    target_link_options(${target}_shared PRIVATE LINKER:--version-script=${map})
    if(NOT LYN_SANITIZE)
      target_link_options(${target}_shared PRIVATE LINKER:-z,defs)
    endif()
    set_target_properties(
      ${target}_shared PROPERTIES OUTPUT_NAME ${target} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                  LINKER_LANGUAGE CXX LINK_DEPENDS ${map})
    lyn_install_library(${target}_shared ${name})
  endif()
endfunction()

# lyn_install_client(TARGET LIBRARY...): a program of that name with its manual page. It links the libraries that are named
# and the module; installed is the one that uses the installed module.
function(lyn_install_client target)
  target_link_libraries(${target} PRIVATE lyn_options ${ARGN} $<LINK_ONLY:lyn> $<LINK_ONLY:lyn_platform>)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
  # It waits for its user and the modem: on a board small is worth more than fast.
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-Os>)
  set(installed ${target})
  if(LYN_SHARED)
    set(installed ${target}_shared)
    add_executable(${installed} $<TARGET_OBJECTS:${target}>)
    target_link_libraries(${installed} PRIVATE lyn_options ${ARGN} lyn_shared)
    set_target_properties(${installed} PROPERTIES OUTPUT_NAME ${target} LINKER_LANGUAGE CXX
                                                  INSTALL_RPATH "${lyn_rpath_bin}")
  endif()
  install(TARGETS ${installed})
  install(FILES ${CMAKE_SOURCE_DIR}/docs/man/${target}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()

# lyn_install_pkg_config(): lyn.pc, with the board's libraries by the names in `lyn_board_libs`. What the shared library
# needs it finds by itself, but for the board's SDK, which lies where it likes.
function(lyn_install_pkg_config)
  file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  set(libs "-llyn")
  list(TRANSFORM lyn_board_libs PREPEND "-l" OUTPUT_VARIABLE libs_private)
  list(JOIN libs_private " " libs_private)
  string(APPEND libs_private " -lstdc++ -lm -pthread")
  if(LYN_PLATFORM STREQUAL "sdk")
    string(PREPEND libs_private "-L\${sdkdir}/lib ")
    string(APPEND libs " -Wl,-rpath-link,\${sdkdir}/lib")
  endif()
  if(NOT LYN_SHARED)
    string(APPEND libs " ${libs_private}")
    set(libs_private "")
  endif()
  configure_file(cmake/lyn.pc.in lyn.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/lyn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

# lyn_install_package(): the public header, and what pkg-config and find_package read.
function(lyn_install_package)
  install(FILES ${CMAKE_SOURCE_DIR}/inc/ox_lyn.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES ${CMAKE_SOURCE_DIR}/docs/man/ox_lyn.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)

  set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/lyn)
  install(EXPORT lyn NAMESPACE lyn:: FILE lyn-targets.cmake DESTINATION ${config_dir})
  configure_package_config_file(cmake/lyn-config.cmake.in lyn-config.cmake INSTALL_DESTINATION ${config_dir}
                                NO_CHECK_REQUIRED_COMPONENTS_MACRO)
  write_basic_package_version_file(lyn-config-version.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/lyn-config.cmake ${PROJECT_BINARY_DIR}/lyn-config-version.cmake
          DESTINATION ${config_dir})

  lyn_install_pkg_config()
endfunction()
