# Recording: the sources, the session, the control lines and the closed-lid detection with fakes
# for the sound server.
add_executable(record-unit-tests
  unit/record_box_test.cpp
  unit/record_control_line_test.cpp
  unit/record_mic_source_test.cpp
  unit/record_microphone_route_test.cpp
  unit/record_session_test.cpp
  unit/record_system_audio_test.cpp
)
target_include_directories(record-unit-tests PRIVATE unit)
target_link_libraries(record-unit-tests PRIVATE
  tallowbrook-record-impl tallowbrook-core tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(record-unit-tests TEST_PREFIX "record." DISCOVERY_TIMEOUT 60)

# The record command against a private sound server per test: PulseAudio
# (../shared/tools/test-sound-server), and again PipeWire (tools/test-pipewire-server).
add_executable(record-cli-tests
  cli/record_cli_test.cpp
  cli/record_fault_cli_test.cpp
  cli/record_glitch_cli_test.cpp
  cli/record_process.cpp
  cli/record_silent_server_cli_test.cpp
  cli/tone_glitches.cpp
)
target_link_libraries(record-cli-tests PRIVATE cli-test-support tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(record-cli-tests PRIVATE
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>"
  TEST_SOUND_SERVER="${PROJECT_SOURCE_DIR}/../shared/tools/test-sound-server"
  TEST_PIPEWIRE_SERVER="${CMAKE_CURRENT_SOURCE_DIR}/tools/test-pipewire-server")

# Counts the clicks of steady tones in a recording, for long runs by hand:
#   tone-glitches FILE.wav 1000 440
add_executable(tone-glitches EXCLUDE_FROM_ALL tools/tone_glitches_main.cpp cli/tone_glitches.cpp)
target_include_directories(tone-glitches PRIVATE cli)
target_link_libraries(tone-glitches PRIVATE tallowbrook-warnings)
add_dependencies(record-cli-tests tallowbrook-helper tallowbrook-record)
# Under ThreadSanitizer the locking inside libpulse is invisible; see record-tsan.supp.
set(RECORD_SANITIZER_ENVIRONMENT "")
if(TALLOWBROOK_SANITIZE MATCHES "thread")
  set(RECORD_SANITIZER_ENVIRONMENT ENVIRONMENT
      "TSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/record-tsan.supp")
endif()
# The glitch tests measure the audio's timing against the sound server's; ThreadSanitizer's
# slowdown makes the helper itself fall behind, so they run in the plain builds only (the other
# CLI tests drive the same threads under it).
# (One environment variable per test: the PipeWire tests' ThreadSanitizer options come from
# RECORD_TSAN_OPTIONS, which the tests put in their own environment.)
set(RECORD_CLI_FILTER "*")
if(TALLOWBROOK_SANITIZE MATCHES "thread")
  set(RECORD_CLI_FILTER "-RecordGlitches.*")
  target_compile_definitions(record-cli-tests PRIVATE
    RECORD_TSAN_OPTIONS="suppressions=${CMAKE_CURRENT_SOURCE_DIR}/record-tsan.supp")
endif()
gtest_discover_tests(record-cli-tests TEST_PREFIX "record.cli." DISCOVERY_TIMEOUT 60
  TEST_FILTER "${RECORD_CLI_FILTER}"
  PROPERTIES TIMEOUT 120 ${RECORD_SANITIZER_ENVIRONMENT})
gtest_discover_tests(record-cli-tests TEST_PREFIX "record.cli.pipewire." DISCOVERY_TIMEOUT 60
  TEST_FILTER "${RECORD_CLI_FILTER}"
  PROPERTIES TIMEOUT 120 ENVIRONMENT "TALLOWBROOK_TEST_SOUND_SERVER=pipewire")

# Fuzzer (scripts/fuzz): the control lines of record start, read and parsed.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(record_control SOURCES fuzz/record_control_fuzz.cpp
                        LIBRARIES tallowbrook-core)
