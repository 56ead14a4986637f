# Warnings, sanitizers, and the parts beyond the library. Each part is on by default at top level
# when its packages are there; a missing package turns it off and says so.

option(QUORBIX_VIRTDISK_WARNINGS_AS_ERRORS "Treat warnings as errors (CI does)" OFF)
option(QUORBIX_VIRTDISK_BUILD_FUZZ "Build the libFuzzer explorers (needs clang)" OFF)
option(QUORBIX_VIRTDISK_PRECOMPILE
  "Precompile what many sources of the library and the program include" ${PROJECT_IS_TOP_LEVEL})
option(QUORBIX_VIRTDISK_OPTIMISE_LIBRARY
  "Optimise the library a little, and what hashes contents more: a test's time goes there" OFF)
set(QUORBIX_VIRTDISK_TEST_SHARDS 0 CACHE STRING
  "Processes that each test program is run in; 0: one for each test, so that ctest can choose")
set(QUORBIX_VIRTDISK_SANITIZE "" CACHE STRING
  "Sanitizers for everything built here, as in -fsanitize=: address,undefined or thread")

# Never exported: linked privately through BUILD_INTERFACE.
add_library(quorbix_virtdisk_warnings INTERFACE)
target_compile_options(quorbix_virtdisk_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wcast-qual -Wformat=2
  $<$<BOOL:${QUORBIX_VIRTDISK_WARNINGS_AS_ERRORS}>:-Werror>)

if(QUORBIX_VIRTDISK_SANITIZE)
  add_compile_options(-fsanitize=${QUORBIX_VIRTDISK_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUORBIX_VIRTDISK_SANITIZE})
endif()
if(QUORBIX_VIRTDISK_BUILD_FUZZ)
  # Coverage counters everywhere, so that the explorers see into the library.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# virtdisk_part(NAME TEXT PACKAGES...): declares QUORBIX_VIRTDISK_BUILD_<NAME>, looks the packages
# up, and turns the part off with a clear line when one is missing.
macro(virtdisk_part name text)
  option(QUORBIX_VIRTDISK_BUILD_${name} "Build the ${text}" ${PROJECT_IS_TOP_LEVEL})
  if(QUORBIX_VIRTDISK_BUILD_${name} AND PROJECT_IS_TOP_LEVEL)
    foreach(package ${ARGN})
      find_package(${package} QUIET)
      if(NOT ${package}_FOUND)
        message(STATUS "virtdisk: the ${text} is off, because ${package} was not found "
          "(scripts/setup installs it)")
        set(QUORBIX_VIRTDISK_BUILD_${name} OFF)
        break()
      endif()
    endforeach()
  endif()
endmacro()

virtdisk_part(PROGRAM "program" CLI11 nlohmann_json)
virtdisk_part(TESTS "test suite" GTest)
virtdisk_part(BENCH "benchmark set" benchmark)
