# SPDX-License-Identifier: MIT
# Installation, CMake package configuration, pkg-config files and the Debian
# packages of libqosintdb.
#
# Components: runtime (the shared libraries), development (headers, static
# libraries, library links, CMake and pkg-config files), tools (qosdb and
# its scenarios). Targets for clients: qosintdb::qosintdb and, with the host
# platform, qosintdb::qosplatform.
include(CMakePackageConfigHelpers)

set(QOSDB_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qosintdb)
set(QOSDB_PKGCONFIG_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(QOSDB_INSTALLED_TARGETS qosintdb)
if(TARGET qosplatform)
  list(APPEND QOSDB_INSTALLED_TARGETS qosplatform)
endif()
install(TARGETS ${QOSDB_INSTALLED_TARGETS} EXPORT qosintdbTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT qosintdbTargets NAMESPACE qosintdb:: DESTINATION ${QOSDB_CMAKE_INSTALL_DIR}
  COMPONENT development)

configure_package_config_file(cmake/qosintdbConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/qosintdbConfig.cmake
  INSTALL_DESTINATION ${QOSDB_CMAKE_INSTALL_DIR})
# A client asking for 1.x takes any 1.y with y >= x: the ABI of a major
# release only grows.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/qosintdbConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qosintdbConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/qosintdbConfigVersion.cmake
  DESTINATION ${QOSDB_CMAKE_INSTALL_DIR} COMPONENT development)

# pkg-config files find their prefix relative to where they are installed,
# so that a staged or relocated tree (a Yocto sysroot) works as it is.
file(RELATIVE_PATH QOSDB_PC_TO_PREFIX
  ${CMAKE_INSTALL_PREFIX}/${QOSDB_PKGCONFIG_INSTALL_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QOSDB_PC_TO_PREFIX "${QOSDB_PC_TO_PREFIX}")
foreach(pc qosintdb qosplatform)
  if(TARGET ${pc})
    configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc
      DESTINATION ${QOSDB_PKGCONFIG_INSTALL_DIR} COMPONENT development)
  endif()
endforeach()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

# ---- Debian packages (cpack -G DEB) -----------------------------------------
# One package per component: libqosintdb1 (runtime), libqosintdb-dev
# (development) and qosintdb-tools (tools).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libqosintdb)
set(CPACK_PACKAGE_VENDOR "The libqosintdb authors")
set(CPACK_PACKAGE_CONTACT "The libqosintdb authors")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_CURRENT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET qosdb)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqosintdb${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqosintdb-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qosintdb-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
# qosdb needs the runtime package (a component dependency, below the
# version of this build) and the C++ runtime; dpkg-shlibdeps cannot see the
# libraries of a sibling package, so these are named by hand.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libc6, libstdc++6")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "shared libraries: libqosintdb and the host platform")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "headers, static libraries, CMake and pkg-config files")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "the qosdb tool and its scenarios")
include(CPack)
