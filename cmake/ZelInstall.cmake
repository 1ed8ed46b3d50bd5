# SPDX-License-Identifier: MIT
# What `cmake --install` lays down; every path is relative to the prefix. Component `runtime` is what
# a program needs that was linked before, `development` what it takes to link one.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
set(zel_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zel)

# zel_install(target kind): component `kind` of find_package makes zel::zel of this target.
function(zel_install target kind)
  install(
    TARGETS ${target}
    EXPORT zel-${kind}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT runtime
            NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    FILE_SET HEADERS
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development)
  install(
    EXPORT zel-${kind}
    NAMESPACE zel::
    FILE zel-${kind}.cmake
    DESTINATION ${zel_package_dir}
    COMPONENT development)
endfunction()

get_target_property(zel_type zel TYPE)
if(zel_type STREQUAL "SHARED_LIBRARY")
  zel_install(zel shared)
  # GDB trusts and searches its own folder for what lies below /usr; elsewhere the printers are loaded
  # from beside the library.
  set(zel_printers ${CMAKE_INSTALL_LIBDIR})
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(zel_printers share/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR})
  else()
    install(
      FILES ${PROJECT_BINARY_DIR}/zel/libzel.so-gdb.py
      DESTINATION ${zel_printers}
      COMPONENT runtime)
  endif()
  install(
    FILES ${PROJECT_SOURCE_DIR}/zel/libzel.so-gdb.py
    DESTINATION ${zel_printers}
    RENAME libzel.so.${PROJECT_VERSION}-gdb.py
    COMPONENT runtime)
else()
  zel_install(zel static)
endif()
if(TARGET zel_static)
  target_sources(zel_static PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR})
  zel_install(zel_static static)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zelConfig.cmake.in zelConfig.cmake
                              INSTALL_DESTINATION ${zel_package_dir})
write_basic_package_version_file(zelConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/zelConfig.cmake ${PROJECT_BINARY_DIR}/zelConfigVersion.cmake
  DESTINATION ${zel_package_dir}
  COMPONENT development)

# pkg-config: a static library drags its own needs along, a shared one hides them (`--static` asks for
# them where both are there).
if(zel_type STREQUAL "STATIC_LIBRARY")
  set(zel_pc_libs "-pthread -ldl")
else()
  set(zel_pc_private_libs "-pthread -ldl")
endif()
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY
           ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE zel_pc_up)
configure_file(${PROJECT_SOURCE_DIR}/cmake/zel.pc.in zel.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/zel.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(
    uninstall
    COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -P
            ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake
    COMMENT "Removing what was installed from this build"
    VERBATIM)
  include(ZelPackage)
endif()
