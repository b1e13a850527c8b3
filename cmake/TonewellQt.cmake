# Which generation of Qt the project is built with, and all that differs between the two here; what
# differs in the sources stands in platform/qtgeneration.h. Nothing else asks.
#
# TONEWELL_QT_GENERATION, 5 or 6: as the cache variable TONEWELL_QT says; where that is empty, 5 if
# Qt 5.15 is here with Remote Objects, else 6. A consumer must be of the same generation.

set(TONEWELL_QT "" CACHE STRING "Generation of Qt: 5, 6, or empty for 5 where it has Remote Objects")
set_property(CACHE TONEWELL_QT PROPERTY STRINGS "" 5 6)
if(TONEWELL_QT STREQUAL "")
    find_package(Qt5RemoteObjects QUIET)
    if(Qt5RemoteObjects_FOUND AND NOT Qt5RemoteObjects_VERSION VERSION_LESS 5.15)
        set(TONEWELL_QT_GENERATION 5)
    else()
        set(TONEWELL_QT_GENERATION 6)
    endif()
elseif(TONEWELL_QT MATCHES "^[56]$")
    set(TONEWELL_QT_GENERATION ${TONEWELL_QT})
else()
    message(FATAL_ERROR "TONEWELL_QT must be 5, 6 or empty, not ${TONEWELL_QT}")
endif()

math(EXPR TONEWELL_QT_OTHER_GENERATION "11 - ${TONEWELL_QT_GENERATION}")

# The targets Qt::Core and so on, for all folders. Qt 6 looks for the threads too, and whoever is first
# owns that target.
find_package(Threads REQUIRED)
set(modules Core Gui Network RemoteObjects Widgets)
if(NOT WIN32)
    list(APPEND modules DBus)
endif()
if(BUILD_TESTING)
    list(APPEND modules Test)
endif()
if(TONEWELL_QT_GENERATION EQUAL 5)
    set(TONEWELL_QT_OLDEST 5.15)
    find_package(Qt5 ${TONEWELL_QT_OLDEST} REQUIRED COMPONENTS ${modules})
else()
    set(TONEWELL_QT_OLDEST 6.4)
    find_package(Qt6 ${TONEWELL_QT_OLDEST} REQUIRED COMPONENTS ${modules})
    # Packages of their own since 6.10.
    find_package(Qt6 QUIET OPTIONAL_COMPONENTS CorePrivate GuiPrivate)
endif()
unset(modules)
message(STATUS "Qt ${Qt${TONEWELL_QT_GENERATION}Core_VERSION}")

# Whether there are only the headers of Remote Objects: then what uses it is compiled, not linked.
set(TONEWELL_REMOTEOBJECTS_HEADERS_ONLY ${Qt5RemoteObjects_HEADERS_ONLY})

# The folders of Qt's tools.
get_target_property(TONEWELL_QT_TOOLS Qt${TONEWELL_QT_GENERATION}::qmake IMPORTED_LOCATION)
get_filename_component(TONEWELL_QT_TOOLS "${TONEWELL_QT_TOOLS}" DIRECTORY)
list(APPEND TONEWELL_QT_TOOLS /usr/lib/qt${TONEWELL_QT_GENERATION}/bin)

# The texts of the local encoding can be made to differ from UTF-8, as a test does.
if(TONEWELL_QT_GENERATION EQUAL 5)
    set(TONEWELL_QT_LOCAL_ENCODINGS ON)
endif()

# tests/support/linux/tsanqt.cpp knows the functions of Qt 5 that it stands in for.
if(TONEWELL_SANITIZER STREQUAL "thread" AND NOT TONEWELL_QT_GENERATION EQUAL 5)
    message(FATAL_ERROR "TONEWELL_SANITIZER=thread needs Qt 5")
endif()

# What the Debian package recommends and suggests of Qt.
if(TONEWELL_QT_GENERATION EQUAL 5)
    set(TONEWELL_QT_RECOMMENDED qttranslations5-l10n)
    set(TONEWELL_QT_SUGGESTED "qtwayland5, libqt5remoteobjects5-dev, python3-pyqt5.qtremoteobjects")
else()
    set(TONEWELL_QT_RECOMMENDED qt6-translations-l10n)
    set(TONEWELL_QT_SUGGESTED "qt6-wayland, qt6-remoteobjects-dev, python3-pyqt6.qtremoteobjects")
endif()

# tonewell_add_repc(<target> SOURCE|REPLICA <file.rep>)
#
# Compiles that side of the interface into the target, once a folder. What repc writes is not meant
# for this project's warnings and string rules.
function(tonewell_add_repc target side file)
    if(TONEWELL_QT_GENERATION EQUAL 5)
        qt5_generate_repc(generated ${file} ${side})
        target_sources(${target} PRIVATE ${generated})
    elseif(side STREQUAL "SOURCE")
        qt6_add_repc_sources(${target} ${file})
    else()
        qt6_add_repc_replicas(${target} ${file})
    endif()
    get_target_property(sources ${target} SOURCES)
    list(FILTER sources INCLUDE REGEX "(moc_)?rep_[a-z]+_(source|replica)[.](h|cpp)$")
    set_source_files_properties(${sources} PROPERTIES
        COMPILE_OPTIONS "$<IF:$<CXX_COMPILER_ID:MSVC>,/w,-w>")
    target_include_directories(${target} PUBLIC ${CMAKE_CURRENT_BINARY_DIR})
endfunction()
