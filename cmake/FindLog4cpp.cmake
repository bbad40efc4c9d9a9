# log4cpp, by what every release of Debian installs: older ones bring a pkg-config file, newer ones CMake's.
find_path(Log4cpp_INCLUDE_DIR log4cpp/Category.hh)
find_library(Log4cpp_LIBRARY log4cpp)
mark_as_advanced(Log4cpp_INCLUDE_DIR Log4cpp_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Log4cpp REQUIRED_VARS Log4cpp_LIBRARY Log4cpp_INCLUDE_DIR)

if(Log4cpp_FOUND AND NOT TARGET Log4cpp::log4cpp)
    add_library(Log4cpp::log4cpp UNKNOWN IMPORTED)
    set_target_properties(Log4cpp::log4cpp PROPERTIES IMPORTED_LOCATION "${Log4cpp_LIBRARY}"
                          INTERFACE_INCLUDE_DIRECTORIES "${Log4cpp_INCLUDE_DIR}")
endif()
