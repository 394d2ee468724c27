# Plants one fault at a time into a copy of the German file and checks that the catalogue generator refuses it,
# names the problem and writes no table.
#   cmake -DGENERATOR=<orvistelle_catalogue_gen> -DTEMPLATE=<pot> "-DLANGUAGE_FILES=<po;...>" -DWORK_DIR=<scratch>
#         -P CatalogueFromPoRejects.cmake          (German last in LANGUAGE_FILES)

include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/tests/ScriptSupport.cmake)

list(POP_BACK LANGUAGE_FILES german)
file(READ "${german}" original)
file(MAKE_DIRECTORY "${WORK_DIR}")

# fault: text to replace | its replacement | what the generator must say
set(faults
  "msgstr \"Version %@\"|msgstr \"Version\"|shell.version: placeholders"
  "(Fehler %d)|(Fehler %@)|shell.registerFailed: placeholders"
  "msgstr \"Bereit\"|msgstr \"\"|shell.stateReady has no translation"
  "msgctxt \"nav.camera\"|msgctxt \"nav.kamera\"|nav.camera is missing"
  "msgid \"Ready\"|msgid \"Done\"|shell.stateReady translates \"Done\""
  "msgctxt \"shell.stateMissing\"|#, fuzzy\nmsgctxt \"shell.stateMissing\"|shell.stateMissing is marked fuzzy"
  "msgctxt \"shell.stateReady\"\nmsgid|msgid|\"Ready\" has no key (msgctxt)"
  "\"Language: de|\"X-Language: de|names no Language"
  "msgstr \"Effekt-Einrichtung\"|msgstr \"\"|desktop.GenericName has no translation")

foreach(fault IN LISTS faults)
  string(REPLACE "|" ";" parts "${fault}")
  list(GET parts 0 from)
  list(GET parts 1 to)
  list(GET parts 2 message)
  string(FIND "${original}" "${from}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the German file no longer holds '${from}'; pick another text for this fault")
  endif()
  string(REPLACE "${from}" "${to}" planted "${original}")
  file(WRITE "${WORK_DIR}/de.po" "${planted}")
  file(REMOVE "${WORK_DIR}/Catalogue.inc" "${WORK_DIR}/desktop-texts")
  execute_process(COMMAND "${GENERATOR}" "${WORK_DIR}/Catalogue.inc" "${WORK_DIR}/desktop-texts" "${TEMPLATE}"
                          ${LANGUAGE_FILES} "${WORK_DIR}/de.po"
                  RESULT_VARIABLE result ERROR_VARIABLE output OUTPUT_VARIABLE ignored)
  if(result EQUAL 0 OR EXISTS "${WORK_DIR}/Catalogue.inc" OR EXISTS "${WORK_DIR}/desktop-texts")
    message(FATAL_ERROR "accepted a file where '${from}' became '${to}'")
  endif()
  expect("${message}")
endforeach()
