# What `cmake --install` puts where, and the packages that CPack makes of it.
#
# Every prefix works. Desktops read the autostart entry from /etc only: configure with
# -DCMAKE_INSTALL_SYSCONFDIR=/etc to put it there.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
include(TonewellPackage)

install(TARGETS TonewellDetection tonewell-monitor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# For programs that consume the spectrum: the interface, and how CMake finds it.
set(tonewell_shared ${CMAKE_INSTALL_DATADIR}/tonewell)
set(tonewell_doc ${CMAKE_INSTALL_DATADIR}/doc/tonewell-detection)
install(FILES remote/commoninterface.rep DESTINATION ${tonewell_shared})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/TonewellConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
configure_file(packaging/TonewellConfig.cmake.in TonewellConfig.cmake @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TonewellConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/TonewellConfigVersion.cmake
    DESTINATION ${tonewell_shared}/cmake)
install(DIRECTORY examples DESTINATION ${tonewell_doc} PATTERN __pycache__ EXCLUDE)
install(FILES docs/protocol.md DESTINATION ${tonewell_doc})

set(CPACK_PACKAGE_NAME ${TONEWELL_PACKAGE_NAME})
set(CPACK_PACKAGE_VENDOR TonewellDetection)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${TONEWELL_PACKAGE_SUMMARY})
set(CPACK_PACKAGE_DESCRIPTION_FILE ${PROJECT_SOURCE_DIR}/packaging/description.txt)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

if(WIN32)
    include(TonewellInstallWindows)
else()
    include(TonewellInstallLinux)
endif()
include(CPack)
