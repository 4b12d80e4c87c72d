# The libraries behind Clipworks, all from Debian 12 (scripts/packages.txt names the packages).
#
# CLIPWORKS_MEDIA_LIBRARIES: what only clipworks/engine knows.

find_package(Threads REQUIRED)
find_package(tl-expected REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json REQUIRED)

# IMPORTED_TARGET: include folders come with the target, as system folders.
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat>=59 libavcodec>=59 libavutil>=57 libswresample>=4)
# Not linked: loaded when the first interlaced picture comes.
pkg_check_modules(FILTERS REQUIRED libavfilter>=8)
string(REGEX MATCH "^[0-9]+" CLIPWORKS_LIBAVFILTER_MAJOR ${FILTERS_VERSION})
# What the program gives up before it reads a clip.
pkg_check_modules(seccomp REQUIRED IMPORTED_TARGET libseccomp>=2.5)
# Digests of files.
pkg_check_modules(digests REQUIRED IMPORTED_TARGET libxxhash>=0.8 nettle>=3.7)
# Serves the page of the program.
pkg_check_modules(pages REQUIRED IMPORTED_TARGET cpp-httplib>=0.11)
pkg_check_modules(ZIMG REQUIRED IMPORTED_TARGET zimg>=3.0)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse>=15)
pkg_check_modules(ALSA REQUIRED IMPORTED_TARGET alsa>=1.2)
pkg_check_modules(RUBBERBAND REQUIRED IMPORTED_TARGET rubberband>=3.0)
# Still images: their codecs, EXIF and ICC profiles.
pkg_check_modules(STILLS REQUIRED IMPORTED_TARGET libjpeg>=2.0 libpng>=1.6.32 zlib>=1.2.11 libheif>=1.15 libexif>=0.6.22 lcms2>=2.9)

# Debian's libyuv-dev brings neither a pkg-config file nor a CMake package.
find_path(CLIPWORKS_LIBYUV_INCLUDE_DIR libyuv.h)
find_library(CLIPWORKS_LIBYUV_LIBRARY yuv)
if(NOT CLIPWORKS_LIBYUV_INCLUDE_DIR OR NOT CLIPWORKS_LIBYUV_LIBRARY)
  message(FATAL_ERROR "libyuv was not found; Debian's package is libyuv-dev")
endif()
mark_as_advanced(CLIPWORKS_LIBYUV_INCLUDE_DIR CLIPWORKS_LIBYUV_LIBRARY)
add_library(clipworks_libyuv UNKNOWN IMPORTED)
set_target_properties(
  clipworks_libyuv PROPERTIES IMPORTED_LOCATION ${CLIPWORKS_LIBYUV_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES
                                                                            ${CLIPWORKS_LIBYUV_INCLUDE_DIR})

set(CLIPWORKS_MEDIA_LIBRARIES PkgConfig::FFMPEG PkgConfig::ZIMG PkgConfig::STILLS PkgConfig::RUBBERBAND clipworks_libyuv
                              PkgConfig::PULSE PkgConfig::ALSA)

if(CLIPWORKS_BUILD_PROGRAM)
  find_package(CLI11 REQUIRED)
  find_package(fmt REQUIRED)
endif()
if(CLIPWORKS_BUILD_PYTHON)
  # The system's own interpreter, unless another one is named: it is the one that users of Debian packages run.
  if(NOT DEFINED Python_EXECUTABLE AND EXISTS /usr/bin/python3)
    set(Python_EXECUTABLE /usr/bin/python3)
  endif()
  find_package(Python 3.11 REQUIRED COMPONENTS Interpreter Development.Module)
  set(PYBIND11_FINDPYTHON ON)
  find_package(pybind11 2.10 REQUIRED)
endif()
if(CLIPWORKS_BUILD_TESTS)
  find_package(GTest REQUIRED)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
endif()
