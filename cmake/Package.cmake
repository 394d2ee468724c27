# `cpack` in a build tree makes the Debian package of the application: the "app" component alone, under /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};${PROJECT_NAME};app;/")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_NAME orvistelle-fcp-beauty)
set(CPACK_PACKAGE_VENDOR Tarnwix)
set(CPACK_PACKAGE_CONTACT "Orvistelle support <support@orvistelle.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "companion app of the Orvistelle beauty effect")
set(CPACK_PACKAGE_DESCRIPTION "A status window and the orvistelle-fcp command, which check and set up what
the Orvistelle beauty effect needs, and keep the account session and the update
information fresh.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Opened only when the first request is made, so the shared-library scan cannot see them.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libcurl4")
# The registration's fallback tool, the browser hand-off and the desktop's proxy settings.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "desktop-file-utils, xdg-utils, libproxy1v5")
set(CPACK_STRIP_FILES ON)

# What Debian asks of every package beside its files: the copyright notice and a changelog, compressed reproducibly.
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_PACKAGE_NAME})
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${CMAKE_BINARY_DIR}/package/changelog "${CPACK_PACKAGE_NAME} (${PROJECT_VERSION}) stable; urgency=medium\n\n"
     "  * Release ${PROJECT_VERSION}.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${changelog_date}\n")
execute_process(COMMAND gzip -9nc ${CMAKE_BINARY_DIR}/package/changelog
                OUTPUT_FILE ${CMAKE_BINARY_DIR}/package/changelog.gz)
install(FILES ${CMAKE_BINARY_DIR}/package/changelog.gz ${CMAKE_CURRENT_LIST_DIR}/copyright
        DESTINATION ${doc_dir} COMPONENT app)

include(CPack)
