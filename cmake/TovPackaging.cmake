# What an installation holds besides the program and its libraries, and the Debian package made of it.

install(FILES packaging/com.velmor.TovScope.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES packaging/com.velmor.TovScope.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES resources/svg/TovScope.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
        RENAME com.velmor.TovScope.svg)
foreach(size 48 128 256)
    install(FILES packaging/icons/${size}.png DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps
            RENAME com.velmor.TovScope.png)
endforeach()
install(FILES packaging/60-tovscope.rules DESTINATION lib/udev/rules.d)
# Where F1 looks for it, with what it refers to.
install(FILES docs/guide.md docs/tcfg.md docs/formats.md DESTINATION ${CMAKE_INSTALL_DATADIR}/tovscope/docs)
install(DIRECTORY docs/images DESTINATION ${CMAKE_INSTALL_DATADIR}/tovscope/docs)

# A project that holds this one makes packages of its own.
if(NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tovscope)
set(CPACK_PACKAGE_VENDOR Velmor)
set(CPACK_PACKAGE_CONTACT "TovScope maintainers <maintainers@tovscope.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
    "Connects to an industrial camera that describes itself through GenICam and shows its live picture. Simulated cameras are included.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS fonts-dejavu-core)
# The dependencies are read from the binaries; the project's own libraries are found in the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/lib")
include(CPack)
