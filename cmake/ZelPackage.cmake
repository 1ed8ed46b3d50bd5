# SPDX-License-Identifier: MIT
# Packages for Debian: `packaging/debian/build` makes and checks them.
option(ZEL_DEBIAN "Install what a Debian package has besides" OFF)
if(NOT ZEL_DEBIAN)
  return()
endif()

set(ZEL_PACKAGER "The zel authors <zel@example.org>" CACHE STRING "Who answers for the packages")
set(zel_abi ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(zel_package_runtime libzel${zel_abi})
set(zel_package_development libzel-dev)
set(zel_package_documentation libzel-doc)

install(
  DIRECTORY docs/ examples
  DESTINATION share/doc/${zel_package_documentation}
  COMPONENT documentation
  PATTERN "Doxy*" EXCLUDE
  PATTERN "*.awk" EXCLUDE
  PATTERN "CMakeLists.txt" EXCLUDE)
install(
  FILES README.md
  DESTINATION share/doc/${zel_package_documentation}
  COMPONENT documentation)
if(TARGET reference)
  install(
    DIRECTORY ${ZEL_SITE}/
    DESTINATION share/doc/${zel_package_documentation}/html
    COMPONENT documentation
    OPTIONAL)
endif()

# Every package has the licence and its changelog, which Debian wants packed.
set(zel_moment $ENV{SOURCE_DATE_EPOCH})
if(NOT zel_moment)
  string(TIMESTAMP zel_moment "%s")
endif()
execute_process(COMMAND date --utc --rfc-email --date=@${zel_moment}
                OUTPUT_VARIABLE zel_date OUTPUT_STRIP_TRAILING_WHITESPACE)
set(zel_debian ${PROJECT_BINARY_DIR}/debian)
configure_file(packaging/debian/changelog.in ${zel_debian}/changelog @ONLY)
execute_process(COMMAND gzip -9n -c ${zel_debian}/changelog OUTPUT_FILE ${zel_debian}/changelog.Debian.gz
                COMMAND_ERROR_IS_FATAL ANY)
foreach(component runtime development documentation)
  set(zel_documents share/doc/${zel_package_${component}})
  install(
    FILES packaging/debian/copyright
    DESTINATION ${zel_documents}
    COMPONENT ${component})
  install(
    FILES ${zel_debian}/changelog.Debian.gz
    DESTINATION ${zel_documents}
    COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zel)
set(CPACK_PACKAGE_CONTACT ${ZEL_PACKAGER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "class library for programs from a desktop platform")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_OUTPUT_FILE_PREFIX packages)
set(CPACK_COMPONENTS_ALL runtime development documentation)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${zel_package_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
file(WRITE ${zel_debian}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${zel_debian}/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${zel_package_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${zel_package_runtime} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libc6-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS ${zel_package_documentation})

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME ${zel_package_documentation})
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)

set(zel_about
    "zel gives programs that were shaped by a 32-bit desktop platform the
classes that they rely on: backslash paths, private-profile files, named
events and mutexes between processes, threads that can be suspended and
terminated, message queues that are served while waiting.

")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "${zel_about}This package has the shared library and its printers for GDB.")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "${zel_about}This package has the headers, the static library and the files by which
CMake and pkg-config find them.")
set(CPACK_DEBIAN_DOCUMENTATION_DESCRIPTION
    "${zel_about}This package has the guide, the reference and the example programs.")
include(CPack)
