# Cross-build for 64-bit Windows with MinGW-w64 (Debian: g++-mingw-w64-x86-64).
# The programs are single-threaded, so the compiler's win32 threading variant
# serves and nothing needs the winpthread library; the posix variant also works.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QRX_MINGW_TRIPLE x86_64-w64-mingw32)
find_program(CMAKE_CXX_COMPILER NAMES ${QRX_MINGW_TRIPLE}-g++-win32 ${QRX_MINGW_TRIPLE}-g++-posix
                                      ${QRX_MINGW_TRIPLE}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${QRX_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${QRX_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Everything linked in, so the programs run on a bare Windows without the
# compiler's runtime libraries beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
