# The desktop's side of an installed copy, and the Debian package.

# The files that name a program's place are written when the place is known.
install(CODE "
    set(TONEWELL_BINDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    foreach(name tonewell-detection.service tonewell-detection.desktop tonewell-monitor.desktop)
        configure_file(\"${PROJECT_SOURCE_DIR}/packaging/linux/\${name}.in\"
            \"${CMAKE_CURRENT_BINARY_DIR}/packaging/\${name}\" @ONLY)
    endforeach()")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/tonewell-detection.service
    DESTINATION lib/systemd/user)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/tonewell-detection.desktop
    DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/xdg/autostart)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/tonewell-monitor.desktop
    DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)

# For software centres. The newest release gives the day.
file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md TONEWELL_RELEASE_DATE REGEX "^## \\[[0-9]" LIMIT_COUNT 1)
string(REGEX REPLACE ".* - " "" TONEWELL_RELEASE_DATE "${TONEWELL_RELEASE_DATE}")
set(metainfo ${CMAKE_CURRENT_BINARY_DIR}/packaging/example.tonewell.monitor.metainfo.xml)
configure_file(packaging/linux/tonewell-monitor.metainfo.xml.in ${metainfo} @ONLY)
install(FILES ${metainfo} DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

set(icons ${CMAKE_INSTALL_DATADIR}/icons/hicolor)
install(FILES packaging/icons/tonewell.svg DESTINATION ${icons}/scalable/apps)
foreach(size 48 256)
    install(FILES packaging/icons/tonewell-${size}.png DESTINATION ${icons}/${size}x${size}/apps
        RENAME tonewell.png)
endforeach()

# Manual pages and the changelog are installed the way a distribution has them: compressed, with no
# time of day inside.
find_program(GZIP_EXECUTABLE gzip REQUIRED)
function(tonewell_install_compressed source name destination)
    set(output ${CMAKE_CURRENT_BINARY_DIR}/packaging/${name}.gz)
    get_filename_component(source ${source} ABSOLUTE BASE_DIR ${PROJECT_SOURCE_DIR})
    add_custom_command(OUTPUT ${output}
        COMMAND ${GZIP_EXECUTABLE} -9nc ${source} > ${output}
        DEPENDS ${source} VERBATIM)
    add_custom_target(compressed-${name} ALL DEPENDS ${output})
    install(FILES ${output} DESTINATION ${destination})
endfunction()
tonewell_install_compressed(packaging/man/TonewellDetection.1 TonewellDetection.1
    ${CMAKE_INSTALL_MANDIR}/man1)
tonewell_install_compressed(packaging/man/tonewell-monitor.1 tonewell-monitor.1
    ${CMAKE_INSTALL_MANDIR}/man1)
tonewell_install_compressed(packaging/man/tonewell-message.7 tonewell-message.7
    ${CMAKE_INSTALL_MANDIR}/man7)
tonewell_install_compressed(CHANGELOG.md changelog ${tonewell_doc})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${TONEWELL_PACKAGE_RELEASE})
configure_file(packaging/debian/changelog.in packaging/changelog.Debian @ONLY)
tonewell_install_compressed(${CMAKE_CURRENT_BINARY_DIR}/packaging/changelog.Debian changelog.Debian
    ${tonewell_doc})
install(FILES packaging/debian/copyright DESTINATION ${tonewell_doc})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The autostart entry's place is outside the prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${TONEWELL_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION ${TONEWELL_PACKAGE_SECTION})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio, ${TONEWELL_QT_RECOMMENDED}")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS ${TONEWELL_QT_SUGGESTED})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm)
