# A module is a static library Orvistelle::<name> whose public headers live in include/orvistelle/ and which
# `cmake --install` exports for find_package(Orvistelle).
function(orvistelle_add_module name)
  add_library(orvistelle_${name} STATIC ${ARGN})
  set_target_properties(orvistelle_${name} PROPERTIES EXPORT_NAME ${name})
  add_library(Orvistelle::${name} ALIAS orvistelle_${name})
  target_include_directories(orvistelle_${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                                       $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  install(TARGETS orvistelle_${name} EXPORT OrvistelleTargets)
endfunction()
