# The audio core: WAV writer, level meter, mixer and format converter, alone and under
# concurrent use; the writer's files read back by Python's wave module, sndfile-info and ffmpeg.
add_executable(audio-unit-tests
  unit/audio_concurrency_test.cpp
  unit/audio_equal_rate_test.cpp
  unit/audio_meter_test.cpp
  unit/audio_mixer_test.cpp
  unit/audio_rate_follower_test.cpp
  unit/audio_sample_queue_test.cpp
  unit/audio_soxr_conversion_test.cpp
  unit/audio_to_target_test.cpp
  unit/audio_wav_writer_test.cpp
)
target_include_directories(audio-unit-tests PRIVATE unit)
target_link_libraries(audio-unit-tests PRIVATE
  tallowbrook-audio-soxr tallowbrook-core tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(audio-unit-tests TEST_PREFIX "audio." DISCOVERY_TIMEOUT 60)

add_executable(audio-reader-tests unit/audio_wav_readers_test.cpp)
target_link_libraries(audio-reader-tests PRIVATE
  tallowbrook-core cli-test-support tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(audio-reader-tests PRIVATE
  WAV_CORPUS_DIR="${PROJECT_SOURCE_DIR}/../shared/corpora/wav")
gtest_discover_tests(audio-reader-tests TEST_PREFIX "audio." DISCOVERY_TIMEOUT 60)
