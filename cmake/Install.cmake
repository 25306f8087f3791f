# What is installed, in components:
#
#   runtime   the library                    dev       what builds against it
#   sdk       the stand-in SDK, for those    sdk_dev   what builds against that
#             who develop without a switch   host      the host program
#
# and the Debian packages made of them.
include(CMakePackageConfigHelpers)

# install_compressed(SOURCE NAME.gz DESTINATION...): Debian wants some documents so.
function(install_compressed source name)
  execute_process(COMMAND gzip -9nc ${source} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/${name} COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${source})
  install(FILES ${PROJECT_BINARY_DIR}/${name} ${ARGN})
endfunction()

# ---- The library and the stand-in SDK -------------------------------------------------------------------

install(TARGETS kybridge kybridge_headers EXPORT kybridge
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(DIRECTORY include/kybridge DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

set_target_properties(kysdk PROPERTIES EXPORT_NAME sdk)
# A program that calls no service itself needs the stand-in all the same, and before the library: its cl_malloc is to
# win. Many compilers link with --as-needed, which would leave it out.
target_link_options(kysdk INTERFACE
  "$<INSTALL_INTERFACE:LINKER:--push-state,--no-as-needed;$<TARGET_FILE:kybridge::sdk>;LINKER:--pop-state>")
install(TARGETS kysdk EXPORT kybridge-sdk
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sdk NAMELINK_COMPONENT sdk_dev)
install(FILES sdk/sdk.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kybridge-sdk/sdk COMPONENT sdk_dev)

# ---- For CMake and pkg-config ---------------------------------------------------------------------------

set(kybridge_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kybridge)
install(EXPORT kybridge NAMESPACE kybridge:: FILE kybridge-targets.cmake DESTINATION ${kybridge_cmake_dir}
  COMPONENT dev)
install(EXPORT kybridge-sdk NAMESPACE kybridge:: FILE kybridge-sdk-targets.cmake DESTINATION ${kybridge_cmake_dir}
  COMPONENT sdk_dev)
configure_package_config_file(cmake/kybridge-config.cmake.in kybridge-config.cmake
  INSTALL_DESTINATION ${kybridge_cmake_dir})
write_basic_package_version_file(kybridge-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kybridge-config.cmake ${PROJECT_BINARY_DIR}/kybridge-config-version.cmake
  DESTINATION ${kybridge_cmake_dir} COMPONENT dev)

# Where the prefix is, seen from the pkg-config files, which so may be moved with everything else.
file(RELATIVE_PATH kybridge_prefix_from_pc /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(pc_component kybridge:dev kybridge-sdk:sdk_dev)
  string(REPLACE ":" ";" pc_component ${pc_component})
  list(POP_FRONT pc_component name)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT ${pc_component})
endforeach()

# ---- The host program -----------------------------------------------------------------------------------

if(KYBRIDGE_HOST)
  install(TARGETS kybridge-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT host)
  install_compressed(docs/kybridge-host.1 kybridge-host.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT host)
  install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/kybridge-host/examples COMPONENT host
    USE_SOURCE_PERMISSIONS FILES_MATCHING PATTERN *.kyb PATTERN *.sh PATTERN expected EXCLUDE)
endif()

# ---- Debian packages ------------------------------------------------------------------------------------

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the kybridge authors")
set(CPACK_PACKAGE_CONTACT "the kybridge authors <team@kybridge.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL runtime dev sdk sdk_dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
# The host needs the stand-in, which is in no package yet while dpkg-shlibdeps looks for it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/sdk)

# debian_package(GROUP NAME SECTION DEPENDS DESCRIPTION COMPONENT...): the first component carries the documents.
set(debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
macro(debian_package group name section depends description)
  set(CPACK_DEBIAN_${group}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${group}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${group}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${group}_DESCRIPTION "${description}")
  foreach(component ${ARGN})
    string(TOUPPER ${component} component)
    set(CPACK_COMPONENT_${component}_GROUP ${group})
  endforeach()
  set(in_package DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name} COMPONENT ${ARGV5} EXCLUDE_FROM_ALL)
  install(FILES LICENSE RENAME copyright ${in_package})
  install_compressed(CHANGELOG.md changelog.gz ${in_package})
  install_compressed(cmake/changelog.Debian changelog.Debian.gz ${in_package})
endmacro()

debian_package(RUNTIME libkybridge1 libs "" "bridge module of a switch SDK, shared library
Maps virtual ports, pairs of a logical port and a VLAN, onto bridges of a
switch that runs in IEEE 802.1D mode." runtime)
debian_package(SDK libkysdk1 libs "" "stand-in SDK for the bridge module
Supplies every service that the bridge module calls, with real state, for
development without a switch." sdk)
debian_package(DEVELOPMENT libkybridge-dev libdevel
  "libkybridge1 (= ${debian_version}), libkysdk1 (= ${debian_version})"
  "bridge module of a switch SDK, development files
Headers, pkg-config files and CMake package of the bridge module and of the
stand-in SDK." dev sdk_dev)
foreach(group RUNTIME SDK)
  set(CPACK_DEBIAN_${group}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/triggers)
endforeach()
if(KYBRIDGE_HOST)
  list(APPEND CPACK_COMPONENTS_ALL host)
  # It loads the module without being linked with it.
  debian_package(PROGRAM kybridge-host net "libkybridge1 (= ${debian_version}), libkysdk1 (= ${debian_version})"
    "program that loads the bridge module and drives it
Runs scripts on the module, shows what it programs, and forwards real frames
by it." host)
endif()
include(CPack)
