# Cross-compiling for 64-bit Arm with Debian's aarch64 toolchain against the
# :arm64 multiarch libraries; tests run under qemu-aarch64.
#   cmake -S . -B build/arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Programs come from the host; libraries, headers and packages only from the Arm side.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /usr /)

set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
find_program(ARM_PKG_CONFIG aarch64-linux-gnu-pkg-config)
if(ARM_PKG_CONFIG)
  set(PKG_CONFIG_EXECUTABLE ${ARM_PKG_CONFIG} CACHE FILEPATH "pkg-config for arm64")
endif()

# The multiarch libc under / matches the cross loader; a separate
# /usr/aarch64-linux-gnu root does not, and the first thread creation hangs.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)
