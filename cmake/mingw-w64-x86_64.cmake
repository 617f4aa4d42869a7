# Cross-compiles halftone.dll for 64-bit Windows with mingw-w64 (Debian: g++-mingw-w64-x86-64).
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(HALFTONE_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
