# Configures throwaway release builds: one missing an endpoint or the update key must be refused, one naming all
# seven accepted.
# Run with -DSOURCE_DIR=... -DWORK_DIR=...
set(all
  -DORVISTELLE_AUTH_URL=https://auth.example.test -DORVISTELLE_API_URL=https://api.example.test
  -DORVISTELLE_DOWNLOAD_URL=https://download.example.test -DORVISTELLE_SITE_URL=https://www.example.test
  -DORVISTELLE_DOCS_URL=https://docs.example.test -DORVISTELLE_PUBLIC_API_KEY=key
  -DORVISTELLE_UPDATE_PUBLIC_KEY=11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=)
set(common -G Ninja -DORVISTELLE_RELEASE=ON -DORVISTELLE_BUILD_TESTS=OFF -DORVISTELLE_BUILD_APP=OFF)

function(configure name expect_ok)
  file(REMOVE_RECURSE ${WORK_DIR}/${name})
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/${name} ${common} ${ARGN}
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(expect_ok AND NOT result EQUAL 0)
    message(FATAL_ERROR "${name}: a release with every endpoint was refused:\n${err}")
  elseif(NOT expect_ok AND result EQUAL 0)
    message(FATAL_ERROR "${name}: a release was configured without every endpoint")
  endif()
  set(last_error "${err}" PARENT_SCOPE)
endfunction()

list(REMOVE_ITEM all -DORVISTELLE_DOCS_URL=https://docs.example.test)
set(without_site ${all})
list(REMOVE_ITEM without_site -DORVISTELLE_SITE_URL=https://www.example.test)
list(FILTER without_site EXCLUDE REGEX "UPDATE_PUBLIC_KEY")
configure(missing FALSE ${without_site})
if(NOT last_error MATCHES "ORVISTELLE_SITE_URL" OR NOT last_error MATCHES "ORVISTELLE_DOCS_URL"
   OR NOT last_error MATCHES "ORVISTELLE_UPDATE_PUBLIC_KEY")
  message(FATAL_ERROR "the refusal does not name every missing endpoint:\n${last_error}")
endif()
configure(short_key FALSE ${all} -DORVISTELLE_DOCS_URL=https://docs.example.test -DORVISTELLE_UPDATE_PUBLIC_KEY=key)
configure(trailing_slash FALSE ${all} -DORVISTELLE_DOCS_URL=https://docs.example.test/)
configure(complete TRUE ${all} -DORVISTELLE_DOCS_URL=https://docs.example.test)
file(STRINGS ${WORK_DIR}/complete/generated/orvistelle/BuildConfig.h docs REGEX "kDocsURL")
if(NOT docs MATCHES "https://docs.example.test\"")
  message(FATAL_ERROR "the given endpoint did not reach the build: ${docs}")
endif()
# A release, like a project that adds this one as a subdirectory, leaves the development backend out unless asked.
if(EXISTS ${WORK_DIR}/complete/tools/devbackend)
  message(FATAL_ERROR "a release build configured the development backend")
endif()
