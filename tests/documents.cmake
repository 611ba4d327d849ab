# Document conversion (src/documents): rtf-text, pdf-page and pdf-text, text-pdf. Each command
# keeps its own test executables and test-name prefix ("rtf.", "pdf.", "textpdf.").

# rtf-text: unit tests of the reader, CLI tests on the real corpus, the agreement with
# LibreOffice's text of the corpus, and the reader's fuzzer.
set(RTF_CORPUS_DIR "${PROJECT_SOURCE_DIR}/../shared/corpora/rtf")

# Word-sequence agreement with LibreOffice on the corpus (also printed by bench/rtf).
add_executable(rtf-similarity ${PROJECT_SOURCE_DIR}/bench/rtf_similarity.cpp)
target_link_libraries(rtf-similarity PRIVATE tallowbrook-core tallowbrook-warnings)
add_test(NAME rtf.similarity.libreoffice COMMAND rtf-similarity ${RTF_CORPUS_DIR})

# Unit tests: the tokenizer, code pages, reader, line splitting and the command's logic.
add_executable(documents-rtf-unit-tests
  unit/rtf_code_pages_test.cpp
  unit/rtf_lines_test.cpp
  unit/rtf_reader_test.cpp
  unit/rtf_rich_text_test.cpp
  unit/rtf_tokenizer_test.cpp
)
target_include_directories(documents-rtf-unit-tests PRIVATE unit)
target_link_libraries(documents-rtf-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(documents-rtf-unit-tests TEST_PREFIX "rtf." DISCOVERY_TIMEOUT 60)

# The reader's fuzzer (scripts/fuzz).
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(rtf_reader SOURCES fuzz/rtf_reader_fuzz.cpp LIBRARIES tallowbrook-core)

# CLI tests: the built helper on the corpus, on missing and foreign files, on cut-off files.
add_executable(documents-rtf-cli-tests cli/rtf_text_cli_test.cpp)
target_link_libraries(documents-rtf-cli-tests PRIVATE cli-test-support tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(documents-rtf-cli-tests PRIVATE RTF_CORPUS_DIR="${RTF_CORPUS_DIR}")
add_dependencies(documents-rtf-cli-tests tallowbrook-helper)
gtest_discover_tests(documents-rtf-cli-tests TEST_PREFIX "rtf.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300)

# pdf-page and pdf-text: unit tests of the commands' rules over a fake PDF library, and CLI tests
# of the built helper on PDFs made by the test run and on the shared corpus.
set(PDF_CORPORA_DIR "${PROJECT_SOURCE_DIR}/../shared/corpora")

add_executable(documents-pdf-unit-tests
  unit/pdf_arguments_test.cpp
  unit/pdf_lines_test.cpp
  unit/pdf_page_test.cpp
  unit/pdf_text_test.cpp
)
target_include_directories(documents-pdf-unit-tests PRIVATE unit)
target_link_libraries(documents-pdf-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(documents-pdf-unit-tests TEST_PREFIX "pdf." DISCOVERY_TIMEOUT 60)

# The PDF module's PNG writer, checked by decoding what it writes.
find_package(PkgConfig REQUIRED)
pkg_check_modules(PDF_TEST_PNG REQUIRED IMPORTED_TARGET spng)
add_executable(documents-pdf-module-tests unit/pdf_png_writer_test.cpp)
target_link_libraries(documents-pdf-module-tests PRIVATE tallowbrook-pdf-impl tallowbrook-core
                      PkgConfig::PDF_TEST_PNG tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(documents-pdf-module-tests TEST_PREFIX "pdf." DISCOVERY_TIMEOUT 60)

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
add_executable(documents-pdf-cli-tests
  cli/pdf_corpus_cli_test.cpp
  cli/pdf_page_cli_test.cpp
  cli/pdf_test_support.cpp
  cli/pdf_text_cli_test.cpp
)
target_link_libraries(documents-pdf-cli-tests PRIVATE cli-test-support PkgConfig::PDF_TEST_PNG
                      tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(documents-pdf-cli-tests PRIVATE
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>"
  PDF_FIXTURES_DIR="${PDF_FIXTURES_DIR}"
  PDF_CORPORA_DIR="${PDF_CORPORA_DIR}")
add_dependencies(documents-pdf-cli-tests pdf-fixtures tallowbrook-helper tallowbrook-pdf)
gtest_discover_tests(documents-pdf-cli-tests TEST_PREFIX "pdf.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 600)

# The line building's fuzzer (scripts/fuzz).
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(pdf_lines SOURCES fuzz/pdf_lines_fuzz.cpp LIBRARIES tallowbrook-core)

# text-pdf: unit tests of the request, styled text and page loop over a fake typesetter, and CLI
# tests of the built helper checked with poppler-utils (pdftotext, pdfinfo, pdffonts).
# Under ThreadSanitizer the Pango stack's own locking is invisible; see textpdf-tsan.supp.
# Under AddressSanitizer, the font caches that fontconfig and Pango keep for the whole process
# and a loss inside cairo's font subsetting are not ours; see textpdf-lsan.supp.
set(TEXTPDF_SANITIZER_ENVIRONMENT "")
if(TALLOWBROOK_SANITIZE MATCHES "thread")
  set(TEXTPDF_SANITIZER_ENVIRONMENT ENVIRONMENT
      "TSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/textpdf-tsan.supp")
elseif(TALLOWBROOK_SANITIZE MATCHES "address")
  set(TEXTPDF_SANITIZER_ENVIRONMENT ENVIRONMENT
      # The libraries have no frame pointers: full stacks, so suppressions see who allocated.
      "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/textpdf-lsan.supp:print_suppressions=0:fast_unwind_on_malloc=0")
endif()

add_executable(documents-textpdf-unit-tests
  unit/textpdf_pages_test.cpp
  unit/textpdf_request_test.cpp
)
target_link_libraries(documents-textpdf-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(documents-textpdf-unit-tests TEST_PREFIX "textpdf." DISCOVERY_TIMEOUT 60
                     PROPERTIES ${TEXTPDF_SANITIZER_ENVIRONMENT})

add_executable(documents-textpdf-cli-tests cli/text_pdf_cli_test.cpp)
target_link_libraries(documents-textpdf-cli-tests PRIVATE cli-test-support tallowbrook-warnings
                      GTest::gtest_main)
target_compile_definitions(documents-textpdf-cli-tests PRIVATE
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>")
add_dependencies(documents-textpdf-cli-tests tallowbrook-helper tallowbrook-textpdf)
gtest_discover_tests(documents-textpdf-cli-tests TEST_PREFIX "textpdf.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300 ${TEXTPDF_SANITIZER_ENVIRONMENT})

# The module's glyph runs and writer thread, compared byte for byte with Pango's own rendering.
add_executable(documents-textpdf-module-tests unit/textpdf_glyph_runs_test.cpp)
target_link_libraries(documents-textpdf-module-tests PRIVATE tallowbrook-textpdf-impl tallowbrook-core
                      tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(documents-textpdf-module-tests TEST_PREFIX "textpdf." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 120 ${TEXTPDF_SANITIZER_ENVIRONMENT})

# Fuzzer (scripts/fuzz): the request reader and its styled text.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(text_pdf_request SOURCES fuzz/text_pdf_request_fuzz.cpp
                        LIBRARIES tallowbrook-core)
