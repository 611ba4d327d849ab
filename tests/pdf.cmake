# pdf-page and pdf-text: unit tests of the commands' rules over a fake PDF library, and CLI tests
# of the built helper on PDFs made by the test run and on the shared corpus.
set(PDF_CORPORA_DIR "${PROJECT_SOURCE_DIR}/../shared/corpora")

add_executable(pdf-unit-tests
  unit/pdf_arguments_test.cpp
  unit/pdf_lines_test.cpp
  unit/pdf_page_test.cpp
  unit/pdf_text_test.cpp
)
target_include_directories(pdf-unit-tests PRIVATE unit)
target_link_libraries(pdf-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(pdf-unit-tests TEST_PREFIX "pdf." DISCOVERY_TIMEOUT 60)

# The PDF module's PNG writer, checked by decoding what it writes.
find_package(PkgConfig REQUIRED)
pkg_check_modules(PDF_TEST_PNG REQUIRED IMPORTED_TARGET spng)
add_executable(pdf-module-tests unit/pdf_png_writer_test.cpp)
target_link_libraries(pdf-module-tests PRIVATE tallowbrook-pdf-impl tallowbrook-core
                      PkgConfig::PDF_TEST_PNG tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(pdf-module-tests TEST_PREFIX "pdf." DISCOVERY_TIMEOUT 60)

# PDFs with known content, made once per build tree.
set(PDF_FIXTURES_DIR ${CMAKE_CURRENT_BINARY_DIR}/pdf-fixtures)
add_custom_command(
  OUTPUT ${PDF_FIXTURES_DIR}/stamp
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/fixtures/pdf_fixtures.py ${PDF_FIXTURES_DIR}
  COMMAND ${CMAKE_COMMAND} -E touch ${PDF_FIXTURES_DIR}/stamp
  DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/fixtures/pdf_fixtures.py
  COMMENT "Writing PDF test files")
add_custom_target(pdf-fixtures DEPENDS ${PDF_FIXTURES_DIR}/stamp)

# CLI tests: the built helper on those PDFs and on the corpus; images decoded with libspng.
add_executable(pdf-cli-tests
  cli/pdf_corpus_cli_test.cpp
  cli/pdf_page_cli_test.cpp
  cli/pdf_test_support.cpp
  cli/pdf_text_cli_test.cpp
)
target_link_libraries(pdf-cli-tests PRIVATE cli-test-support PkgConfig::PDF_TEST_PNG
                      tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(pdf-cli-tests PRIVATE
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>"
  PDF_FIXTURES_DIR="${PDF_FIXTURES_DIR}"
  PDF_CORPORA_DIR="${PDF_CORPORA_DIR}")
add_dependencies(pdf-cli-tests pdf-fixtures tallowbrook-helper tallowbrook-pdf)
gtest_discover_tests(pdf-cli-tests TEST_PREFIX "pdf.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 600)

# The line building's fuzzer (scripts/fuzz).
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(pdf_lines SOURCES fuzz/pdf_lines_fuzz.cpp LIBRARIES tallowbrook-core)
