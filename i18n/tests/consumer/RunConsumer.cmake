# Builds and runs the outside consumers the way another project would use this one, then checks what they print.
#   cmake -DMODE=find_package|add_subdirectory -DBUILD_DIR=<this build> -DORVISTELLE_SOURCE_DIR=<checkout>
#         -DWORK_DIR=<scratch> -DGENERATOR=<gen> -DCXX_COMPILER=<c++> -DBUILD_TYPE=<type> -DSANITIZE=<list>
#         [-DLAUNCHER=<ccache>] -P RunConsumer.cmake
# find_package installs BUILD_DIR into a scratch prefix first. The consumer gets the same -fsanitize flags as this
# build, or the instrumented libraries would not link.

include(${CMAKE_CURRENT_LIST_DIR}/../../../cmake/tests/ScriptSupport.cmake)

file(REMOVE_RECURSE "${WORK_DIR}")
sanitizer_flags(flags)
set(configure -S "${CMAKE_CURRENT_LIST_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
  "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}" "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
  "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}"
  # Built as a subdirectory, this project is not the top level and does not pick a compiler cache on its own.
  "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}")

if(MODE STREQUAL "find_package")
  run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix")
  run(${CMAKE_COMMAND} ${configure} "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix")
elseif(MODE STREQUAL "add_subdirectory")
  run(${CMAKE_COMMAND} ${configure} "-DORVISTELLE_SOURCE_DIR=${ORVISTELLE_SOURCE_DIR}")
else()
  message(FATAL_ERROR "MODE must be find_package or add_subdirectory, not '${MODE}'")
endif()
run(${CMAKE_COMMAND} --build "${WORK_DIR}/build" --target i18n_consumer)

run(${CMAKE_COMMAND} -E env LANGUAGE=ja_JP.UTF-8:en "${WORK_DIR}/build/i18n_consumer")
foreach(expected "language ja" "準備完了" "（エラー -10）" "/ja/sign-in?from=vask&flowId=flow"
    "status=未ログイン forced=0")
  expect("${expected}")
endforeach()
