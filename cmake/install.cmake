# The installed tree: the shared library, the decoders, the headers of both, and what find_package and pkg-config read.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/kernel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gnss-kernel
        FILES_MATCHING PATTERN *.h PATTERN *_internal.h EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/decoders DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/gnss-kernel/host
        FILES_MATCHING PATTERN *.h)
install(TARGETS gnss-kernel gnss-decoders EXPORT gnss-kernel-targets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Beside the library, which loads it.
if(WIN32)
    install(FILES ${PROJECT_SOURCE_DIR}/host/decoders/decoder.dat DESTINATION ${CMAKE_INSTALL_BINDIR})
else()
    install(FILES ${PROJECT_SOURCE_DIR}/host/decoders/decoder.dat DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()

set(KERNEL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/gnss-kernel)
install(EXPORT gnss-kernel-targets NAMESPACE gnss-kernel:: DESTINATION ${KERNEL_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/gnss-kernel-config.cmake.in
                              ${PROJECT_BINARY_DIR}/gnss-kernel-config.cmake
                              INSTALL_DESTINATION ${KERNEL_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/gnss-kernel-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/gnss-kernel-config.cmake ${PROJECT_BINARY_DIR}/gnss-kernel-config-version.cmake
        DESTINATION ${KERNEL_PACKAGE_DIR})

# The way back from the package file, so that an installed tree may be moved.
set(KERNEL_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KERNEL_PC_TO_PREFIX /prefix/${KERNEL_PC_DIR} /prefix)
string(REGEX REPLACE "/$" "" KERNEL_PC_TO_PREFIX ${KERNEL_PC_TO_PREFIX})
if(WIN32)
    set(KERNEL_PC_CFLAGS "-DKERNEL_API_DLLIMPORT")
else()
    set(KERNEL_PC_LIBS_PRIVATE "-lsqlite3")
endif()
foreach(name gnss-kernel gnss-decoders)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${KERNEL_PC_DIR})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
