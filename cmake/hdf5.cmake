# kvalo_hdf5_c: the serial HDF5 library's C interface, where it is installed. CMake's own module would ask the
# compiler wrappers, which want the whole development setup and bring flags along that concern nobody else.
find_path(KVALO_HDF5_INCLUDE hdf5.h PATH_SUFFIXES hdf5/serial)
find_library(KVALO_HDF5_LIBRARY NAMES hdf5_serial hdf5)
mark_as_advanced(KVALO_HDF5_INCLUDE KVALO_HDF5_LIBRARY)
if(KVALO_HDF5_INCLUDE AND KVALO_HDF5_LIBRARY)
  add_library(kvalo_hdf5_c INTERFACE)
  target_include_directories(kvalo_hdf5_c SYSTEM INTERFACE ${KVALO_HDF5_INCLUDE})
  target_link_libraries(kvalo_hdf5_c INTERFACE ${KVALO_HDF5_LIBRARY})
endif()
