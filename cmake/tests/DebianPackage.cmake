# Builds the Debian package of this build tree, installs it into an empty dpkg root, checks what a desktop needs
# and that the installed support command finds its bundle, then purges it and checks that nothing is left.
# Run with -DBUILD_DIR=... -DWORK_DIR=...
include(${CMAKE_CURRENT_LIST_DIR}/ScriptSupport.cmake)

set(id net.tarnwix.orvistelle.fcp)
set(root ${WORK_DIR}/root)
set(bundle "${root}/usr/lib/orvistelle/Orvistelle FCP Beauty.app")
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${root}/var/lib/dpkg/info ${root}/var/lib/dpkg/updates ${WORK_DIR}/home)
file(TOUCH ${root}/var/lib/dpkg/status)

run(cpack -G DEB -B ${WORK_DIR}/out --config ${BUILD_DIR}/CPackConfig.cmake)
file(GLOB deb ${WORK_DIR}/out/*.deb)
# libcurl is opened on the first request, so the package itself must name it: no binary in it links it.
run(dpkg-deb --field ${deb} Depends)
expect("libcurl4")
# The empty root has none of the libraries the package depends on.
run(dpkg --root=${root} --force-depends -i ${deb})

foreach(path usr/bin/orvistelle-fcp usr/share/applications/${id}.desktop usr/share/metainfo/${id}.metainfo.xml
             usr/share/icons/hicolor/16x16/apps/${id}.png usr/share/icons/hicolor/512x512/apps/${id}.png)
  if(NOT EXISTS ${root}/${path})
    message(FATAL_ERROR "the package did not install ${path}")
  endif()
endforeach()
file(REAL_PATH ${root}/usr/bin/orvistelle-fcp-beauty launcher)
if(NOT launcher STREQUAL "${bundle}/Contents/MacOS/Orvistelle FCP Beauty")
  message(FATAL_ERROR "the launcher leads to ${launcher}")
endif()
run(readelf --dynamic ${root}/usr/bin/orvistelle-fcp)
string(FIND "${output}" "libcurl" linked)
if(NOT linked EQUAL -1)
  message(FATAL_ERROR "the installed program loads libcurl as it starts:\n${output}")
endif()
run(desktop-file-validate ${root}/usr/share/applications/${id}.desktop)
run(appstreamcli validate --no-net ${root}/usr/share/metainfo/${id}.metainfo.xml)

run(${CMAKE_COMMAND} -E env HOME=${WORK_DIR}/home XDG_STATE_HOME=${WORK_DIR}/state XDG_DATA_HOME=${WORK_DIR}/data
    ${root}/usr/bin/orvistelle-fcp diagnose)
expect("Bundle: ${bundle}\n")
expect("Effect service: Ready")

run(dpkg --root=${root} --purge orvistelle-fcp-beauty)
file(GLOB_RECURSE left LIST_DIRECTORIES false RELATIVE ${root} ${root}/*)
list(FILTER left EXCLUDE REGEX "^var/lib/dpkg/")
if(left)
  message(FATAL_ERROR "left behind after purging: ${left}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
