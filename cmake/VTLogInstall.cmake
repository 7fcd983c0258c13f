# Installs the library, its public headers, a CMake package and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS VTLog EXPORT VTLogTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/VTLog/VTLog.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VTLog)
install(FILES ${PROJECT_SOURCE_DIR}/include/VTLog/v2/log.hpp
    ${PROJECT_SOURCE_DIR}/include/VTLog/v2/record.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VTLog/v2)

set(vtlog_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VTLog)
install(EXPORT VTLogTargets NAMESPACE VTLog:: DESTINATION ${vtlog_cmake_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VTLogConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VTLogConfig.cmake INSTALL_DESTINATION ${vtlog_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VTLogConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VTLogConfig.cmake ${PROJECT_BINARY_DIR}/VTLogConfigVersion.cmake
    ${PROJECT_SOURCE_DIR}/cmake/VTLogFindCFxx.cmake
    DESTINATION ${vtlog_cmake_dir})

# The pkg-config file finds the tree it sits in through ${pcfiledir}, so a moved install works.
set(vtlog_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${vtlog_pc_dir}")
    set(VTLOG_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH vtlog_pc_up "/${vtlog_pc_dir}" "/")
    string(REGEX REPLACE "/$" "" vtlog_pc_up "${vtlog_pc_up}")
    set(VTLOG_PC_PREFIX "\${pcfiledir}/${vtlog_pc_up}")
endif()
foreach(kind LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
        set(VTLOG_PC_${kind} "${CMAKE_INSTALL_${kind}}")
    else()
        set(VTLOG_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
    endif()
endforeach()

# Cflags: the definitions of the exported target and, on macOS, libCF++, whose header the public
# header includes; pkg-config cannot look for libCF++ again, so that is the path found here.
get_target_property(vtlog_pc_definitions VTLog INTERFACE_COMPILE_DEFINITIONS)
list(TRANSFORM vtlog_pc_definitions PREPEND "-D")
list(JOIN vtlog_pc_definitions " " VTLOG_PC_CFLAGS)
set(VTLOG_PC_LIBS "-lVTLog -lboost_log -lboost_thread -lboost_filesystem")
if(APPLE)
    string(APPEND VTLOG_PC_CFLAGS " -I${VTLOG_CFXX_INCLUDE_DIR}")
    string(APPEND VTLOG_PC_LIBS " ${VTLOG_CFXX_LIBRARY} -framework CoreFoundation")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/VTLog.pc.in ${PROJECT_BINARY_DIR}/VTLog.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VTLog.pc DESTINATION ${vtlog_pc_dir})
