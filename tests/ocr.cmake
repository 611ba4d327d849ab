# Text recognition tests.
add_executable(ocr-unit-tests
  unit/ocr_dark_regions_test.cpp
  unit/ocr_decode_budget_test.cpp
  unit/ocr_geometry_test.cpp
  unit/ocr_languages_test.cpp
  unit/ocr_line_direction_test.cpp
  unit/ocr_line_quad_test.cpp
  unit/ocr_lines_test.cpp
  unit/ocr_page_split_test.cpp
  unit/ocr_reading_shape_test.cpp
  unit/ocr_self_test_test.cpp
  unit/ocr_settings_test.cpp
  unit/vision_ocr_test.cpp
)
target_include_directories(ocr-unit-tests PRIVATE unit)
target_link_libraries(ocr-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(ocr-unit-tests TEST_PREFIX "ocr." DISCOVERY_TIMEOUT 60)

# The PNG reader of the recogniser module, against Leptonica's reader.
add_executable(ocr-png-tests unit/ocr_png_gray_reader_test.cpp)
target_link_libraries(ocr-png-tests PRIVATE tallowbrook-ocr-impl tallowbrook-core
                      tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(ocr-png-tests TEST_PREFIX "ocr." DISCOVERY_TIMEOUT 60)

# The PNG reader's fuzzer (scripts/fuzz).
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(png_reader SOURCES fuzz/png_reader_fuzz.cpp
                        LIBRARIES tallowbrook-ocr-impl tallowbrook-core)

# Images rendered from known text, made once per build tree.
set(OCR_IMAGES_DIR ${CMAKE_CURRENT_BINARY_DIR}/ocr-images)
add_custom_command(
  OUTPUT ${OCR_IMAGES_DIR}/stamp
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/fixtures/ocr_images.py ${OCR_IMAGES_DIR}
          ${PROJECT_SOURCE_DIR}/../shared/corpora/ocr/tesseract-test
  COMMAND ${CMAKE_COMMAND} -E touch ${OCR_IMAGES_DIR}/stamp
  DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/fixtures/ocr_images.py
  COMMENT "Rendering OCR test images")
add_custom_target(ocr-images DEPENDS ${OCR_IMAGES_DIR}/stamp)

add_executable(ocr-cli-tests cli/vision_ocr_cli_test.cpp)
target_link_libraries(ocr-cli-tests PRIVATE cli-test-support tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(ocr-cli-tests PRIVATE
  HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>"
  OCR_IMAGES_DIR="${OCR_IMAGES_DIR}"
  CORPORA_DIR="${PROJECT_SOURCE_DIR}/../shared/corpora")
add_dependencies(ocr-cli-tests ocr-images tallowbrook-ocr)
gtest_discover_tests(ocr-cli-tests TEST_PREFIX "ocr.cli." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 300)
