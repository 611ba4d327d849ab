# tallowbrook_module(NAME SOURCES files... LIBRARIES libs...)
#
# Code that needs a heavy library. Makes two targets from the same sources:
#   tallowbrook-NAME-impl  object library, linked by tests together with tallowbrook-core;
#   tallowbrook-NAME       the module lib/tallowbrook-helper/tallowbrook-NAME.so that the helper
#                          loads with loadModule("NAME") when a subcommand needs it.
# The module does not contain tallowbrook-core: it uses the executable's exported copy (one
# `fail`, one writer, one Out::lock per process).
function(tallowbrook_module name)
  cmake_parse_arguments(MOD "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(tallowbrook-${name}-impl OBJECT ${MOD_SOURCES})
  set_target_properties(tallowbrook-${name}-impl PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(tallowbrook-${name}-impl PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(tallowbrook-${name}-impl
    PUBLIC nlohmann_json::nlohmann_json ${MOD_LIBRARIES}
    PRIVATE tallowbrook-warnings)

  add_library(tallowbrook-${name} MODULE $<TARGET_OBJECTS:tallowbrook-${name}-impl>)
  target_link_libraries(tallowbrook-${name} PRIVATE ${MOD_LIBRARIES})
  set_target_properties(tallowbrook-${name} PROPERTIES
    PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${TALLOWBROOK_MODULE_DIR})
  add_dependencies(tallowbrook-helper tallowbrook-${name})
  install(TARGETS tallowbrook-${name} LIBRARY DESTINATION lib/tallowbrook-helper)
endfunction()
