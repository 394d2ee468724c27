# Writes, at build time, the menu entry's template and the software centre's description with the texts of every
# language, from the desktop entry lines the catalogue generator took out of the translation files.
#   cmake -DTEXTS=<desktop-texts> -DENTRY_IN=... -DENTRY=... -DMETAINFO_IN=... -DMETAINFO=... and the @ variables of
#         the two templates -P DesktopFiles.cmake
# The entry has no Exec and no bundle key: whoever installs it, the package or set-up, adds both for its own bundle.

file(READ "${TEXTS}" ORVISTELLE_DESKTOP_TEXTS)
string(STRIP "${ORVISTELLE_DESKTOP_TEXTS}" ORVISTELLE_DESKTOP_TEXTS)

# The entry's Name and Comment are the software centre's name and summary. Line by line without CMake lists: the
# keywords hold semicolons.
function(xml_escape text out)
  string(REPLACE "&" "&amp;" text "${text}")
  string(REPLACE "<" "&lt;" text "${text}")
  string(REPLACE ">" "&gt;" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

set(rest "${ORVISTELLE_DESKTOP_TEXTS}\n")
set(ORVISTELLE_METAINFO_TEXTS "")
string(FIND "${rest}" "\n" end)
while(end GREATER -1)
  string(SUBSTRING "${rest}" 0 ${end} line)
  math(EXPR end "${end} + 1")
  string(SUBSTRING "${rest}" ${end} -1 rest)
  if(line MATCHES "^(Name|Comment)(\\[([^]]*)\\])?=(.*)$")
    set(element name)
    if(CMAKE_MATCH_1 STREQUAL "Comment")
      set(element summary)
    endif()
    set(language "")
    if(CMAKE_MATCH_3)
      set(language " xml:lang=\"${CMAKE_MATCH_3}\"")
    endif()
    xml_escape("${CMAKE_MATCH_4}" text)
    string(APPEND ORVISTELLE_METAINFO_TEXTS "  <${element}${language}>${text}</${element}>\n")
  endif()
  string(FIND "${rest}" "\n" end)
endwhile()
string(STRIP "${ORVISTELLE_METAINFO_TEXTS}" ORVISTELLE_METAINFO_TEXTS)
set(ORVISTELLE_METAINFO_TEXTS "  ${ORVISTELLE_METAINFO_TEXTS}")

configure_file("${ENTRY_IN}" "${ENTRY}" @ONLY)
configure_file("${METAINFO_IN}" "${METAINFO}" @ONLY)
