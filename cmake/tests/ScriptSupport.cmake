# Helpers for the CMake scripts that tests run with `cmake -P`.

# Runs a command; fails the script with its output unless it succeeds. Leaves stdout and stderr in `output`.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()

# Fails the script unless the last command's output contains the text.
function(expect text)
  string(FIND "${output}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "expected '${text}' in:\n${output}")
  endif()
endfunction()

# -fsanitize flags matching the build under test, without which its instrumented libraries would not link.
function(sanitizer_flags out_var)
  set(flags "")
  if(SANITIZE)
    set(flags "-fsanitize=${SANITIZE}")
  endif()
  set(${out_var} "${flags}" PARENT_SCOPE)
endfunction()
