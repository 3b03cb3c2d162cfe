# Debian packages, one a component:  cmake --preset release && cmake --build --preset release && cd build/release && cpack
#
# `cpack` needs dpkg-dev.  A cross build names the C library's package itself: dpkg-shlibdeps knows its own machine's.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME avrecordaccess)
set(CPACK_PACKAGE_VENDOR ${PROJECT_NAME})
set(CPACK_PACKAGE_CONTACT "${PROJECT_NAME} maintainers <avrecordaccess@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "SD-card recording service of an IP camera")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL recorder dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_RECORDER_PACKAGE_NAME avrecordaccess)
set(CPACK_COMPONENT_RECORDER_DESCRIPTION "The recorder, a systemd unit and an init script. Installed, not started:
 a camera enables it once its card is mounted.")
set(CPACK_DEBIAN_RECORDER_PACKAGE_SECTION video)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME avrecordaccess-dev)
set(CPACK_COMPONENT_DEV_DESCRIPTION "The recorder's modules as static libraries, with their headers, CMake package and pkg-config files.")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)

if(TARGET recordcard)
  list(APPEND CPACK_COMPONENTS_ALL tool)
  set(CPACK_DEBIAN_TOOL_PACKAGE_NAME recordcard)
  set(CPACK_COMPONENT_TOOL_DESCRIPTION "Lists, plays out, checks, repairs and formats the recorder's cards.")
  set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION video)
  set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS fuse3)
endif()

if(NOT CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  string(REGEX REPLACE ".*gnueabihf$" armhf CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${ARM_TRIPLE}")
  string(REGEX REPLACE ".*gnueabi$" armel CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}")
  if(NOT RECORDER_STATIC)
    set(CPACK_DEBIAN_RECORDER_PACKAGE_DEPENDS libc6)
  endif()
endif()
include(CPack)
