# OpenCV's core and imgproc alone: Debian's OpenCVConfig.cmake comes only with every module and what those pull in.
find_path(OpenCVParts_INCLUDE_DIR opencv2/imgproc.hpp PATH_SUFFIXES opencv4)
find_library(OpenCVParts_core_LIBRARY opencv_core)
find_library(OpenCVParts_imgproc_LIBRARY opencv_imgproc)
mark_as_advanced(OpenCVParts_INCLUDE_DIR OpenCVParts_core_LIBRARY OpenCVParts_imgproc_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVParts REQUIRED_VARS OpenCVParts_core_LIBRARY OpenCVParts_imgproc_LIBRARY
                                  OpenCVParts_INCLUDE_DIR)

if(OpenCVParts_FOUND AND NOT TARGET OpenCVParts::imgproc)
    add_library(OpenCVParts::core UNKNOWN IMPORTED)
    set_target_properties(OpenCVParts::core PROPERTIES IMPORTED_LOCATION "${OpenCVParts_core_LIBRARY}"
                          INTERFACE_INCLUDE_DIRECTORIES "${OpenCVParts_INCLUDE_DIR}")
    add_library(OpenCVParts::imgproc UNKNOWN IMPORTED)
    set_target_properties(OpenCVParts::imgproc PROPERTIES IMPORTED_LOCATION "${OpenCVParts_imgproc_LIBRARY}"
                          INTERFACE_LINK_LIBRARIES OpenCVParts::core)
endif()
