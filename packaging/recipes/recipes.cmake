# cmake -DTONEWELL_RECIPES=<folder> -DTONEWELL_BUILD_PACKAGES=<Debian's names, with semicolons>
#       -DTONEWELL_ARCHIVE_SHA256=<of the source archive> -P recipes.cmake
#
# Writes debian/, tonewell-detection.spec and PKGBUILD into the folder. What they share with the
# packages of CPack is taken from where those have it; scripts/recipes brings the rest.
cmake_minimum_required(VERSION 3.21)
set(root ${CMAKE_CURRENT_LIST_DIR}/../..)
include(${root}/cmake/TonewellPackage.cmake)

file(STRINGS ${root}/CMakeLists.txt line REGEX "^project\\(TonewellDetection VERSION ")
string(REGEX REPLACE ".* VERSION ([0-9.]+) .*" "\\1" PROJECT_VERSION "${line}")

# The texts.
string(SUBSTRING "${TONEWELL_PACKAGE_SUMMARY}" 0 1 first)
string(TOUPPER "${first}" first)
string(SUBSTRING "${TONEWELL_PACKAGE_SUMMARY}" 1 -1 rest)
set(rpm_summary "${first}${rest}")
file(READ ${root}/packaging/description.txt plain_description)
string(STRIP "${plain_description}" plain_description)
string(REPLACE "\n" "\n " debian_description " ${plain_description}")
string(REPLACE "\n.\n" "\n\n" plain_description "${plain_description}")
set(CPACK_DEBIAN_PACKAGE_RELEASE ${TONEWELL_PACKAGE_RELEASE})
file(STRINGS ${root}/packaging/debian/changelog.in line REGEX "^ -- ")
string(REGEX REPLACE ".*>  (...), (..) (...) (....) .*" "\\1 \\3 \\2 \\4" rpm_day "${line}")

# The packages that building needs.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/packages.txt rows REGEX "^[^#]")
foreach(package IN LISTS TONEWELL_BUILD_PACKAGES)
    set(names)
    foreach(row IN LISTS rows)
        string(REGEX REPLACE " +" ";" columns "${row}")
        list(GET columns 0 name)
        if(name STREQUAL package)
            set(names ${columns})
        endif()
    endforeach()
    if(NOT names)
        message(FATAL_ERROR "packaging/recipes/packages.txt does not know ${package}")
    endif()
    list(GET names 1 fedora)
    list(GET names 2 arch)
    if(NOT package STREQUAL "g++") # which every Debian package is built with
        list(APPEND debian_build_depends " ${package},")
    endif()
    list(APPEND rpm_build_requires "BuildRequires:  ${fedora}")
    if(package MATCHES "-dev$") # which Arch does not keep apart from what runs
        list(APPEND arch_depends ${arch})
    else()
        list(APPEND arch_make_depends ${arch})
    endif()
endforeach()
list(REMOVE_DUPLICATES rpm_build_requires)
list(REMOVE_DUPLICATES arch_depends)
list(REMOVE_DUPLICATES arch_make_depends)
list(REMOVE_ITEM arch_make_depends ${arch_depends})
list(JOIN debian_build_depends "\n" debian_build_depends)
list(JOIN rpm_build_requires "\n" rpm_build_requires)
list(JOIN arch_depends " " arch_depends)
list(JOIN arch_make_depends " " arch_make_depends)

# The recipes.
foreach(name debian/control tonewell-detection.spec PKGBUILD)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.in ${TONEWELL_RECIPES}/${name} @ONLY)
endforeach()
file(COPY ${CMAKE_CURRENT_LIST_DIR}/debian/rules ${CMAKE_CURRENT_LIST_DIR}/debian/source
    ${root}/packaging/debian/copyright DESTINATION ${TONEWELL_RECIPES}/debian)
configure_file(${root}/packaging/debian/changelog.in ${TONEWELL_RECIPES}/debian/changelog @ONLY)
foreach(name postinst prerm postrm)
    file(READ ${root}/packaging/debian/${name} text)
    file(WRITE ${TONEWELL_RECIPES}/debian/${name} "${text}\n#DEBHELPER#\n")
endforeach()
