# Every test program parses gtest, cpp-httplib and nlohmann/json through the shared test support: parsed once into
# a precompiled header that all of them reuse, a cold build compiles the tests in a fraction of the time.
# A reusing target must be compiled exactly like the one that made the header (clang refuses the header otherwise),
# so only the programs that link the test support, and no Qt program, take part; the product's own sources never do,
# so clang-tidy sees them as written.
set(_orvistelle_pch_headers
  <gtest/gtest.h> <httplib.h> <nlohmann/json.hpp>
  <algorithm> <atomic> <chrono> <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <regex>
  <set> <sstream> <string> <string_view> <thread> <vector>)

function(_orvistelle_pch_candidates dir out)
  set(found "")
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    get_target_property(libraries ${target} LINK_LIBRARIES)
    if(type STREQUAL "EXECUTABLE" AND "orvistelle_testing" IN_LIST libraries
       AND NOT libraries MATCHES "Qt6::")
      list(APPEND found ${target})
    endif()
  endforeach()
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(subdir IN LISTS subdirs)
    _orvistelle_pch_candidates(${subdir} more)
    list(APPEND found ${more})
  endforeach()
  set(${out} ${found} PARENT_SCOPE)
endfunction()

function(orvistelle_precompile_test_headers)
  if(NOT TARGET orvistelle_testing)
    return()
  endif()
  set(main ${CMAKE_BINARY_DIR}/test-pch/main.cc)
  file(CONFIGURE OUTPUT ${main} CONTENT "int main() { return 0; }\n")
  add_executable(orvistelle_test_pch ${main})
  target_link_libraries(orvistelle_test_pch PRIVATE orvistelle_testing nlohmann_json::nlohmann_json)
  target_precompile_headers(orvistelle_test_pch PRIVATE ${_orvistelle_pch_headers})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Without a time stamp inside, the header's bytes depend only on its input and ccache can reuse it.
    target_compile_options(orvistelle_test_pch PRIVATE "$<$<COMPILE_LANGUAGE:CXX>:SHELL:-Xclang -fno-pch-timestamp>")
  endif()

  _orvistelle_pch_candidates(${PROJECT_SOURCE_DIR} targets)
  list(REMOVE_ITEM targets orvistelle_test_pch)
  foreach(target IN LISTS targets)
    target_precompile_headers(${target} REUSE_FROM orvistelle_test_pch)
  endforeach()
endfunction()
