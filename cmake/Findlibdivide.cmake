# libdivide: the header-only library for division by a run-time constant.
find_path(libdivide_INCLUDE_DIR libdivide.h)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(libdivide REQUIRED_VARS libdivide_INCLUDE_DIR)
if(libdivide_FOUND AND NOT TARGET libdivide::libdivide)
    add_library(libdivide::libdivide INTERFACE IMPORTED)
    target_include_directories(libdivide::libdivide SYSTEM INTERFACE ${libdivide_INCLUDE_DIR})
endif()
