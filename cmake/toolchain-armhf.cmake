# Cross-compiling for 32-bit ARM hotspots (arm-linux-gnueabihf, hard float) with Debian's cross
# compiler (g++-arm-linux-gnueabihf). The target's libraries come from Debian's :armhf packages
# unpacked into a sysroot (scripts/cross fetches it into build-armhf/sysroot); pass its path as
# TOLA_SYSROOT (cache variable or environment).
#
# The compiler keeps its own C library and libstdc++ (/usr/arm-linux-gnueabihf); the sysroot
# only adds the libraries' headers, link libraries and pkg-config files. Programs built here run
# on the build machine under qemu-arm, which CMake uses for test discovery and ctest.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(TOLA_TRIPLET arm-linux-gnueabihf)

if(NOT TOLA_SYSROOT AND DEFINED ENV{TOLA_SYSROOT})
  set(TOLA_SYSROOT $ENV{TOLA_SYSROOT})
endif()
if(NOT TOLA_SYSROOT)
  message(FATAL_ERROR "TOLA_SYSROOT is not set: the armhf sysroot (scripts/cross armhf makes one)")
endif()
set(TOLA_SYSROOT ${TOLA_SYSROOT} CACHE PATH "armhf sysroot with the target's libraries")
# try_compile projects get the toolchain file again; hand them the sysroot too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TOLA_SYSROOT)

set(CMAKE_C_COMPILER ${TOLA_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TOLA_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${TOLA_TRIPLET})
# GCC notes on every std::map instantiation that the ARM calling convention for such arguments
# changed in GCC 7.1; everything here is built by one compiler, so the note says nothing.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

set(CMAKE_FIND_ROOT_PATH ${TOLA_SYSROOT} /usr/${TOLA_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Headers and libraries of the sysroot, after the compiler's own.
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
    ${TOLA_SYSROOT}/usr/include/${TOLA_TRIPLET} ${TOLA_SYSROOT}/usr/include)
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES ${CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES})
set(_tola_libdirs ${TOLA_SYSROOT}/usr/lib/${TOLA_TRIPLET} ${TOLA_SYSROOT}/lib/${TOLA_TRIPLET})
set(_tola_link "")
foreach(dir IN LISTS _tola_libdirs)
  string(APPEND _tola_link " -L${dir} -Wl,-rpath-link,${dir}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_tola_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_tola_link}")

# pkg-config reads only the target's .pc files and prefixes their paths with the sysroot.
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR}
    "${TOLA_SYSROOT}/usr/lib/${TOLA_TRIPLET}/pkgconfig:${TOLA_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TOLA_SYSROOT})

find_program(TOLA_QEMU_ARM qemu-arm)
if(TOLA_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TOLA_QEMU_ARM} -L ${TOLA_SYSROOT})
endif()
