# A ZIP and a per-user installer for Windows, made on Windows: `cpack` in the build folder, with
# NSIS installed. UNPROVEN: neither has been made nor installed on Windows yet.
#
# The installer needs no administrator: programs go below the user's own AppData, and a value of the
# user's Run key starts the service with the session.

# Qt's own tool copies the Qt libraries, plugins and the compiler's run-time next to the programs.
find_program(WINDEPLOYQT_EXECUTABLE windeployqt HINTS "${TONEWELL_QT_TOOLS}" NO_CMAKE_FIND_ROOT_PATH)
if(WINDEPLOYQT_EXECUTABLE)
    install(CODE "
        execute_process(
            COMMAND \"${WINDEPLOYQT_EXECUTABLE}\" --release --compiler-runtime
                TonewellDetection.exe tonewell-monitor.exe
            WORKING_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\"
            COMMAND_ERROR_IS_FATAL ANY)")
else()
    install(CODE "message(FATAL_ERROR \"windeployqt, which brings the Qt libraries, was not found\")")
endif()
install(FILES LICENSE DESTINATION .)
# In place of the run-time libraries that came with Qt: programs of a newer MinGW cannot use those.
if(MINGW)
    get_filename_component(compiler_bin "${CMAKE_CXX_COMPILER}" DIRECTORY)
    foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
        if(EXISTS "${compiler_bin}/${dll}")
            install(FILES "${compiler_bin}/${dll}" DESTINATION ${CMAKE_INSTALL_BINDIR})
        endif()
    endforeach()
endif()

set(CPACK_GENERATOR ZIP NSIS)
set(CPACK_PACKAGE_INSTALL_DIRECTORY TonewellDetection)
set(CPACK_PACKAGE_EXECUTABLES tonewell-monitor "Sound Spectrum Monitor")
set(CPACK_NSIS_DISPLAY_NAME TonewellDetection)
set(CPACK_NSIS_PACKAGE_NAME TonewellDetection)
set(CPACK_NSIS_INSTALL_ROOT [[$LOCALAPPDATA\Programs]])
# Comes after, and so overrides, the template's own request for an administrator.
set(CPACK_NSIS_DEFINES "RequestExecutionLevel user")
set(CPACK_NSIS_MUI_ICON ${PROJECT_SOURCE_DIR}/platform/windows/tonewell.ico)
set(CPACK_NSIS_MUI_UNIICON ${PROJECT_SOURCE_DIR}/platform/windows/tonewell.ico)
set(CPACK_NSIS_INSTALLED_ICON_NAME [[bin\TonewellDetection.exe]])
set(CPACK_NSIS_ENABLE_UNINSTALL_BEFORE_INSTALL ON)
set(CPACK_NSIS_EXTRA_INSTALL_COMMANDS [[
  WriteRegStr HKCU "Software\Microsoft\Windows\CurrentVersion\Run" "TonewellDetection" '"$INSTDIR\bin\TonewellDetection.exe"'
  Exec '"$INSTDIR\bin\TonewellDetection.exe"'
]])
# A program that runs cannot be deleted.
set(CPACK_NSIS_EXTRA_UNINSTALL_COMMANDS [[
  DeleteRegValue HKCU "Software\Microsoft\Windows\CurrentVersion\Run" "TonewellDetection"
  nsExec::Exec 'taskkill /F /IM TonewellDetection.exe'
  Sleep 500
]])
