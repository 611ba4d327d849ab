# rtf-text: unit tests of the reader, CLI tests on the real corpus, the agreement with
# LibreOffice's text of the corpus, and the reader's fuzzer.
set(RTF_CORPUS_DIR "${PROJECT_SOURCE_DIR}/../shared/corpora/rtf")

# Word-sequence agreement with LibreOffice on the corpus (also printed by bench/rtf).
add_executable(rtf-similarity ${PROJECT_SOURCE_DIR}/bench/rtf_similarity.cpp)
target_link_libraries(rtf-similarity PRIVATE tallowbrook-core tallowbrook-warnings)
add_test(NAME rtf.similarity.libreoffice COMMAND rtf-similarity ${RTF_CORPUS_DIR})

# Unit tests: the tokenizer, code pages, reader, line splitting and the command's logic.
add_executable(rtf-unit-tests
  unit/rtf_code_pages_test.cpp
  unit/rtf_lines_test.cpp
  unit/rtf_reader_test.cpp
  unit/rtf_rich_text_test.cpp
  unit/rtf_tokenizer_test.cpp
)
target_include_directories(rtf-unit-tests PRIVATE unit)
target_link_libraries(rtf-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(rtf-unit-tests TEST_PREFIX "rtf." DISCOVERY_TIMEOUT 60)

# The reader's fuzzer (scripts/fuzz).
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(rtf_reader SOURCES fuzz/rtf_reader_fuzz.cpp LIBRARIES tallowbrook-core)

# CLI tests: the built helper on the corpus, on missing and foreign files, on cut-off files.
add_executable(rtf-cli-tests cli/rtf_text_cli_test.cpp)
target_link_libraries(rtf-cli-tests PRIVATE cli-test-support tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(rtf-cli-tests PRIVATE RTF_CORPUS_DIR="${RTF_CORPUS_DIR}")
add_dependencies(rtf-cli-tests tallowbrook-helper)
gtest_discover_tests(rtf-cli-tests TEST_PREFIX "rtf.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300)
