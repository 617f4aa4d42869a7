# Cross-compiles halftone.dll for 32-bit Windows with mingw-w64 (Debian: g++-mingw-w64-i686).
#   cmake -S . -B build-win32 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-i686.cmake
# Doubles are computed in SSE2 registers (-msse2 -mfpmath=sse, set by the project for every
# 32-bit x86 target), never the x87 unit. Add -DHALFTONE_STDCALL=ON for hosts declaring WINAPI.
set(HALFTONE_MINGW_PREFIX i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
