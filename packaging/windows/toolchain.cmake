# Debian's cross compiler for 64-bit Windows.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(windows_host x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${windows_host}-gcc-posix)
set(CMAKE_CXX_COMPILER ${windows_host}-g++-posix)
set(CMAKE_RC_COMPILER ${windows_host}-windres)

# Programs of this computer, libraries of the other.
set(CMAKE_FIND_ROOT_PATH /usr/${windows_host})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# Of Qt's tools for translators only the programs are used, and those are this computer's.
file(GLOB linguist_tools /usr/lib/*/cmake/Qt5LinguistTools)
set(Qt5LinguistTools_DIR ${linguist_tools} CACHE PATH "Where lrelease and lupdate are described")

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/under-wine.sh")
