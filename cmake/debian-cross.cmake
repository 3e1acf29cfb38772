# Another Debian architecture, by Debian's cross compiler and the libraries of build/sysroot.
# RECEIVER_ARCHITECTURE names it: arm64 or armhf.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES RECEIVER_ARCHITECTURE)
set(CMAKE_SYSTEM_NAME Linux)

if(RECEIVER_ARCHITECTURE STREQUAL "arm64")
  set(CMAKE_SYSTEM_PROCESSOR aarch64)
  set(triplet aarch64-linux-gnu)
  set(RECEIVER_EMULATOR qemu-aarch64-static)
elseif(RECEIVER_ARCHITECTURE STREQUAL "armhf")
  set(CMAKE_SYSTEM_PROCESSOR armv7l)
  set(triplet arm-linux-gnueabihf)
  set(RECEIVER_EMULATOR qemu-arm-static)
else()
  message(FATAL_ERROR "No such architecture: \"${RECEIVER_ARCHITECTURE}\"")
endif()

set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${RECEIVER_ARCHITECTURE})
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/stamp)
  message(FATAL_ERROR "First make what it builds against: scripts/make-sysroot.sh ${RECEIVER_ARCHITECTURE}")
endif()

set(CMAKE_CXX_COMPILER ${triplet}-g++)
# The note that GCC 7 changed how 32-bit ARM passes some arguments: all here is built by one compiler.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
# So that a build, its discovery of tests and their run need no binfmt_misc.
set(CMAKE_CROSSCOMPILING_EMULATOR ${RECEIVER_EMULATOR} -L ${CMAKE_SYSROOT})

# Programs are this machine's; libraries are only the other's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${triplet}/pkgconfig)
