# Shared text tools: UTF-8 decoding and line reading.
add_executable(text-unit-tests
  unit/text_line_reader_test.cpp
  unit/text_utf8_text_test.cpp
)
target_include_directories(text-unit-tests PRIVATE unit)
target_link_libraries(text-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(text-unit-tests TEST_PREFIX "text." DISCOVERY_TIMEOUT 60)
