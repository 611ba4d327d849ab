# speak: unit tests of the command over a scripted engine and of the espeak-ng engine's pure
# parts; CLI tests against espeak-ng and a private PulseAudio server.
add_executable(speech-unit-tests
  unit/speak_command_test.cpp
  unit/speak_espeak_test.cpp
  unit/speak_marks_test.cpp
  unit/speak_mono16_test.cpp
  unit/speak_options_test.cpp
)
target_include_directories(speech-unit-tests PRIVATE unit)
target_link_libraries(speech-unit-tests PRIVATE
  tallowbrook-speech-impl tallowbrook-core tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(speech-unit-tests TEST_PREFIX "speech." DISCOVERY_TIMEOUT 60)

add_executable(speech-cli-tests cli/speak_cli_test.cpp)
target_link_libraries(speech-cli-tests PRIVATE cli-test-support tallowbrook-warnings
                      GTest::gtest_main)
target_compile_definitions(speech-cli-tests PRIVATE
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>"
  SHARED_TOOLS_DIR="${PROJECT_SOURCE_DIR}/../shared/tools")
add_dependencies(speech-cli-tests tallowbrook-helper tallowbrook-speech)
gtest_discover_tests(speech-cli-tests TEST_PREFIX "speech.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300 RESOURCE_LOCK speech-sound-server)

# Fuzzer (scripts/fuzz): the text a speak run reads and its UTF-16 offsets.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(speak_text SOURCES fuzz/speak_text_fuzz.cpp LIBRARIES tallowbrook-core)
