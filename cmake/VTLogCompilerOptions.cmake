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
function(vtlog_target_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    if(VTLOG_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(VTLOG_SANITIZER_FLAGS)
        target_compile_options(${target} PRIVATE ${VTLOG_SANITIZER_FLAGS})
        target_link_options(${target} PRIVATE ${VTLOG_SANITIZER_FLAGS})
    endif()
endfunction()
