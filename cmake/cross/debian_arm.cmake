# What the toolchains arm64 and armhf share. They set house_triplet, house_emulator and CMAKE_SYSTEM_PROCESSOR before.
#
# The compiler is this machine's cross compiler. Headers and libraries come from the sysroot that
# tests/cross/make-sysroot makes, or from the folder HOUSE_SYSROOT.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER "${house_triplet}-gcc")
set(CMAKE_CXX_COMPILER "${house_triplet}-g++")
set(CMAKE_LIBRARY_ARCHITECTURE "${house_triplet}")

set(HOUSE_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-${house_architecture}"
    CACHE PATH "Headers and libraries of the other architecture")
get_filename_component(CMAKE_SYSROOT "${HOUSE_SYSROOT}" ABSOLUTE)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES HOUSE_SYSROOT)
if(NOT EXISTS "${CMAKE_SYSROOT}/usr/include")
    message(FATAL_ERROR "${CMAKE_SYSROOT} has no headers. Make it with: tests/cross/make-sysroot ${house_architecture}")
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/${house_triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

# With qemu-user, CTest can run the tests here. "none": the kernel starts these programs by itself (tests/cross/emulated).
find_program(HOUSE_EMULATOR NAMES "${house_emulator}-static" "${house_emulator}")
if(HOUSE_EMULATOR AND NOT HOUSE_EMULATOR STREQUAL "none")
    set(CMAKE_CROSSCOMPILING_EMULATOR "${HOUSE_EMULATOR};-L;${CMAKE_SYSROOT}")
endif()
