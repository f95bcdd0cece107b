include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS tqkernel tqlua EXPORT TqKernelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/tqkernel" "${TQ_LUA_INCLUDE_DIR}/tqkernel"
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT TqKernelTargets NAMESPACE TqKernel:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TqKernel)

file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/TqKernelConfig.cmake.in"
  "@PACKAGE_INIT@\ninclude(\"\${CMAKE_CURRENT_LIST_DIR}/TqKernelTargets.cmake\")\n")
configure_package_config_file("${CMAKE_CURRENT_BINARY_DIR}/TqKernelConfig.cmake.in"
  "${CMAKE_CURRENT_BINARY_DIR}/TqKernelConfig.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TqKernel)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/TqKernelConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/TqKernelConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/TqKernelConfigVersion.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TqKernel)

configure_file("${PROJECT_SOURCE_DIR}/cmake/tqkernel.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/tqkernel.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/tqkernel.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
