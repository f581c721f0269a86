# Installation: library, headers, CMake package, pkg-config file, man pages. The applications install
# themselves in their folders.
include(CMakePackageConfigHelpers)

install(TARGETS vorelutil EXPORT vorelutilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT vorelutilTargets NAMESPACE vorelutil:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorelutil)

get_property(headers GLOBAL PROPERTY VORELUTIL_PUBLIC_HEADERS)
foreach(header IN LISTS headers)
  cmake_path(RELATIVE_PATH header BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE relative)
  cmake_path(GET relative PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
endforeach()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vorelutilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vorelutilConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorelutil)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vorelutilConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vorelutilConfig.cmake ${PROJECT_BINARY_DIR}/vorelutilConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorelutil)

# Relative to its own place, so that the installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}
  OUTPUT_VARIABLE VORELUTIL_PC_INCLUDE)
configure_file(${PROJECT_SOURCE_DIR}/cmake/vorelutil.pc.in ${PROJECT_BINARY_DIR}/vorelutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vorelutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# What headers and man pages refer to.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/formats DESTINATION ${CMAKE_INSTALL_DOCDIR}
  FILES_MATCHING PATTERN "*.md")

if(VORELUTIL_BUILD_APPS)
  install(PROGRAMS ${PROJECT_SOURCE_DIR}/examples/firmware/make_image.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/vorelutil)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    FILES_MATCHING PATTERN "*.1")
endif()
