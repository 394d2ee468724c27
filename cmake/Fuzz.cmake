# libFuzzer targets, built in the clang "asan" tree next to the tests. Each runs in the test suite for ORVISTELLE_FUZZ_SECONDS,
# starting from the seed corpus in <module>/fuzz/corpus/<name>/; new inputs it finds go to a scratch folder, not the repository.
set(ORVISTELLE_FUZZ_SECONDS 10 CACHE STRING "How long each fuzz target runs inside ctest")

function(orvistelle_add_fuzzer name source)
  if(NOT ORVISTELLE_FUZZ)
    return()
  endif()
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE ${ARGN})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set(corpus ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/corpus/${name})
  set(scratch ${CMAKE_CURRENT_BINARY_DIR}/${name}-found)
  add_test(NAME ${name}
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=1
            sh -c "mkdir -p '${scratch}' && exec \"$0\" -max_total_time=${ORVISTELLE_FUZZ_SECONDS} -rss_limit_mb=2048 -print_final_stats=1 '${scratch}' '${corpus}'"
            $<TARGET_FILE:${name}>)
  set_tests_properties(${name} PROPERTIES LABELS fuzz TIMEOUT 600)
endfunction()
