# answer: unit tests of the request, the delta rule (ICU), the model location, the generating
# child (scripted bodies), the thread choice and llama.cpp's real tokenizers (vocabulary-only
# models of the release); CLI tests of the built helper with llama.cpp on tiny generated models.

# The generated models (tests/fixtures/tiny_gguf.py, standard-library Python).
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(ANSWER_MODEL_DIR ${CMAKE_CURRENT_BINARY_DIR}/fixtures/answer)
set(ANSWER_MODELS)
foreach(variant reply loop silent truncated abort jinja plain slow)
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
  unit/answer_child_frames_test.cpp
  unit/answer_generation_child_test.cpp
  unit/answer_model_location_test.cpp
  unit/answer_request_test.cpp
  unit/answer_stable_text_test.cpp
  unit/answer_thread_choice_test.cpp
  unit/answer_tokenizer_test.cpp
)
target_include_directories(answer-unit-tests PRIVATE unit)
target_link_libraries(answer-unit-tests PRIVATE
  tallowbrook-text-impl tallowbrook-llama-impl tallowbrook-core tallowbrook-warnings
  GTest::gtest_main)
target_compile_definitions(answer-unit-tests PRIVATE
  LLAMA_VOCAB_DIR="${TALLOWBROOK_LLAMA_DIR}/models"
  LLAMA_LIBRARY_DIR="${TALLOWBROOK_LLAMA_DIR}/lib")
gtest_discover_tests(answer-unit-tests TEST_PREFIX "answer." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 120)

# record_process: a helper run in the background, for the tests that act on a running answer.
add_executable(answer-cli-tests cli/answer_cli_test.cpp cli/record_process.cpp)
target_link_libraries(answer-cli-tests PRIVATE cli-test-support tallowbrook-warnings
                      GTest::gtest_main)
target_compile_definitions(answer-cli-tests PRIVATE
  ANSWER_MODEL_DIR="${ANSWER_MODEL_DIR}"
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>"
  TEST_SOUND_SERVER="${PROJECT_SOURCE_DIR}/../shared/tools/test-sound-server"
  TEST_PIPEWIRE_SERVER="${CMAKE_CURRENT_SOURCE_DIR}/tools/test-pipewire-server")
add_dependencies(answer-cli-tests tallowbrook-helper tallowbrook-text tallowbrook-llama
                 tallowbrook-llama-jinja answer-models)
gtest_discover_tests(answer-cli-tests TEST_PREFIX "answer.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300 LABELS slow)

# Fuzzers (scripts/fuzz): the request decoder and the delta rule; the child's frames and the
# settled text.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(answer_stream SOURCES fuzz/answer_stream_fuzz.cpp
                        LIBRARIES tallowbrook-text-impl tallowbrook-core)
tallowbrook_fuzz_target(child_stream SOURCES fuzz/child_stream_fuzz.cpp
                        LIBRARIES tallowbrook-text-impl tallowbrook-core)
