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
