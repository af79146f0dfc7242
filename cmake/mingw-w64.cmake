# Cross compilation for 64-bit Windows with Debian's mingw-w64, posix-thread variant (the code
# uses the standard library's threads and mutexes).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(TIVALO_MINGW_HOST x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${TIVALO_MINGW_HOST}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TIVALO_MINGW_HOST}-g++-posix)
set(CMAKE_RC_COMPILER ${TIVALO_MINGW_HOST}-windres)
set(CMAKE_AR ${TIVALO_MINGW_HOST}-gcc-ar-posix CACHE FILEPATH "")
set(CMAKE_RANLIB ${TIVALO_MINGW_HOST}-gcc-ranlib-posix CACHE FILEPATH "")
set(TIVALO_WIDL ${TIVALO_MINGW_HOST}-widl)

# The cross-built libraries (TIVALO_WINDOWS_DEPS, their install prefix) count as the target's.
set(CMAKE_FIND_ROOT_PATH /usr/${TIVALO_MINGW_HOST} ${TIVALO_WINDOWS_DEPS})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TIVALO_WINDOWS_DEPS)
# Programs (xsdcxx, Python, widl) are the build machine's; libraries and headers the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The runtime libraries of the compiler go into the DLL: it depends on system DLLs only.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
