# What `cmake --install` lays down: the library, its public headers, the program, the CMake package and the .pc file.

include(CMakePackageConfigHelpers)

set(CLIPWORKS_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Clipworks)

install(
  TARGETS clipworks
  EXPORT ClipworksTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(
  EXPORT ClipworksTargets
  NAMESPACE Clipworks::
  DESTINATION ${CLIPWORKS_PACKAGE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ClipworksConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/ClipworksConfig.cmake INSTALL_DESTINATION ${CLIPWORKS_PACKAGE_DIR})
# Before 1.0 a new minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ClipworksConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ClipworksConfig.cmake ${PROJECT_BINARY_DIR}/ClipworksConfigVersion.cmake
        DESTINATION ${CLIPWORKS_PACKAGE_DIR})

file(RELATIVE_PATH CLIPWORKS_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" CLIPWORKS_PC_PREFIX "${CLIPWORKS_PC_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/clipworks.pc.in ${PROJECT_BINARY_DIR}/clipworks.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/clipworks.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET clipworks_program)
  # The installed program finds the library beside it, wherever the prefix is.
  set_target_properties(clipworks_program PROPERTIES INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
  install(TARGETS clipworks_program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
