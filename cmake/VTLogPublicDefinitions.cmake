# The preprocessor definitions that the library and every user of it compile with, one list for
# the exported target, the pkg-config file and scripts/check_macos.sh alike.
#
# Run as a script it prints them as compiler flags for the given platform:
#   cmake -DSYSTEM_NAME=Darwin -DBOOST_VERSION=1.74.0 -P cmake/VTLogPublicDefinitions.cmake

function(vtlog_public_definitions out_var system_name boost_version)
    # Boost.Log must be used as a shared library, as this library shares its core with its users.
    set(definitions BOOST_LOG_DYN_LINK BOOST_ALL_DYN_LINK)
    # Boost before 1.81 derives from std::unary_function, which libc++ 15 and later (Xcode 15
    # and later) removes in C++17 unless asked to keep it, and <VTLog/v2/log.hpp> includes such
    # headers: every user needs the definition, not just the library.
    if(system_name MATCHES "^(Darwin|iOS|tvOS|watchOS|visionOS)$" AND boost_version VERSION_LESS 1.81)
        list(APPEND definitions _LIBCPP_ENABLE_CXX17_REMOVED_UNARY_BINARY_FUNCTION)
    endif()
    set(${out_var} ${definitions} PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    if(NOT DEFINED SYSTEM_NAME OR NOT DEFINED BOOST_VERSION)
        message(FATAL_ERROR "Give -DSYSTEM_NAME=<CMAKE_SYSTEM_NAME> -DBOOST_VERSION=<x.y.z>")
    endif()
    vtlog_public_definitions(definitions "${SYSTEM_NAME}" "${BOOST_VERSION}")
    list(TRANSFORM definitions PREPEND "-D")
    list(JOIN definitions " " flags)
    execute_process(COMMAND "${CMAKE_COMMAND}" -E echo "${flags}")
endif()
