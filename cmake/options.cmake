# Switches of the build and what every target is compiled with.

option(KVALO_TESTS "Build the C++ tests and the fuzz targets' replay programs" OFF)
option(KVALO_FUZZ "Build the fuzz targets with libFuzzer (needs clang)" OFF)
option(KVALO_WERROR "Treat warnings as errors" OFF)
set(KVALO_SANITIZE "" CACHE STRING "Sanitizers for every target, as in -fsanitize=")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(KVALO_CCACHE ccache)
if(KVALO_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KVALO_CCACHE})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> -Wcast-align)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 warns of overlapping copies inside std::string that cannot happen (its bug 105651).
  add_compile_options(-Wno-restrict)
endif()
# Results are part of the contract: no contraction into fused operations, no reordering.
add_compile_options(-ffp-contract=off)
if(KVALO_WERROR)
  add_compile_options(-Werror)
endif()
if(KVALO_SANITIZE)
  add_compile_options(-fsanitize=${KVALO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KVALO_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # With the sanitizers' instrumentation GCC loses track of what <regex> has initialised.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
if(KVALO_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
