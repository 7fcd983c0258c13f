# Installs the library, its two public headers, a CMake package and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS VTLog EXPORT VTLogTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/VTLog/VTLog.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VTLog)
install(FILES ${PROJECT_SOURCE_DIR}/include/VTLog/v2/log.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VTLog/v2)

set(vtlog_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VTLog)
install(EXPORT VTLogTargets NAMESPACE VTLog:: DESTINATION ${vtlog_cmake_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VTLogConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VTLogConfig.cmake INSTALL_DESTINATION ${vtlog_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VTLogConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VTLogConfig.cmake ${PROJECT_BINARY_DIR}/VTLogConfigVersion.cmake
    DESTINATION ${vtlog_cmake_dir})

# On macOS the public header includes libCF++, so its users link it and CoreFoundation too.
set(VTLOG_PC_EXTRA_CFLAGS "")
set(VTLOG_PC_EXTRA_LIBS "")
if(APPLE)
    set(VTLOG_PC_EXTRA_CFLAGS "-I${VTLOG_CFXX_INCLUDE_DIR}")
    set(VTLOG_PC_EXTRA_LIBS "${VTLOG_CFXX_LIBRARY} -framework CoreFoundation")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/VTLog.pc.in ${PROJECT_BINARY_DIR}/VTLog.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VTLog.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
