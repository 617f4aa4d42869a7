# Shared by the mingw-w64 toolchain files: HALFTONE_MINGW_PREFIX names the compiler triplet.
set(CMAKE_SYSTEM_NAME Windows)

# Prefer the POSIX thread model of the compiler: its C++ runtime has std::mutex and friends on
# every GCC release; the win32 model lacks them before GCC 13. Both link statically into the DLL.
find_program(HALFTONE_MINGW_CXX NAMES ${HALFTONE_MINGW_PREFIX}-g++-posix ${HALFTONE_MINGW_PREFIX}-g++ REQUIRED)
find_program(HALFTONE_MINGW_CC NAMES ${HALFTONE_MINGW_PREFIX}-gcc-posix ${HALFTONE_MINGW_PREFIX}-gcc REQUIRED)
find_program(HALFTONE_MINGW_RC NAMES ${HALFTONE_MINGW_PREFIX}-windres)
set(CMAKE_C_COMPILER ${HALFTONE_MINGW_CC})
set(CMAKE_CXX_COMPILER ${HALFTONE_MINGW_CXX})
if(HALFTONE_MINGW_RC)
  set(CMAKE_RC_COMPILER ${HALFTONE_MINGW_RC})
endif()

set(CMAKE_FIND_ROOT_PATH /usr/${HALFTONE_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs built here (the Windows print host) run under Wine when tested on Linux.
find_program(HALFTONE_WINE NAMES wine wine64)
if(HALFTONE_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${HALFTONE_WINE})
endif()
