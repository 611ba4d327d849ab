# libFuzzer targets. Built only with -DTALLOWBROOK_FUZZ=ON and clang++, as scripts/fuzz does in
# build-fuzz/ (ASan+UBSan, every object instrumented for coverage).
#
# A subsystem's test fragment (tests/<subsystem>.cmake) declares its fuzzers with
#   include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
#   tallowbrook_fuzz_target(NAME SOURCES files... LIBRARIES libs...)
# Each becomes the executable fuzz/NAME in the build tree; seed inputs are read from
# tests/fuzz/corpus/NAME/ and a libFuzzer dictionary from tests/fuzz/NAME.dict when present.
#
# In every other build (gcc, the sanitizer builds) each target is built with a small replay
# driver instead (tests/fuzz/replay_main.cpp), and the CTest test fuzz.NAME.replay runs it over
# the kept corpus and over tests/fuzz/regressions/NAME/, the inputs that once failed: what the
# fuzzers found stays found.
include_guard(GLOBAL)

option(TALLOWBROOK_FUZZ "Build the libFuzzer targets (clang++ only; see scripts/fuzz)" OFF)

if(TALLOWBROOK_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "TALLOWBROOK_FUZZ needs clang++ (scripts/fuzz configures build-fuzz/)")
  endif()
  add_custom_target(fuzzers)
else()
  # Every replay driver, for builds that want only them (scripts/test's sanitizer runs).
  add_custom_target(fuzz-replays)
endif()

function(tallowbrook_fuzz_target name)
  cmake_parse_arguments(FUZZ "" "" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT TALLOWBROOK_FUZZ)
    if(NOT TALLOWBROOK_TESTS)
      return()
    endif()
    add_executable(fuzz-replay-${name} ${FUZZ_SOURCES} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/replay_main.cpp)
    target_link_libraries(fuzz-replay-${name} PRIVATE ${FUZZ_LIBRARIES} tallowbrook-warnings)
    set(fuzz_dir ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    add_test(NAME fuzz.${name}.replay
             COMMAND fuzz-replay-${name} ${fuzz_dir}/corpus/${name} ${fuzz_dir}/regressions/${name})
    set_tests_properties(fuzz.${name}.replay PROPERTIES TIMEOUT 300)
    add_dependencies(fuzz-replays fuzz-replay-${name})
    return()
  endif()
  add_executable(fuzz-${name} ${FUZZ_SOURCES})
  target_link_libraries(fuzz-${name} PRIVATE ${FUZZ_LIBRARIES} tallowbrook-warnings)
  target_compile_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
  target_link_options(fuzz-${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(fuzz-${name} PROPERTIES
    OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
  add_dependencies(fuzzers fuzz-${name})
endfunction()
