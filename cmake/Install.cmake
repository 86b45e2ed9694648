# Installation, desktop integration and the Debian package.
#
#   <prefix>/bin/pixmera-veltro, pixmera-veltro-cli
#   <prefix>/share/pixmera-veltro/sample-cells.tif, help/      read by the programs at run time
#   <prefix>/share/applications, metainfo, icons/hicolor, man/man1

include(GNUInstallDirs)

set(PV_APP_ID com.pixmera.Veltro)
set(PV_DATADIR ${CMAKE_INSTALL_DATADIR}/pixmera-veltro)
set(PV_ICON_SIZES 16 32 48 64 128 256)
set(PV_MAN_PAGES)

if(TARGET pixmera-veltro-cli)
    install(TARGETS pixmera-veltro-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    list(APPEND PV_MAN_PAGES pixmera-veltro-cli)
endif()

if(TARGET pixmera-veltro)
    install(TARGETS pixmera-veltro RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    list(APPEND PV_MAN_PAGES pixmera-veltro)
    # The window icon for a program that runs where the theme has none (its build folder).
    set(icon_files)
    foreach(size IN LISTS PV_ICON_SIZES)
        list(APPEND icon_files resources/icons/hicolor/${size}x${size}/apps/${PV_APP_ID}.png)
    endforeach()
    qt_add_resources(pixmera-veltro pv_icons PREFIX /icons BASE resources/icons/hicolor
                     FILES ${icon_files})
    install(FILES resources/desktop/${PV_APP_ID}.desktop
            DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
    install(FILES resources/desktop/${PV_APP_ID}.metainfo.xml
            DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
    install(DIRECTORY resources/icons/hicolor DESTINATION ${CMAKE_INSTALL_DATADIR}/icons)
endif()

install(FILES resources/sample-cells.tif DESTINATION ${PV_DATADIR})
if(EXISTS ${CMAKE_SOURCE_DIR}/resources/help)
    install(DIRECTORY resources/help/ DESTINATION ${PV_DATADIR}/help)
endif()

# Man pages go compressed, as Debian wants them; -n keeps the archive free of a time stamp.
foreach(page IN LISTS PV_MAN_PAGES)
    set(source ${CMAKE_SOURCE_DIR}/resources/man/${page}.1)
    set(compressed ${CMAKE_BINARY_DIR}/man/${page}.1.gz)
    add_custom_command(OUTPUT ${compressed}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
        COMMAND sh -c "gzip -9 -n -c \"$0\" > \"$1\"" ${source} ${compressed}
        DEPENDS ${source} VERBATIM)
    list(APPEND PV_MAN_FILES ${compressed})
    install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
if(PV_MAN_FILES)
    add_custom_target(pv_man_pages ALL DEPENDS ${PV_MAN_FILES})
endif()

if(PV_BUILD_TESTS)
    set(checks ${CMAKE_SOURCE_DIR}/tests/install)
    add_test(NAME install.layout
             COMMAND bash ${checks}/install_test.sh ${CMAKE_COMMAND} ${CMAKE_BINARY_DIR}
                     ${CMAKE_SOURCE_DIR} $<TARGET_EXISTS:pixmera-veltro>)
    add_test(NAME install.man_pages
             COMMAND bash ${checks}/man_test.sh ${CMAKE_SOURCE_DIR}/resources/man
                     $<TARGET_FILE:pixmera-veltro-cli>
                     $<$<TARGET_EXISTS:pixmera-veltro>:$<TARGET_FILE:pixmera-veltro>>)
    add_test(NAME install.desktop_file
             COMMAND bash ${checks}/validate.sh desktop-file-validate
                     ${CMAKE_SOURCE_DIR}/resources/desktop/${PV_APP_ID}.desktop)
    add_test(NAME install.metainfo
             COMMAND bash ${checks}/validate.sh appstreamcli validate --no-net
                     ${CMAKE_SOURCE_DIR}/resources/desktop/${PV_APP_ID}.metainfo.xml)
    set_tests_properties(install.layout install.man_pages install.desktop_file install.metainfo
                         PROPERTIES SKIP_RETURN_CODE 77 ENVIRONMENT QT_QPA_PLATFORM=offscreen)
endif()

# `cpack -G DEB` in a build folder (scripts/package does it all). The dependencies come from
# the libraries the programs link, through dpkg-shlibdeps.
set(PV_PACKAGE_MAINTAINER "Pixmera <${PV_FEEDBACK_ADDRESS}>"
    CACHE STRING "Maintainer named in the Debian package")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pixmera-veltro)
set(CPACK_PACKAGE_VENDOR Pixmera)
set(CPACK_PACKAGE_CONTACT ${PV_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${PV_WEB_SITE_URL})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS hicolor-icon-theme)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "colocalization analysis of two-colour fluorescence images
Pixmera Veltro tells how far two colour channels of a fluorescence microscopy
image occur in the same pixels: a census of the pixels, a 256 x 256 scatter
gram of the two intensities, and Pearson's correlation, the overlap
coefficients R, k1 and k2 and the colocalization coefficients m1/m2. A region
drawn on the scatter gram gives M1/M2 and can be painted into the image.
Results are saved as a tab-separated report and TIFF pictures.
.
This package holds the Qt desktop program pixmera-veltro and the command-line
program pixmera-veltro-cli for batches of images. It reads TIFF, PNG, JPEG
and BMP files.")
include(CPack)
