# Finds libyuv, which comes without a CMake package and, in many distributions, without pkg-config.
# Defines LibYUV_FOUND and the target LibYUV::LibYUV.
find_path(LibYUV_INCLUDE_DIR libyuv.h)
find_library(LibYUV_LIBRARY yuv)
mark_as_advanced(LibYUV_INCLUDE_DIR LibYUV_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibYUV DEFAULT_MSG LibYUV_LIBRARY LibYUV_INCLUDE_DIR)

if(LibYUV_FOUND AND NOT TARGET LibYUV::LibYUV)
    add_library(LibYUV::LibYUV UNKNOWN IMPORTED)
    set_target_properties(LibYUV::LibYUV PROPERTIES
        IMPORTED_LOCATION "${LibYUV_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${LibYUV_INCLUDE_DIR}")
endif()
