# What "cmake --install" puts under the prefix:
#
#   lib/ (bin/ on Windows)      the kit library
#   include/qzextensionkit/     the public headers, by subsystem
#   bin/qzekit                  the tool, when it is built
#   lib/cmake/QZExtensionKit/   the package for find_package(QZExtensionKit),
#                               with qzekit_add_bundle
#   lib/pkgconfig/qzextensionkit.pc

include(CMakePackageConfigHelpers)

set(QZEKIT_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QZExtensionKit)

install(TARGETS qzextensionkit EXPORT QZExtensionKitTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qzextensionkit)

if(TARGET qzekit)
  if(NOT WIN32 AND NOT APPLE)
    # The installed tool finds the kit in the prefix it was installed to.
    file(RELATIVE_PATH _libdir_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(qzekit PROPERTIES INSTALL_RPATH "$ORIGIN/${_libdir_from_bin}")
  endif()
  install(TARGETS qzekit EXPORT QZExtensionKitTargets RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT QZExtensionKitTargets NAMESPACE QZExtensionKit::
        DESTINATION ${QZEKIT_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QZExtensionKitConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QZExtensionKitConfig.cmake
  INSTALL_DESTINATION ${QZEKIT_INSTALL_CMAKEDIR})
# Before 1.0 a minor version may break the binary interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QZExtensionKitConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/QZExtensionKitConfig.cmake
  ${PROJECT_BINARY_DIR}/QZExtensionKitConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/QZEKitBundle.cmake
  ${PROJECT_SOURCE_DIR}/cmake/QZEKitBundleManifest.cmake
  DESTINATION ${QZEKIT_INSTALL_CMAKEDIR})

# pkg-config: written at install time, so that the file names the prefix
# given to "cmake --install --prefix" and not the one configured.
install(CODE "
  set(QZEKIT_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(QZEKIT_PC_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(QZEKIT_PC_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(QZEKIT_PC_VERSION \"${PROJECT_VERSION}\")
  set(QZEKIT_PC_THREAD_LIBS \"${CMAKE_THREAD_LIBS_INIT}\")
  configure_file(\"${PROJECT_SOURCE_DIR}/cmake/qzextensionkit.pc.in\"
                 \"${PROJECT_BINARY_DIR}/qzextensionkit.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/qzextensionkit.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
