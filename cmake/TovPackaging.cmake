# What an installation contains besides the program and its libraries, and the Debian package made of it.

find_program(TOV_GZIP gzip)
mark_as_advanced(TOV_GZIP)

# tov_install_packed(file name folder): installs a file as name.gz, which is how man pages and changelogs are kept; as it
# is where there is no gzip. The packed file has no date, so that one source gives one package.
function(tov_install_packed file name folder)
    if(NOT TOV_GZIP)
        install(FILES "${file}" DESTINATION "${folder}" RENAME "${name}")
        return()
    endif()
    set(packed "${PROJECT_BINARY_DIR}/packed/${name}.gz")
    add_custom_command(OUTPUT "${packed}" COMMAND "${TOV_GZIP}" -9 -n -c "${file}" > "${packed}"
                       DEPENDS "${file}" VERBATIM)
    add_custom_target(tov_packed_${name} ALL DEPENDS "${packed}")
    install(FILES "${packed}" DESTINATION "${folder}")
endfunction()

install(FILES packaging/com.velmor.TovScope.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES packaging/com.velmor.TovScope.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES resources/svg/TovScope.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
        RENAME com.velmor.TovScope.svg)
foreach(size 48 128 256)
    install(FILES packaging/icons/${size}.png DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps
            RENAME com.velmor.TovScope.png)
endforeach()
install(FILES packaging/60-tovscope.rules DESTINATION lib/udev/rules.d)
install(FILES packaging/completions/tovscope packaging/completions/tovfile packaging/completions/tovfakecam
              packaging/completions/tovdoctor
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
# Where F1 looks for it, with what it refers to.
install(FILES docs/guide.md docs/tcfg.md docs/formats.md DESTINATION ${CMAKE_INSTALL_DATADIR}/tovscope/docs)
install(DIRECTORY docs/images DESTINATION ${CMAKE_INSTALL_DATADIR}/tovscope/docs)
foreach(page tovscope.1 tovfile.1 tovfakecam.1 tovdoctor.1 tovscopelog.property.5)
    string(REGEX REPLACE ".*\\." "" section ${page})
    tov_install_packed("${PROJECT_SOURCE_DIR}/packaging/man/${page}" ${page} ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

# The log is configured where an administrator looks for settings. The program looks for the file beside itself alone,
# where a link leads to it. Below /usr that is /etc, and an absolute link; elsewhere both move with the prefix.
set(properties_folder "${CMAKE_INSTALL_SYSCONFDIR}/tovscope")
file(RELATIVE_PATH properties_link "${CMAKE_INSTALL_FULL_BINDIR}"
     "${CMAKE_INSTALL_PREFIX}/${properties_folder}/tovscopelog.property")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" OR IS_ABSOLUTE "${CMAKE_INSTALL_SYSCONFDIR}")
    set(properties_folder "${CMAKE_INSTALL_FULL_SYSCONFDIR}/tovscope")
    set(properties_link "${properties_folder}/tovscopelog.property")
endif()
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/packed")
file(CREATE_LINK "${properties_link}" "${PROJECT_BINARY_DIR}/packed/tovscopelog.property" SYMBOLIC)
install(FILES app/tovscopelog.property DESTINATION "${properties_folder}")
install(FILES "${PROJECT_BINARY_DIR}/packed/tovscopelog.property" DESTINATION ${CMAKE_INSTALL_BINDIR})

# The package is made in the preset of that name. A project that holds this one makes packages of its own, and elsewhere
# the paths above are not the package's.
if(NOT PROJECT_IS_TOP_LEVEL OR NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    return()
endif()

tov_install_packed("${PROJECT_SOURCE_DIR}/packaging/debian/changelog" changelog ${CMAKE_INSTALL_DATADIR}/doc/tovscope)
install(FILES packaging/debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tovscope)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tovscope)
set(CPACK_PACKAGE_VENDOR Velmor)
set(CPACK_PACKAGE_CONTACT "TovScope maintainers <maintainers@tovscope.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
"TovScope connects to an industrial camera that describes itself through
GenICam, shows its live picture, edits its parameters, records images and
series, measures the picture and logs the camera's packets. Simulated
cameras are included; tovfakecam serves them on the network, where they
misbehave on command. tovdoctor says what of a computer is unfit for its
cameras, and how to mend it.")
# The paths above are absolute: cpack puts them below its own folder, and does not move them to another prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS fonts-dejavu-core)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/conffiles"
    "${PROJECT_SOURCE_DIR}/packaging/debian/postinst")
# What postinst calls; those that the binaries need are added to them.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, libcap2-bin")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The dependencies are read from the binaries; the project's own libraries are found in the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/lib")
include(CPack)
