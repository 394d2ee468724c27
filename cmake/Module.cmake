# Every library of the project is Orvistelle::<name> (target orvistelle_<name>), a static one unless SHARED is given,
# and sees the public headers in include/orvistelle/. Unless INTERNAL is given, `cmake --install` exports it for
# find_package(Orvistelle); the window's libraries are internal, the app is their only user.
function(orvistelle_add_module name)
  cmake_parse_arguments(PARSE_ARGV 1 module "SHARED;INTERNAL" "" "")
  if(module_SHARED)
    add_library(orvistelle_${name} SHARED ${module_UNPARSED_ARGUMENTS})
  else()
    add_library(orvistelle_${name} STATIC ${module_UNPARSED_ARGUMENTS})
  endif()
  set_target_properties(orvistelle_${name} PROPERTIES EXPORT_NAME ${name})
  add_library(Orvistelle::${name} ALIAS orvistelle_${name})
  target_include_directories(orvistelle_${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                                       $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  if(NOT module_INTERNAL)
    install(TARGETS orvistelle_${name} EXPORT OrvistelleTargets)
  endif()
endfunction()
