# Builds TARGET in BUILD_DIR and passes only if the build fails with output that matches the
# regular expression EXPECTED and names the line of SOURCE that carries the marker "// caller".
#   cmake -DBUILD_DIR=... -DTARGET=... -DSOURCE=... -DEXPECTED=... -P expect_compile_error.cmake
file(STRINGS "${SOURCE}" lines)
set(line_number 0)
set(caller_line 0)
foreach(line IN LISTS lines)
    math(EXPR line_number "${line_number} + 1")
    if(line MATCHES "// caller$")
        set(caller_line ${line_number})
    endif()
endforeach()
if(caller_line EQUAL 0)
    message(FATAL_ERROR "${SOURCE} has no line marked '// caller'")
endif()

execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BUILD_DIR}" --target "${TARGET}"
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
get_filename_component(source_name "${SOURCE}" NAME)
string(REPLACE "." "\\." source_regex "${source_name}")
if(result EQUAL 0)
    message(FATAL_ERROR "${TARGET} compiled, but it must not:\n${output}")
elseif(NOT output MATCHES "${EXPECTED}")
    message(FATAL_ERROR "${TARGET} failed without '${EXPECTED}':\n${output}")
elseif(NOT output MATCHES "${source_regex}:${caller_line}:")
    message(FATAL_ERROR "${TARGET}'s errors do not lead to ${source_name}:${caller_line}:\n${output}")
endif()
message(STATUS "${TARGET} fails to compile as expected, at ${source_name}:${caller_line}")
