# Cross toolchain: MinGW-w64 on Linux, and the Qt that tools/windows/setup-qt provides.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(DEFINED ENV{TONEWELL_CACHE})
    set(cache "$ENV{TONEWELL_CACHE}")
elseif(DEFINED ENV{XDG_CACHE_HOME})
    set(cache "$ENV{XDG_CACHE_HOME}/tonewell")
else()
    set(cache "$ENV{HOME}/.cache/tonewell")
endif()
set(TONEWELL_CROSS_QT "${cache}/qt5-mingw64" CACHE PATH "Qt for Windows")
unset(cache)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TONEWELL_CROSS_QT)
list(APPEND CMAKE_PREFIX_PATH ${TONEWELL_CROSS_QT})

set(CMAKE_FIND_ROOT_PATH ${TONEWELL_CROSS_QT} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Without Qt Remote Objects in that Qt, its headers alone serve to compile what uses it.
if(NOT EXISTS ${TONEWELL_CROSS_QT}/lib/cmake/Qt5RemoteObjects)
    set(Qt5RemoteObjects_DIR ${CMAKE_CURRENT_LIST_DIR}/remoteobjectsheaders CACHE PATH "")
endif()

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../../tools/windows/run)
