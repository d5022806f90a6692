# What `cmake --install` puts where: library, headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS KQLib EXPORT KQLibTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS kqclip RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/KQLib)
install(EXPORT KQLibTargets NAMESPACE KQ:: DESTINATION ${package})
configure_package_config_file(cmake/KQLibConfig.cmake.in ${CMAKE_BINARY_DIR}/KQLibConfig.cmake
  INSTALL_DESTINATION ${package} PATH_VARS KQ_MODULE_DIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KQLibConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/KQLibConfig.cmake ${CMAKE_BINARY_DIR}/KQLibConfigVersion.cmake
  DESTINATION ${package})

# The prefix of `cmake --install --prefix` is known at that time only.
install(CODE "
  set(CMAKE_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
  set(CMAKE_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
  set(PROJECT_VERSION ${PROJECT_VERSION})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kqlib.pc.in ${CMAKE_BINARY_DIR}/kqlib.pc @ONLY)
  file(INSTALL DESTINATION \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig
    TYPE FILE FILES ${CMAKE_BINARY_DIR}/kqlib.pc)")
