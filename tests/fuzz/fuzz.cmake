# libFuzzer targets. Built only with -DTALLOWBROOK_FUZZ=ON and clang++, as scripts/fuzz does in
# build-fuzz/ (ASan+UBSan, every object instrumented for coverage).
#
# A subsystem's test fragment (tests/<subsystem>.cmake) declares its fuzzers with
#   include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
#   tallowbrook_fuzz_target(NAME SOURCES files... LIBRARIES libs...)
# Each becomes the executable fuzz/NAME in the build tree; seed inputs are read from
# tests/fuzz/corpus/NAME/ and a libFuzzer dictionary from tests/fuzz/NAME.dict when present.
include_guard(GLOBAL)

option(TALLOWBROOK_FUZZ "Build the libFuzzer targets (clang++ only; see scripts/fuzz)" OFF)

if(TALLOWBROOK_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "TALLOWBROOK_FUZZ needs clang++ (scripts/fuzz configures build-fuzz/)")
  endif()
  add_custom_target(fuzzers)
endif()

function(tallowbrook_fuzz_target name)
  if(NOT TALLOWBROOK_FUZZ)
    return()
  endif()
  cmake_parse_arguments(FUZZ "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(fuzz-${name} ${FUZZ_SOURCES})
  target_link_libraries(fuzz-${name} PRIVATE ${FUZZ_LIBRARIES} tallowbrook-warnings)
  target_compile_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
  target_link_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(fuzz-${name} PROPERTIES
    OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
  add_dependencies(fuzzers fuzz-${name})
endfunction()
