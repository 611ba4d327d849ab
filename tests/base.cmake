# The floor: JSON line output, fail, module loading, the error type.
add_executable(base-unit-tests
  unit/base_error_test.cpp
  unit/base_module_test.cpp
  unit/base_out_test.cpp
)
target_include_directories(base-unit-tests PRIVATE unit)
target_link_libraries(base-unit-tests PRIVATE
  "$<LINK_LIBRARY:WHOLE_ARCHIVE,tallowbrook-core>" tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(base-unit-tests PRIVATE
  TEST_MODULE_PATH="$<TARGET_FILE:test-module>")
add_dependencies(base-unit-tests test-module)
# The test module resolves the error type's identity from this executable, as modules do from
# the helper.
set_target_properties(base-unit-tests PROPERTIES ENABLE_EXPORTS ON)
gtest_discover_tests(base-unit-tests TEST_PREFIX "base." DISCOVERY_TIMEOUT 60)
