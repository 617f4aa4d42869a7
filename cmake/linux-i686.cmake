# Builds the library, the halftone command and the test suite as 32-bit x86 Linux programs with
# the host's GCC (-m32; Debian: lib32stdc++-12-dev, lib32gcc-12-dev, libc6-dev-i386). They run
# natively on an x86-64 kernel. Doubles stay in SSE2 registers, as on x86-64.
#   cmake -S . -B build-m32 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/linux-i686.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
# The kernel's asm headers serve both word sizes; g++-multilib links /usr/include/asm to them,
# and without it the build links them from a folder of its own.
set(_halftone_asm ${CMAKE_BINARY_DIR}/i686-include)
if(NOT EXISTS /usr/include/asm AND NOT EXISTS ${_halftone_asm}/asm)
  file(MAKE_DIRECTORY ${_halftone_asm})
  file(CREATE_LINK /usr/include/x86_64-linux-gnu/asm ${_halftone_asm}/asm SYMBOLIC)
endif()
set(CMAKE_C_FLAGS_INIT "-m32 -isystem ${_halftone_asm}")
set(CMAKE_CXX_FLAGS_INIT "-m32 -isystem ${_halftone_asm}")
set(CMAKE_EXE_LINKER_FLAGS_INIT -m32)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -m32)
# Look for the target's libraries only where Debian keeps i386 ones; the x86-64 ones cannot link.
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)
