# SPDX-License-Identifier: MIT
# What `cmake --install` lays down; every path is relative to the prefix.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(
  TARGETS zel
  EXPORT zelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

get_target_property(zel_type zel TYPE)
if(zel_type STREQUAL "SHARED_LIBRARY")
  install(FILES ${PROJECT_BINARY_DIR}/zel/libzel.so-gdb.py
                ${PROJECT_BINARY_DIR}/zel/libzel.so.${PROJECT_VERSION}-gdb.py
          DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()

set(zel_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zel)
install(
  EXPORT zelTargets
  NAMESPACE zel::
  DESTINATION ${zel_package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zelConfig.cmake.in zelConfig.cmake
                              INSTALL_DESTINATION ${zel_package_dir})
write_basic_package_version_file(zelConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zelConfig.cmake ${PROJECT_BINARY_DIR}/zelConfigVersion.cmake
        DESTINATION ${zel_package_dir})

# pkg-config: a static library drags its own needs along, a shared one hides them.
if(zel_type STREQUAL "STATIC_LIBRARY")
  set(zel_pc_public_libs "-pthread -ldl")
endif()
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY
           ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE zel_pc_up)
configure_file(${PROJECT_SOURCE_DIR}/cmake/zel.pc.in zel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
