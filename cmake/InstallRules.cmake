# What `cmake --install` lays down, whole or by components (`--component NAME`):
#
#   Runtime       the library
#   Program       the program with its manual pages and completions
#   Development   headers, the CMake package and the .pc file
#   Python        the Python package

include(CMakePackageConfigHelpers)

set(CLIPWORKS_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Clipworks)

install(
  TARGETS clipworks
  EXPORT ClipworksTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)
install(
  EXPORT ClipworksTargets
  NAMESPACE Clipworks::
  DESTINATION ${CLIPWORKS_PACKAGE_DIR}
  COMPONENT Development)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/ClipworksConfig.cmake.in ${PROJECT_BINARY_DIR}/ClipworksConfig.cmake
  INSTALL_DESTINATION ${CLIPWORKS_PACKAGE_DIR}
  PATH_VARS CMAKE_INSTALL_BINDIR)
# Before 1.0 a new minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ClipworksConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/ClipworksConfig.cmake ${PROJECT_BINARY_DIR}/ClipworksConfigVersion.cmake
  DESTINATION ${CLIPWORKS_PACKAGE_DIR}
  COMPONENT Development)

file(RELATIVE_PATH CLIPWORKS_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" CLIPWORKS_PC_PREFIX "${CLIPWORKS_PC_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/clipworks.pc.in ${PROJECT_BINARY_DIR}/clipworks.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/clipworks.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT Development)

if(TARGET clipworks_program)
  # The installed program finds the library beside it, wherever the prefix is; in /usr the system does.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set_target_properties(clipworks_program PROPERTIES INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
  endif()
  install(TARGETS clipworks_program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Program)
endif()
if(TARGET clipworks_manual)
  set(CLIPWORKS_INSTALL_ZSHDIR
      ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
      CACHE STRING "Where the completion of zsh is installed")
  # By folder: each command has a page.
  install(DIRECTORY ${CLIPWORKS_MANUAL_DIR}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT Program)
  install(
    FILES ${CLIPWORKS_MANUAL_DIR}/bash/clipworks
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    COMPONENT Program)
  install(
    FILES ${CLIPWORKS_MANUAL_DIR}/zsh/_clipworks
    DESTINATION ${CLIPWORKS_INSTALL_ZSHDIR}
    COMPONENT Program)
endif()

if(TARGET clipworks_python)
  # Where Debian's interpreter looks below /usr/local; for another prefix, PYTHONPATH has to name it.
  set(CLIPWORKS_INSTALL_PYTHONDIR
      lib/python${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}/dist-packages
      CACHE STRING "Where the Python package is installed")
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH CLIPWORKS_PYTHON_TO_LIBRARY /${CLIPWORKS_INSTALL_PYTHONDIR}/clipworks /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(clipworks_python PROPERTIES INSTALL_RPATH $ORIGIN/${CLIPWORKS_PYTHON_TO_LIBRARY})
  endif()
  install(TARGETS clipworks_python LIBRARY DESTINATION ${CLIPWORKS_INSTALL_PYTHONDIR}/clipworks COMPONENT Python)
  install(DIRECTORY python/clipworks/
          DESTINATION ${CLIPWORKS_INSTALL_PYTHONDIR}/clipworks COMPONENT Python
          FILES_MATCHING PATTERN "*.py" PATTERN py.typed PATTERN __pycache__ EXCLUDE)
endif()

# Debian's packages have their own folders for these.
if(NOT CLIPWORKS_DEBIAN_PACKAGES)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Runtime)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Development)
endif()
