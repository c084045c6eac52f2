# SPDX-License-Identifier: BSD-3-Clause
# Headers go into a folder of their own, so that "support/..." meets nobody else's headers.
include(CMakePackageConfigHelpers)

set(FEATURES_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/libfeatures-${PROJECT_VERSION_MAJOR})
set(FEATURES_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/libfeatures)

install(TARGETS features marlocuda EXPORT marlo_features-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime NAMELINK_COMPONENT dev
    FILE_SET HEADERS DESTINATION ${FEATURES_INSTALL_INCLUDEDIR} COMPONENT dev)
install(EXPORT marlo_features-targets NAMESPACE marlo:: FILE libfeatures-targets.cmake
    DESTINATION ${FEATURES_INSTALL_CMAKEDIR} COMPONENT dev)

configure_package_config_file(
    cmake/libfeatures-config.cmake.in ${PROJECT_BINARY_DIR}/libfeatures-config.cmake
    INSTALL_DESTINATION ${FEATURES_INSTALL_CMAKEDIR})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/libfeatures-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/libfeatures-config.cmake
    ${PROJECT_BINARY_DIR}/libfeatures-config-version.cmake
    DESTINATION ${FEATURES_INSTALL_CMAKEDIR} COMPONENT dev)

if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  message(FATAL_ERROR "CMAKE_INSTALL_LIBDIR and CMAKE_INSTALL_INCLUDEDIR must be relative to the "
                      "prefix: an installed tree can be moved")
endif()
# Qt 5 refuses to be included without it, and its pkg-config file does not say so.
if(QT_VERSION_MAJOR EQUAL 5)
  set(FEATURES_PC_CFLAGS " -fPIC")
endif()
# Relative to where the file lies, so an installed tree can be moved.
file(RELATIVE_PATH FEATURES_PC_PREFIX
    /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" FEATURES_PC_PREFIX ${FEATURES_PC_PREFIX})
configure_file(cmake/libfeatures.pc.in ${PROJECT_BINARY_DIR}/libfeatures.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libfeatures.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# Where Debian packages keep it, one file a package.
install(FILES LICENSE RENAME copyright COMPONENT runtime
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libfeatures${PROJECT_VERSION_MAJOR})
install(FILES LICENSE RENAME copyright COMPONENT dev
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libfeatures-dev)
