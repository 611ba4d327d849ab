# The top: dispatch, capabilities and the GPU probe; unit tests over fakes, CLI tests of the
# built helper with stand-in GPU libraries.
add_executable(cli-unit-tests
  unit/cli_capabilities_test.cpp
  unit/cli_dispatch_test.cpp
  unit/cli_gpu_choice_test.cpp
  unit/cli_gpu_presence_test.cpp
)
target_include_directories(cli-unit-tests PRIVATE unit)
target_link_libraries(cli-unit-tests PRIVATE tallowbrook-core tallowbrook-warnings
                      GTest::gtest_main)
gtest_discover_tests(cli-unit-tests TEST_PREFIX "cli." DISCOVERY_TIMEOUT 60)

add_executable(cli-tests
  cli/capabilities_cli_test.cpp
  cli/dispatch_cli_test.cpp
)
target_link_libraries(cli-tests PRIVATE cli-test-support tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(cli-tests PRIVATE FAKE_GPU_DIR="${FAKE_GPU_DIR}")
add_dependencies(cli-tests tallowbrook-helper fake-vulkan fake-nvml empty-vulkan)
gtest_discover_tests(cli-tests TEST_PREFIX "cli.cli." DISCOVERY_TIMEOUT 60)
