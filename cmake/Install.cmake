# What is installed, in components: the library and what is needed to build against it, the stand-in SDK for
# those who develop without a switch, and the host program.
include(CMakePackageConfigHelpers)

# ---- The library (runtime) and what builds against it (dev) ---------------------------------------------

install(TARGETS kybridge kybridge_headers EXPORT kybridge
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(DIRECTORY include/kybridge DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
set(kybridge_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kybridge)
install(EXPORT kybridge NAMESPACE kybridge:: FILE kybridge-targets.cmake DESTINATION ${kybridge_cmake_dir}
  COMPONENT dev)
configure_package_config_file(cmake/kybridge-config.cmake.in kybridge-config.cmake
  INSTALL_DESTINATION ${kybridge_cmake_dir})
write_basic_package_version_file(kybridge-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kybridge-config.cmake ${PROJECT_BINARY_DIR}/kybridge-config-version.cmake
  DESTINATION ${kybridge_cmake_dir} COMPONENT dev)
# Where the prefix is, seen from the pkg-config files, which so may be moved with everything else.
file(RELATIVE_PATH kybridge_prefix_from_pc /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/kybridge.pc.in kybridge.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kybridge.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# ---- The stand-in SDK -----------------------------------------------------------------------------------

set_target_properties(kysdk PROPERTIES EXPORT_NAME sdk)
install(TARGETS kysdk EXPORT kybridge-sdk LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sdk)
install(FILES sdk/sdk.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kybridge-sdk/sdk COMPONENT sdk)
install(EXPORT kybridge-sdk NAMESPACE kybridge:: FILE kybridge-sdk-targets.cmake DESTINATION ${kybridge_cmake_dir}
  COMPONENT sdk)
configure_file(cmake/kybridge-sdk.pc.in kybridge-sdk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kybridge-sdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT sdk)

# ---- The host program -----------------------------------------------------------------------------------

if(KYBRIDGE_HOST)
  install(TARGETS kybridge-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT host)
  install(FILES docs/kybridge-host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT host)
  install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT host FILES_MATCHING PATTERN *.kyb
    PATTERN expected EXCLUDE)
endif()

# ---- Debian packages ------------------------------------------------------------------------------------

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the kybridge authors")
set(CPACK_PACKAGE_CONTACT "the kybridge authors <team@kybridge.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev sdk)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkybridge1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "bridge module of a switch SDK, shared library
 Maps virtual ports, pairs of a logical port and a VLAN, onto bridges of a
 switch that runs in IEEE 802.1D mode.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkybridge-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libkybridge1 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "bridge module of a switch SDK, development files
 Headers, pkg-config file and CMake package.")
set(CPACK_DEBIAN_SDK_PACKAGE_NAME libkysdk1)
set(CPACK_DEBIAN_SDK_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_SDK_DESCRIPTION "stand-in SDK for the bridge module
 Supplies every service that the bridge module calls, with real state, for
 development without a switch.")
set(CPACK_DEBIAN_HOST_PACKAGE_NAME kybridge-host)
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION net)
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "libkybridge1 (= ${PROJECT_VERSION}), libkysdk1 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_HOST_DESCRIPTION "program that loads the bridge module and drives it
 Runs scripts on the module, shows what it programs, and forwards real frames
 by it.")
if(KYBRIDGE_HOST)
  list(APPEND CPACK_COMPONENTS_ALL host)
endif()

# What every Debian package carries beside its files.
foreach(component_package runtime:libkybridge1 dev:libkybridge-dev sdk:libkysdk1 host:kybridge-host)
  string(REGEX MATCH "^([a-z]+):(.*)$" unused ${component_package})
  install(FILES LICENSE DESTINATION share/doc/${CMAKE_MATCH_2} COMPONENT ${CMAKE_MATCH_1} RENAME copyright)
endforeach()
include(CPack)
