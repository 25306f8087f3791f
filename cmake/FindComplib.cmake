# Finds complib, the component library of OpenSM, and gives the target Complib::Complib.
find_path(Complib_INCLUDE_DIR complib/cl_qmap.h PATH_SUFFIXES infiniband)
find_library(Complib_LIBRARY osmcomp)
mark_as_advanced(Complib_INCLUDE_DIR Complib_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Complib
  REQUIRED_VARS Complib_LIBRARY Complib_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "complib (libosmcomp and its headers) comes with Debian's package libopensm-dev: apt-get install libopensm-dev")

if(Complib_FOUND AND NOT TARGET Complib::Complib)
  add_library(Complib::Complib UNKNOWN IMPORTED)
  set_target_properties(Complib::Complib PROPERTIES
    IMPORTED_LOCATION ${Complib_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${Complib_INCLUDE_DIR})
endif()
