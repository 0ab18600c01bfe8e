# Arrow and Parquet from the pyarrow package: headers and libraries lie in the package's folder, there is no
# CMake package. Defines the targets pyarrow::arrow and pyarrow::parquet and KVALO_PYARROW_VERSION; without
# the package it defines nothing and says so.
#
# Looked for in KVALO_PYARROW (the package's folder), beside the configured interpreter, and in the
# environment that the scripts make.

set(KVALO_PYARROW "" CACHE PATH "Folder of the pyarrow package, when it is not beside the interpreter")

# Not cached: an environment that gets the package later, or another version, is noticed.
execute_process(
  COMMAND ${Python_EXECUTABLE} -c
    "import importlib.util as u; s = u.find_spec('pyarrow'); print(s.submodule_search_locations[0] if s else '')"
  OUTPUT_VARIABLE pyarrow_beside OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
set(pyarrow_folder "")
foreach(folder IN ITEMS "${KVALO_PYARROW}" "${pyarrow_beside}"
    ${PROJECT_SOURCE_DIR}/.venv/lib/python3.11/site-packages/pyarrow)
  if(folder AND EXISTS ${folder}/include/parquet/api/reader.h)
    set(pyarrow_folder ${folder})
    break()
  endif()
endforeach()

if(pyarrow_folder)
  set(pyarrow_config ${pyarrow_folder}/include/arrow/util/config.h)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${pyarrow_config})
  file(STRINGS ${pyarrow_config} pyarrow_lines REGEX "define ARROW_(VERSION_STRING|SO_VERSION) ")
  string(REGEX MATCH "ARROW_VERSION_STRING \"([0-9]+\\.[0-9]+)" _ "${pyarrow_lines}")
  set(KVALO_PYARROW_VERSION ${CMAKE_MATCH_1})
  string(REGEX MATCH "ARROW_SO_VERSION \"([0-9]+)" _ "${pyarrow_lines}")
  set(pyarrow_soversion ${CMAKE_MATCH_1})
  foreach(library arrow parquet)
    add_library(pyarrow::${library} SHARED IMPORTED)
    set_target_properties(pyarrow::${library} PROPERTIES
      IMPORTED_LOCATION ${pyarrow_folder}/lib${library}.so.${pyarrow_soversion}
      IMPORTED_SONAME lib${library}.so.${pyarrow_soversion}
      INTERFACE_INCLUDE_DIRECTORIES ${pyarrow_folder}/include)
  endforeach()
  set_property(TARGET pyarrow::parquet PROPERTY INTERFACE_LINK_LIBRARIES pyarrow::arrow)
  message(STATUS "Parquet: pyarrow ${KVALO_PYARROW_VERSION} in ${pyarrow_folder}")
else()
  message(STATUS "Parquet: left out, because there is no pyarrow package (pip install pyarrow, then configure again)")
endif()
