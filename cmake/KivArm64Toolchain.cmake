# Cross build for 64-bit Arm (aarch64) with Debian's cross compiler
# (g++-aarch64-linux-gnu) against an arm64 root of its own: the arm64 -dev
# packages cannot sit beside the native ones (libsimdjson-dev is not
# multi-arch co-installable), so `scripts/setup --arm64` unpacks them into a
# separate tree. Whatever the build runs (test discovery, the tests, the
# programs they start) runs under qemu's user-mode emulation with that tree as
# its root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# The same default as scripts/setup; KIV_ARM64_ROOT moves both.
if(DEFINED ENV{KIV_ARM64_ROOT} AND NOT "$ENV{KIV_ARM64_ROOT}" STREQUAL "")
  set(KIV_ARM64_ROOT "$ENV{KIV_ARM64_ROOT}")
elseif(NOT KIV_ARM64_ROOT)
  set(KIV_ARM64_ROOT /var/cache/kivfll/arm64-root)
endif()
if(NOT EXISTS "${KIV_ARM64_ROOT}/usr/include/simdjson.h")
  message(FATAL_ERROR "No arm64 root at ${KIV_ARM64_ROOT}: run scripts/setup --arm64")
endif()
# try_compile projects read this file again without the cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KIV_ARM64_ROOT)

set(CMAKE_SYSROOT "${KIV_ARM64_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the root's .pc files and prefixes their paths with it.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${KIV_ARM64_ROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${KIV_ARM64_ROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${KIV_ARM64_ROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# One program that runs an arm64 program here, so that a test can start the
# build's own programs the same way. -L makes the guest's absolute paths (its
# loader, its libraries, /etc/fonts) resolve inside the root first.
find_program(KIV_QEMU_AARCH64 qemu-aarch64-static REQUIRED)
set(KIV_ARM64_RUN "${CMAKE_BINARY_DIR}/run-arm64")
file(WRITE "${KIV_ARM64_RUN}" "#!/bin/sh\nexec '${KIV_QEMU_AARCH64}' -L '${KIV_ARM64_ROOT}' \"$@\"\n")
file(CHMOD "${KIV_ARM64_RUN}" FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
     WORLD_READ WORLD_EXECUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR "${KIV_ARM64_RUN}")
