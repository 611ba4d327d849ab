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

add_executable(textpdf-unit-tests
  unit/text_pdf_pages_test.cpp
  unit/text_pdf_request_test.cpp
)
target_link_libraries(textpdf-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(textpdf-unit-tests TEST_PREFIX "textpdf." DISCOVERY_TIMEOUT 60
                     PROPERTIES ${TEXTPDF_SANITIZER_ENVIRONMENT})

add_executable(textpdf-cli-tests cli/text_pdf_cli_test.cpp)
target_link_libraries(textpdf-cli-tests PRIVATE cli-test-support tallowbrook-warnings
                      GTest::gtest_main)
target_compile_definitions(textpdf-cli-tests PRIVATE
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>")
add_dependencies(textpdf-cli-tests tallowbrook-helper tallowbrook-textpdf)
gtest_discover_tests(textpdf-cli-tests TEST_PREFIX "textpdf.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300 ${TEXTPDF_SANITIZER_ENVIRONMENT})

# The module's glyph runs and writer thread, compared byte for byte with Pango's own rendering.
add_executable(textpdf-module-tests unit/textpdf_glyph_runs_test.cpp)
target_link_libraries(textpdf-module-tests PRIVATE tallowbrook-textpdf-impl tallowbrook-core
                      tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(textpdf-module-tests TEST_PREFIX "textpdf." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 120 ${TEXTPDF_SANITIZER_ENVIRONMENT})

# Fuzzer (scripts/fuzz): the request reader and its styled text.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(text_pdf_request SOURCES fuzz/text_pdf_request_fuzz.cpp
                        LIBRARIES tallowbrook-core)
