# Installs this build into a scratch prefix, builds the outside C consumer against it with find_package, and
# checks that it runs on the installed shared library and sees the state of a fresh process; then does the same
# with the flags from the installed pkg-config file.
#   cmake -DBUILD_DIR=<this build> -DWORK_DIR=<scratch> -DGENERATOR=<gen> -DC_COMPILER=<cc> -DBUILD_TYPE=<type>
#         -DSANITIZE=<list> -DSONAME_MAJOR=<n> -P RunConsumer.cmake
# The consumer gets the same -fsanitize flags as this build, or the instrumented library would not load.

include(${CMAKE_CURRENT_LIST_DIR}/../../../cmake/tests/ScriptSupport.cmake)

file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
sanitizer_flags(flags)
set(link_flags "${flags}")
# clang links a C program with the C half of its static UBSan runtime only; the library's C++ checks need the rest,
# and that part needs the C++ runtime.
if(SANITIZE AND C_COMPILER MATCHES "clang")
  string(APPEND link_flags " -fsanitize-link-c++-runtime -lstdc++")
endif()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
run(${CMAKE_COMMAND} -S "${CMAKE_CURRENT_LIST_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
  "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}" "-DCMAKE_C_COMPILER=${C_COMPILER}" "-DCMAKE_PREFIX_PATH=${prefix}"
  "-DCMAKE_C_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${link_flags}")
run(${CMAKE_COMMAND} --build "${WORK_DIR}/build")

# The shared library exports the service interface and nothing else.
file(GLOB library "${prefix}/lib*/liborvistelle-service.so.${SONAME_MAJOR}")
run(nm -D --defined-only "${library}")
string(REGEX MATCHALL "[^ \n]+\n" symbols "${output}")
list(FILTER symbols EXCLUDE REGEX "^FcpService")
list(LENGTH symbols others)
string(REGEX MATCHALL " FcpService[A-Za-z]+" exported "${output}")
list(LENGTH exported count)
if(NOT others EQUAL 0 OR NOT count EQUAL 20)
  message(FATAL_ERROR "expected exactly the 20 FcpService functions to be exported:\n${output}")
endif()

# The program must find the installed library through its SONAME, not the one in the build tree.
set(program "${WORK_DIR}/build/service_consumer")
run(readelf -d "${program}")
expect("Shared library: [liborvistelle-service.so.${SONAME_MAJOR}]")
run(ldd "${program}")
expect("liborvistelle-service.so.${SONAME_MAJOR} => ${prefix}/")
run("${program}")
expect("version=${VERSION}\nheaders=${VERSION}\nstatus=Not signed in\nerror=0\nbusy=0\nemail=\n")
expect("forced=0\nsoft=0\nlatest=\nnotes=\n")
set(seen "${output}")

# The same program built without CMake, with the flags from the installed pkg-config file.
file(GLOB pcdir "${prefix}/lib*/pkgconfig")
run(${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${pcdir}" pkg-config --cflags --libs orvistelle-service)
separate_arguments(pcflags UNIX_COMMAND "${output}")
separate_arguments(link_flags UNIX_COMMAND "${link_flags}")
run(${C_COMPILER} ${link_flags} "${CMAKE_CURRENT_LIST_DIR}/../hosts/host.c" ${pcflags} "-Wl,-rpath,${pcdir}/.."
  -o "${WORK_DIR}/pc_consumer")
run("${WORK_DIR}/pc_consumer")
if(NOT output STREQUAL seen)
  message(FATAL_ERROR "built with pkg-config, the consumer printed:\n${output}")
endif()
