# Finds libCF++ and defines the imported target VTLog::CFxx: libCF++'s headers and library plus
# the CoreFoundation framework. Used on Apple platforms by the library's build and again by
# VTLogConfig.cmake, so an installed package names the target, never the build machine's paths.
# Sets VTLOG_CFXX_FOUND, and VTLOG_CFXX_NOT_FOUND_MESSAGE when it is false. Hints: VTLOG_CFXX_INCLUDE_DIR and VTLOG_CFXX_LIBRARY, or
# CMAKE_PREFIX_PATH.
find_path(VTLOG_CFXX_INCLUDE_DIR NAMES CF++.hpp DOC "Directory of libCF++'s CF++.hpp")
find_library(VTLOG_CFXX_LIBRARY NAMES CF++ DOC "libCF++ library or framework")

if(VTLOG_CFXX_INCLUDE_DIR AND VTLOG_CFXX_LIBRARY)
    set(VTLOG_CFXX_FOUND TRUE)
    if(NOT TARGET VTLog::CFxx)
        add_library(VTLog::CFxx INTERFACE IMPORTED)
        set_target_properties(VTLog::CFxx PROPERTIES
            INTERFACE_INCLUDE_DIRECTORIES "${VTLOG_CFXX_INCLUDE_DIR}"
            INTERFACE_LINK_LIBRARIES "${VTLOG_CFXX_LIBRARY};-framework CoreFoundation")
    endif()
else()
    set(VTLOG_CFXX_FOUND FALSE)
    set(VTLOG_CFXX_NOT_FOUND_MESSAGE "libCF++ not found: set VTLOG_CFXX_INCLUDE_DIR (the directory \
of CF++.hpp) and VTLOG_CFXX_LIBRARY, or CMAKE_PREFIX_PATH")
endif()
