# The FFT library: ducc0's headers (BSD-3-Clause), which only its source distribution on the Python package
# index contains. pip fetches it once, by name and checksum, into build/deps, where later builds find it.
# Without a network, unpack that archive anywhere and configure with -DDUCC0_INCLUDE_DIR=<it>/src.

set(ducc0_deps ${PROJECT_SOURCE_DIR}/build/deps)
file(STRINGS ${PROJECT_SOURCE_DIR}/scripts/ducc0.txt ducc0_requirement REGEX "^ducc0==")
string(REGEX MATCH "[0-9]+\\.[0-9]+\\.[0-9]+" ducc0_version "${ducc0_requirement}")
set(ducc0_header ducc0/fft/fft1d_impl.h)

function(kvalo_fetch_ducc0)
  file(LOCK ${ducc0_deps} DIRECTORY GUARD FUNCTION TIMEOUT 600)
  if(EXISTS ${ducc0_deps}/ducc0-${ducc0_version}/src/${ducc0_header})
    return() # another build has fetched it meanwhile
  endif()
  message(STATUS "Fetching ducc0 ${ducc0_version}")
  # The interpreter of an isolated build finds pip only without PYTHONPATH.
  foreach(python ${PROJECT_SOURCE_DIR}/.venv/bin/python ${Python_EXECUTABLE} python3)
    foreach(environment "--unset=PYTHONPATH" "PIP_NO_INPUT=1")
      execute_process(
        COMMAND ${CMAKE_COMMAND} -E env ${environment}
          ${python} -m pip download --quiet --disable-pip-version-check --no-deps
          --dest ${ducc0_deps} --requirement ${PROJECT_SOURCE_DIR}/scripts/ducc0.txt
        RESULT_VARIABLE failed OUTPUT_VARIABLE output ERROR_VARIABLE output)
      if(NOT failed)
        file(ARCHIVE_EXTRACT INPUT ${ducc0_deps}/ducc0-${ducc0_version}.tar.gz DESTINATION ${ducc0_deps})
        return()
      endif()
      string(APPEND outputs "${python}: ${output}\n")
    endforeach()
  endforeach()
  message(FATAL_ERROR "pip could not fetch ducc0 ${ducc0_version}; is the package index reachable? "
    "Without it, set DUCC0_INCLUDE_DIR to the folder src of that source distribution.\n${outputs}")
endfunction()

find_path(DUCC0_INCLUDE_DIR ${ducc0_header} HINTS ${ducc0_deps}/ducc0-${ducc0_version}/src
  DOC "Folder that holds ducc0/fft/fft1d_impl.h")
if(NOT DUCC0_INCLUDE_DIR)
  kvalo_fetch_ducc0()
  find_path(DUCC0_INCLUDE_DIR ${ducc0_header} HINTS ${ducc0_deps}/ducc0-${ducc0_version}/src REQUIRED)
endif()

add_library(ducc0 INTERFACE IMPORTED)
target_include_directories(ducc0 SYSTEM INTERFACE ${DUCC0_INCLUDE_DIR})
