# Per-target compiler settings shared by the library, its tests, benchmarks and examples.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

if(VTLOG_SANITIZE STREQUAL "address")
    set(VTLOG_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(VTLOG_SANITIZE STREQUAL "thread")
    set(VTLOG_SANITIZER_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT VTLOG_SANITIZE STREQUAL "")
    message(FATAL_ERROR "VTLOG_SANITIZE must be empty, 'address' or 'thread', not '${VTLOG_SANITIZE}'")
endif()

# Warnings (and -Werror when asked) plus the sanitizer of this build.
# Boost.Filesystem's deprecated names are hidden, as newer Boost removes them: the code uses only
# what every supported Boost has, and includes each Boost.Filesystem header it uses. Private to
# our own targets: which names a user's code sees is the user's choice, and the public headers
# compile either way (the tests include them with it, the installed-package check without).
function(vtlog_target_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    target_compile_definitions(${target} PRIVATE BOOST_FILESYSTEM_NO_DEPRECATED)
    if(VTLOG_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(VTLOG_SANITIZER_FLAGS)
        target_compile_options(${target} PRIVATE ${VTLOG_SANITIZER_FLAGS})
        target_link_options(${target} PRIVATE ${VTLOG_SANITIZER_FLAGS})
    endif()
endfunction()
