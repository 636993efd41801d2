# What a host gets from `cmake --install`: the three static libraries, the
# public headers under include/vrq/, the gamepad's resources under share/vrq/,
# a CMake package (find_package(VRQSDK), target VRQ::SDK) and a pkg-config
# file (vrqsdk).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS vrqsdk vrqengine vrqplatform EXPORT VRQSDKTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Headers ending in _p.h are the project's own (engine internals, the answering
# side the reference server uses): hosts never see them.
install(DIRECTORY sdk/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vrq FILES_MATCHING PATTERN "*.h" PATTERN "*_p.h" EXCLUDE)

# The gamepad's images and ready layouts, which the kit looks for in share/vrq.
install(DIRECTORY sdk/resources/vrqvkey sdk/resources/layouts DESTINATION ${CMAKE_INSTALL_DATADIR}/vrq)

install(EXPORT VRQSDKTargets NAMESPACE VRQ:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VRQSDK)
string(REPLACE ";" " " VRQ_GST_MODULES_TEXT "${VRQ_GST_MODULES}")
configure_package_config_file(cmake/VRQSDKConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VRQSDKConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VRQSDK)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VRQSDKConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VRQSDKConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/VRQSDKConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VRQSDK)

# The libraries are static, so the pkg-config file names the shared libraries
# they use on its Libs line (a plain `pkg-config --libs vrqsdk` links a host).
pkg_check_modules(VRQ_PC_DEPS REQUIRED glib-2.0 gio-2.0 gobject-2.0 ${VRQ_GST_MODULES} spng libcurl libcrypto spdlog)
list(JOIN VRQ_PC_DEPS_LDFLAGS " " VRQ_PC_DEP_LIBS)
# Paths are relative to the file's own folder, so the installed tree can move.
file(RELATIVE_PATH VRQ_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/vrqsdk.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vrqsdk.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vrqsdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
