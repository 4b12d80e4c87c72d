# Four Debian packages by CPack: clipworks, libclipworks0, libclipworks-dev and python3-clipworks. scripts/package builds them.

set(CPACK_GENERATOR DEB)
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CONTACT
    "The Clipworks authors <clipworks@localhost>"
    CACHE STRING "Who answers for the packages: NAME <ADDRESS>")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL Runtime Program Development Python)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# Dependencies come from what is linked, but for what is loaded when it is needed; those between the packages hold for the very same version.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_PROGRAM_DEPENDS Runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS Runtime)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libclipworks${CLIPWORKS_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS libavfilter${CLIPWORKS_LIBAVFILTER_MAJOR})
# Programs of others that link with the library need at least the version that they were built against.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Loops, re-times, compresses, reverses, rotates and crops clips, lays narration
over them and saves single pictures. This package holds the shared library.")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME clipworks)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
    "Loops, re-times, compresses, reverses, rotates and crops clips, lays narration
over them and saves single pictures. This package holds the program, its manual
pages and the completions of bash and zsh.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libclipworks-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libexpected-dev)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Loops, re-times, compresses, reverses, rotates and crops clips, lays narration
over them and saves single pictures. This package holds the headers, the CMake
package and the pkg-config file.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-clipworks)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
# The extension speaks to this minor version alone.
math(EXPR next_python "${Python_VERSION_MINOR} + 1")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), python3 (<< ${Python_VERSION_MAJOR}.${next_python})")
# clipworks.batch: files elsewhere, and a cluster.
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS clipworks)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-fsspec, python3-boto3, python3-distributed")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/python3-clipworks/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "Loops, re-times, compresses, reverses, rotates and crops clips, lays narration
over them and saves single pictures. This package holds the Python package.")

foreach(component Runtime Program Development Python)
  string(TOUPPER ${component} upper)
  set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright DESTINATION ${doc_dir} COMPONENT ${component})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${doc_dir}
        COMPONENT Development)
# Debian keeps manual pages compressed.
install(
  CODE "file(GLOB pages \$ENV{DESTDIR}/usr/${CMAKE_INSTALL_MANDIR}/man1/*.1)
execute_process(COMMAND gzip -9n \${pages} COMMAND_ERROR_IS_FATAL ANY)"
  COMPONENT Program)

include(CPack)
