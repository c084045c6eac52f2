# SPDX-License-Identifier: BSD-3-Clause
# Two Debian packages: what programs need to run, and what they need to be built.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libfeatures)
set(CPACK_PACKAGE_VENDOR "the libfeatures authors")
set(CPACK_PACKAGE_CONTACT "the libfeatures authors <libfeatures@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/features_cpack_check.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where the packager finds libmarlocuda when it works out what libfeatures depends on.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src/libmarlocuda)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libfeatures${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Shared libraries: what programs need to run.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libfeatures-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
if(QT_VERSION_MAJOR EQUAL 5)
  set(FEATURES_QT_DEV_PACKAGE qtbase5-dev)
else()
  set(FEATURES_QT_DEV_PACKAGE qt6-base-dev)
endif()
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libfeatures${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}), libeigen3-dev, ${FEATURES_QT_DEV_PACKAGE}")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "Headers, CMake package and pkg-config file: what is needed to build programs.")

include(CPack)
