# What our own targets are compiled with. Nothing here reaches a project that uses Clipworks, but for the sanitizers and
# the coverage counters, which hold for the whole build or not at all.

option(CLIPWORKS_WARNINGS_AS_ERRORS "Treat warnings in our own code as errors (the presets switch it on)" OFF)
set(CLIPWORKS_SANITIZE
    ""
    CACHE STRING "Sanitizers to build with, separated by commas: address,undefined or thread")
option(CLIPWORKS_COVERAGE "Count which lines are run (gcov)" OFF)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(CLIPWORKS_CCACHE ccache)
  if(CLIPWORKS_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CLIPWORKS_CCACHE})
  endif()
endif()

if(CLIPWORKS_SANITIZE)
  add_compile_options(-fsanitize=${CLIPWORKS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CLIPWORKS_SANITIZE})
endif()

if(CLIPWORKS_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(CLIPWORKS_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()

# clipworks_set_warnings(TARGET): our warnings for one of our targets.
function(clipworks_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(CLIPWORKS_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(CLIPWORKS_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # GCC 12 sees uninitialized reads in the standard library's own code once a sanitizer instruments it.
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
endfunction()
