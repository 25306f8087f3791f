# For another processor, with Debian's cross compilers and qemu-user. KYBRIDGE_TRIPLET names the processor as the
# compilers do, and KYBRIDGE_LIBRARIES its folder of libraries; tools/platforms puts Debian's libraries for it there.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KYBRIDGE_TRIPLET KYBRIDGE_LIBRARIES)
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[a-z0-9_]+" CMAKE_SYSTEM_PROCESSOR ${KYBRIDGE_TRIPLET})
set(CMAKE_LIBRARY_ARCHITECTURE ${KYBRIDGE_LIBRARIES})
set(CMAKE_C_COMPILER ${KYBRIDGE_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KYBRIDGE_TRIPLET}-g++)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH root)
string(APPEND root /build-platforms/${KYBRIDGE_TRIPLET}/sysroot)
set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT "-isystem ${root}/usr/include/${KYBRIDGE_LIBRARIES}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${root}/usr/lib/${KYBRIDGE_LIBRARIES}")

string(REGEX REPLACE "^i[0-9]86$" "i386" processor ${CMAKE_SYSTEM_PROCESSOR})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${processor} -L /usr/${KYBRIDGE_TRIPLET})
