# What is installed, in components:
#
#   runtime   the library                    dev       what builds against it
#   sdk       the stand-in SDK, for those    sdk_dev   what builds against that
#             who develop without a switch   host      the host program
#   conform   the contract kit               conform_dev  what builds against that
#   doc       guide and reference            python       the package for Python
#   recorder  the recorder, preloaded         record    the program for recordings
#
# debian/ makes packages of them.
include(CMakePackageConfigHelpers)

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
install(FILES record/calls.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kybridge-sdk/record COMPONENT sdk_dev) # its services

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
set(pc_components kybridge:dev kybridge-sdk:sdk_dev)
if(KYBRIDGE_CONFORM)
  list(APPEND pc_components kyconform:conform_dev)
endif()
foreach(pc_component ${pc_components})
  string(REPLACE ":" ";" pc_component ${pc_component})
  list(POP_FRONT pc_component name)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT ${pc_component})
endforeach()

# ---- The host program -----------------------------------------------------------------------------------

if(KYBRIDGE_HOST)
  install(TARGETS kybridge-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT host)
  install(FILES docs/kybridge-host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT host)
  install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/kybridge-host/examples COMPONENT host
    USE_SOURCE_PERMISSIONS FILES_MATCHING PATTERN *.kyb PATTERN *.sh PATTERN expected EXCLUDE PATTERN sdk EXCLUDE
    PATTERN python EXCLUDE)

  # The package for Python, with what pip would write beside it.
  set(python_dir lib/python3/dist-packages)
  set(python_info ${PROJECT_BINARY_DIR}/kybridge-${PROJECT_VERSION}.dist-info)
  file(CONFIGURE OUTPUT ${python_info}/METADATA CONTENT "Metadata-Version: 2.1\nName: kybridge\nVersion: @PROJECT_VERSION@\n")
  file(CONFIGURE OUTPUT ${python_info}/entry_points.txt CONTENT "[pytest11]\nkybridge = kybridge.pytest_plugin\n")
  install(DIRECTORY python/kybridge ${python_info} DESTINATION ${python_dir} COMPONENT python
    PATTERN __pycache__ EXCLUDE)
  install(DIRECTORY examples/python/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/python3-kybridge/examples
    COMPONENT python FILES_MATCHING PATTERN *.py)
endif()

# ---- The contract kit -----------------------------------------------------------------------------------

if(KYBRIDGE_CONFORM)
  set_target_properties(kyconform PROPERTIES EXPORT_NAME conform)
  install(TARGETS kyconform EXPORT kybridge-conform
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT conform NAMELINK_COMPONENT conform_dev)
  install(FILES conform/ky_conform.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kyconform COMPONENT conform_dev)
  install(EXPORT kybridge-conform NAMESPACE kybridge:: FILE kybridge-conform-targets.cmake
    DESTINATION ${kybridge_cmake_dir} COMPONENT conform_dev)
  install(TARGETS kybridge-conform RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT conform)
  install(FILES docs/kybridge-conform.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT conform)
  install(FILES examples/sdk/example_sdk.c
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/kybridge-conform/examples COMPONENT conform)
endif()

# ---- The recorder ---------------------------------------------------------------------------------------

install(TARGETS kyrecord LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT recorder NAMELINK_SKIP)
if(KYBRIDGE_HOST)
  install(TARGETS kybridge-record RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT record)
  install(FILES docs/kybridge-record.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT record)
  # gdb looks there for what belongs to a library, by its whole path.
  install(FILES record/gdb/kybridge-gdb.py COMPONENT record
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR}
    RENAME libkybridge.so.${PROJECT_VERSION}-gdb.py)
endif()

# ---- Documents ------------------------------------------------------------------------------------------

install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/guide COMPONENT doc
  FILES_MATCHING PATTERN *.md PATTERN *.svg)
if(TARGET reference)
  foreach(pages reference internals)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/${pages}/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/${pages}
      COMPONENT doc)
  endforeach()
endif()
