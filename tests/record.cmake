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
# The tests that judge the mix's timing (the glitch tests and the two-tone mix) run alone, so
# that a neighbour holding both cores does not make the delivery threads late.
set(RECORD_TIMING_TESTS "RecordGlitches.*:RecordCommand.BothInputsAreMixed")
set(RECORD_CLI_FILTER "-${RECORD_TIMING_TESTS}")
if(TALLOWBROOK_SANITIZE MATCHES "thread")
  set(RECORD_TIMING_TESTS "RecordCommand.BothInputsAreMixed")
  target_compile_definitions(record-cli-tests PRIVATE
    RECORD_TSAN_OPTIONS="suppressions=${CMAKE_CURRENT_SOURCE_DIR}/record-tsan.supp")
endif()
foreach(server pulseaudio pipewire)
  if(server STREQUAL "pipewire")
    # The silent-server tests need no sound server of ours: once is enough.
    set(prefix "record.cli.pipewire.")
    set(filter "${RECORD_CLI_FILTER}:SilentSoundServer.*")
    set(environment ENVIRONMENT "TALLOWBROOK_TEST_SOUND_SERVER=pipewire")
  else()
    set(prefix "record.cli.")
    set(filter "${RECORD_CLI_FILTER}")
    set(environment ${RECORD_SANITIZER_ENVIRONMENT})
  endif()
  gtest_discover_tests(record-cli-tests TEST_PREFIX "${prefix}" DISCOVERY_TIMEOUT 60
    TEST_FILTER "${filter}"
    PROPERTIES TIMEOUT 120 ${environment})
  gtest_discover_tests(record-cli-tests TEST_PREFIX "${prefix}" DISCOVERY_TIMEOUT 60
    TEST_FILTER "${RECORD_TIMING_TESTS}"
    PROPERTIES TIMEOUT 120 RUN_SERIAL TRUE ${environment})
endforeach()


# Fuzzer (scripts/fuzz): the control lines of record start, read and parsed.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(record_control SOURCES fuzz/record_control_fuzz.cpp
                        LIBRARIES tallowbrook-core)
