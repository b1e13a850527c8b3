# tonewell_room(<room> SOURCES ... [LINK ...] [PRIVATE_LINK ...])
#
# One room of the house: the static library tonewell_<room>, whose headers are
# included as "<room>/name.h".
function(tonewell_room room)
    cmake_parse_arguments(arg "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
    set(target tonewell_${room})
    add_library(${target} STATIC ${arg_SOURCES})
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${arg_LINK} PRIVATE tonewell_options ${arg_PRIVATE_LINK})
endfunction()

# TONEWELL_VECTOR_CODE: whether there are kernels for the processors that this build is for.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_INCLUDES ${PROJECT_SOURCE_DIR})
check_cxx_source_compiles([[
    #include "platform/vectorunit.h"
    static_assert(TONEWELL_VECTOR_CODE, "");
    int main() { return 0; }]] TONEWELL_VECTOR_CODE)
unset(CMAKE_REQUIRED_INCLUDES)

# Win64 aligns the stack to 16 bytes, and GCC spills 32-byte registers there as if it were aligned to
# 32. An assembler that does not know the option, as that of MinGW 8, leaves this build with SSE2.
if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    include(CheckCXXCompilerFlag)
    check_cxx_compiler_flag(-Wa,-muse-unaligned-vector-move TONEWELL_UNALIGNED_MOVES)
    if(NOT TONEWELL_UNALIGNED_MOVES)
        set(TONEWELL_WITHOUT_AVX2 TRUE)
    endif()
endif()

# tonewell_kernels([AVX2] <sources>...)
#
# Sources of loops that are worth every optimisation also in a build of modest ones; with AVX2 for
# x86-64 processors that have it and FMA.
function(tonewell_kernels)
    cmake_parse_arguments(arg "AVX2" "" "" ${ARGN})
    if(MSVC)
        set(options $<$<BOOL:${arg_AVX2}>:/arch:AVX2>)
    else()
        set(options "$<$<CONFIG:Release,RelWithDebInfo>:-O3>")
        if(arg_AVX2)
            list(APPEND options -mavx2 -mfma)
            if(TONEWELL_UNALIGNED_MOVES)
                list(APPEND options -Wa,-muse-unaligned-vector-move)
            endif()
        endif()
    endif()
    set_source_files_properties(${arg_UNPARSED_ARGUMENTS} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()

# tonewell_remote_program(<name> [WIN32] <sources>...)
#
# add_executable for a program that uses Qt Remote Objects. Where there are only the headers of that
# (TONEWELL_REMOTEOBJECTS_HEADERS_ONLY), its sources are compiled and nothing is linked.
function(tonewell_remote_program name)
    if(TONEWELL_REMOTEOBJECTS_HEADERS_ONLY)
        list(REMOVE_ITEM ARGN WIN32)
        add_library(${name} OBJECT ${ARGN})
    else()
        add_executable(${name} ${ARGN})
    endif()
endfunction()

# tonewell_test(<name> SOURCES ... LINK ... [SERVER] [TIMEOUT seconds] [RUN_SERIAL] [XVFB size])
#
# One QtTest program, bin/<name>, and the CTest entry of the same name, after its file:
# tst_peakhold for tst_peakhold.cpp, tst_loopback.pulseaudio for a variant of tst_loopback.cpp. It
# runs on Qt's offscreen platform unless the test asks for another one, in a folder of its own for
# temporary files, so that sockets and shared-memory keys of parallel tests never meet. With XVFB it
# runs on an X server of its own, of the size given (1280x1024).
#
# SERVER, which XVFB implies: it starts servers or other processes, or shows real windows. Such a
# test lives in real time and has the label "server".
function(tonewell_test name)
    cmake_parse_arguments(arg "SERVER;RUN_SERIAL" "TIMEOUT;XVFB" "SOURCES;LINK" ${ARGN})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    string(REGEX REPLACE "[.].*" ".cpp" file ${name}.)
    if(NOT file IN_LIST arg_SOURCES)
        message(FATAL_ERROR "The test ${name} is not named after its file: no ${file} in SOURCES")
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE tonewell_options ${arg_LINK} Qt::Test)
    if(arg_XVFB AND NOT WIN32) # where there is always a display
        add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/support/linux/with_xvfb
            -s ${arg_XVFB} $<TARGET_FILE:${name}>)
    else()
        add_test(NAME ${name} COMMAND ${name})
    endif()
    tonewell_test_environment(${name})
    if(arg_SERVER OR arg_XVFB)
        set_tests_properties(${name} PROPERTIES LABELS server)
    endif()
    if(arg_XVFB)
        # No accessibility bus: it is the user's. Qt's X plugin leaves key symbols behind, in a
        # library that is unloaded before the leak check and so cannot be named in lsan.supp.
        set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
            "DBUS_SESSION_BUS_ADDRESS=disabled:"
            "ASAN_OPTIONS=detect_stack_use_after_return=1:detect_leaks=0")
        # Qt's X plugin, Mesa and the file dialog start the threads of such a test, and they are not
        # instrumented; what they hand to each other looks like races.
        if(TONEWELL_SANITIZER STREQUAL "thread")
            set_tests_properties(${name} PROPERTIES DISABLED TRUE)
        endif()
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT})
    if(arg_RUN_SERIAL)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL TRUE)
    endif()
endfunction()

# What the sanitizers are told, in every process of every test.
set(TONEWELL_SANITIZER_ENVIRONMENT
    "ASAN_OPTIONS=detect_stack_use_after_return=1"
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0"
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1:history_size=7"
    "UBSAN_OPTIONS=print_stacktrace=1")

# tonewell_test_environment(<ctest name>): what every test process starts with.
function(tonewell_test_environment name)
    set(tmp ${CMAKE_BINARY_DIR}/tmp/${name})
    file(MAKE_DIRECTORY ${tmp})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT
        "QT_QPA_PLATFORM=offscreen;TMPDIR=${tmp};LC_ALL=C.UTF-8;${TONEWELL_SANITIZER_ENVIRONMENT}")
    if(WIN32) # where Qt prints to a pipe only if it is told so
        set_tests_properties(${name} PROPERTIES ENVIRONMENT
            "QT_QPA_PLATFORM=windows;QT_ASSUME_STDERR_HAS_CONSOLE=1")
        if(CMAKE_CROSSCOMPILING) # one Wine session for all
            set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED windows_session)
            set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
                "TONEWELL_WINE_SESSION=${CMAKE_BINARY_DIR}/session")
        endif()
    endif()
endfunction()

# tonewell_window_test(<name>): the Python test <name>.py of this folder, which starts the program
# on an X server and an accessibility bus of its own.
function(tonewell_window_test name)
    find_program(TONEWELL_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)
    add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/support/linux/with_xvfb -s 1280x1024
        ${TONEWELL_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/${name}.py)
    tonewell_test_environment(${name})
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
        "TONEWELL_PROGRAM=$<TARGET_FILE:TonewellDetection>"
        "PYTHONDONTWRITEBYTECODE=1"
        "ASAN_OPTIONS=detect_stack_use_after_return=1:detect_leaks=0")
    set_tests_properties(${name} PROPERTIES LABELS server TIMEOUT 300)
    if(TONEWELL_SANITIZER STREQUAL "thread") # see tonewell_test
        set_tests_properties(${name} PROPERTIES DISABLED TRUE)
    endif()
endfunction()
