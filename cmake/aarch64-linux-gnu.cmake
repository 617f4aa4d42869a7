# Cross-compiles the library, the halftone command and the test suite for 64-bit ARM Linux
# (Debian: g++-aarch64-linux-gnu); programs built here run under qemu-user (Debian: qemu-user).
#   cmake -S . -B build-arm64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(HALFTONE_CROSS_PREFIX aarch64-linux-gnu)
find_program(CMAKE_C_COMPILER NAMES ${HALFTONE_CROSS_PREFIX}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${HALFTONE_CROSS_PREFIX}-g++ REQUIRED)

# The target's libraries (libpng, libtiff) where Debian's arm64 packages put them, if present.
set(CMAKE_LIBRARY_ARCHITECTURE ${HALFTONE_CROSS_PREFIX})
set(CMAKE_FIND_ROOT_PATH /usr/${HALFTONE_CROSS_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(HALFTONE_QEMU NAMES qemu-aarch64 qemu-aarch64-static)
if(HALFTONE_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${HALFTONE_QEMU} -L /usr/${HALFTONE_CROSS_PREFIX})
endif()
