# Helpers that keep the lists of sources complete: every file of a folder belongs to its target,
# so a file that nobody builds cannot exist.

# kvalo_sources(VARIABLE FOLDER...): every C++ source of the folders, below the current one.
function(kvalo_sources variable)
  set(found "")
  foreach(folder IN LISTS ARGN)
    file(GLOB files CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    list(APPEND found ${files})
  endforeach()
  set(${variable} ${found} PARENT_SCOPE)
endfunction()
