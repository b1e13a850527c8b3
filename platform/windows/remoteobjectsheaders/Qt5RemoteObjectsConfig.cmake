# Qt Remote Objects as far as it takes to compile: this host's headers and its repc. Nothing that
# uses it can be linked, which Qt5RemoteObjects_HEADERS_ONLY says.
find_program(TONEWELL_REPC repc PATHS /usr/lib/qt5/bin)
find_path(TONEWELL_REMOTEOBJECTS_HEADERS QtRemoteObjects/qremoteobjectnode.h
    PATHS /usr/include/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/qt5 /usr/include/qt5
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_file(TONEWELL_REMOTEOBJECTS_MACROS Qt5RemoteObjects/Qt5RemoteObjectsMacros.cmake
    PATHS /usr/lib/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/cmake /usr/lib/cmake
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT TONEWELL_REPC OR NOT TONEWELL_REMOTEOBJECTS_HEADERS OR NOT TONEWELL_REMOTEOBJECTS_MACROS)
    set(Qt5RemoteObjects_FOUND FALSE)
    return()
endif()

# In a folder without the headers of this host's other Qt modules.
set(Qt5RemoteObjects_INCLUDE_DIRS
    ${CMAKE_BINARY_DIR}/remoteobjectsheaders
    ${CMAKE_BINARY_DIR}/remoteobjectsheaders/QtRemoteObjects)
file(COPY ${TONEWELL_REMOTEOBJECTS_HEADERS}/QtRemoteObjects
    DESTINATION ${CMAKE_BINARY_DIR}/remoteobjectsheaders)

find_package(Qt5Network REQUIRED)
set(Qt5RemoteObjects_HEADERS_ONLY TRUE)
set(Qt5RemoteObjects_REPC_EXECUTABLE ${TONEWELL_REPC})
set(Qt5RemoteObjects_VERSION ${Qt5Core_VERSION})
if(NOT TARGET Qt5::RemoteObjects)
    add_library(Qt5::RemoteObjects INTERFACE IMPORTED)
    target_include_directories(Qt5::RemoteObjects INTERFACE ${Qt5RemoteObjects_INCLUDE_DIRS})
    target_compile_definitions(Qt5::RemoteObjects INTERFACE QT_REMOTEOBJECTS_LIB)
    target_link_libraries(Qt5::RemoteObjects INTERFACE Qt5::Network Qt5::Core)
    add_library(Qt::RemoteObjects INTERFACE IMPORTED)
    target_link_libraries(Qt::RemoteObjects INTERFACE Qt5::RemoteObjects)
endif()
include(${TONEWELL_REMOTEOBJECTS_MACROS})
