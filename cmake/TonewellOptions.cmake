# What every target of the project is compiled with.

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 11)
    message(FATAL_ERROR "GCC 11 or later is needed, whose std::to_chars writes floating-point numbers;"
        " this is ${CMAKE_CXX_COMPILER_VERSION}")
endif()
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_AUTOMOC ON)
set(CMAKE_AUTOUIC ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

set(TONEWELL_SANITIZER "" CACHE STRING "address (with undefined), thread, or empty for none")
set_property(CACHE TONEWELL_SANITIZER PROPERTY STRINGS "" address thread)
option(TONEWELL_WARNINGS_AS_ERRORS "Stop at a warning, for who changes the sources" OFF)

add_library(tonewell_options INTERFACE)
# Quoted includes are paths from the project's root.
target_include_directories(tonewell_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(tonewell_options INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_KEYWORDS
    QT_NO_FOREACH
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)

if(MSVC)
    target_compile_options(tonewell_options INTERFACE /W4 /utf-8 /permissive- /Zc:__cplusplus)
    # The standard library's own functions, such as getenv, are what other compilers have; and headers
    # of Qt 5.15 use iterators that Visual Studio 2022 warns of.
    target_compile_definitions(tonewell_options INTERFACE
        _CRT_SECURE_NO_WARNINGS _SILENCE_STDEXT_ARR_ITERS_DEPRECATION_WARNING)
else()
    target_compile_options(tonewell_options INTERFACE -Wall -Wextra -Wpedantic
        -Wshadow -Wimplicit-fallthrough)
    if(NOT WIN32) # whose interfaces have no destructor
        target_compile_options(tonewell_options INTERFACE -Wnon-virtual-dtor)
    endif()
endif()

if(WIN32) # whose <cmath> has M_PI only then
    target_compile_definitions(tonewell_options INTERFACE _USE_MATH_DEFINES)
endif()
if(MINGW) # headers of the installer's Qt 5.15.2 use std::numeric_limits and do not include it
    target_compile_options(tonewell_options INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:SHELL:-include limits>")
endif()
if(TONEWELL_WARNINGS_AS_ERRORS)
    target_compile_options(tonewell_options INTERFACE $<IF:$<CXX_COMPILER_ID:MSVC>,/WX,-Werror>)
endif()

if(TONEWELL_SANITIZER STREQUAL "address")
    set(flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(TONEWELL_SANITIZER STREQUAL "thread")
    set(flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(TONEWELL_SANITIZER)
    message(FATAL_ERROR "TONEWELL_SANITIZER must be address, thread or empty")
endif()
if(flags)
    add_compile_options(${flags} -O1)
    add_link_options(${flags})
    unset(flags)
endif()
