# answer: unit tests of the request, the delta rule (ICU), the model location and the runner
# client (stand-in runners); CLI tests of the built helper with the real runner (node-llama-cpp)
# on tiny generated models.

# The generated models (tests/fixtures/tiny_gguf.py, standard-library Python).
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(ANSWER_MODEL_DIR ${CMAKE_CURRENT_BINARY_DIR}/fixtures/answer)
set(ANSWER_MODELS)
foreach(variant reply loop silent truncated)
  add_custom_command(
    OUTPUT ${ANSWER_MODEL_DIR}/${variant}.gguf
    COMMAND ${CMAKE_COMMAND} -E make_directory ${ANSWER_MODEL_DIR}
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/fixtures/tiny_gguf.py
            ${ANSWER_MODEL_DIR}/${variant}.gguf ${variant}
    DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/fixtures/tiny_gguf.py
    VERBATIM)
  list(APPEND ANSWER_MODELS ${ANSWER_MODEL_DIR}/${variant}.gguf)
endforeach()
add_custom_target(answer-models ALL DEPENDS ${ANSWER_MODELS})

add_executable(answer-unit-tests
  unit/answer_delta_test.cpp
  unit/answer_model_location_test.cpp
  unit/answer_model_runner_test.cpp
  unit/answer_request_test.cpp
)
target_include_directories(answer-unit-tests PRIVATE unit)
target_link_libraries(answer-unit-tests PRIVATE
  tallowbrook-answer-impl tallowbrook-core tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(answer-unit-tests TEST_PREFIX "answer." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 120)

add_executable(answer-cli-tests cli/answer_cli_test.cpp)
target_link_libraries(answer-cli-tests PRIVATE cli-test-support tallowbrook-warnings
                      GTest::gtest_main)
target_compile_definitions(answer-cli-tests PRIVATE
  ANSWER_MODEL_DIR="${ANSWER_MODEL_DIR}")
add_dependencies(answer-cli-tests tallowbrook-helper tallowbrook-answer model-runner-link
                 answer-models)
# Each answer starts Node and llama.cpp (a few seconds on a busy machine); one test waits out
# the runner's 30-second no-progress limit.
gtest_discover_tests(answer-cli-tests TEST_PREFIX "answer.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300 LABELS slow)

# Fuzzer (scripts/fuzz): the request decoder and the delta rule.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(answer_stream SOURCES fuzz/answer_stream_fuzz.cpp
                        LIBRARIES tallowbrook-answer-impl tallowbrook-core)
