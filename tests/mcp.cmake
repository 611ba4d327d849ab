# mcp-bridge: unit tests of its logic, the libcurl client against a loopback server, the CLI
# against a loopback server, and the official MCP SDK on both sides of the bridge.

# The loopback HTTP server standing in for the application.
add_library(mcp-test-server STATIC cli/mcp_http_server.cpp)
target_include_directories(mcp-test-server PUBLIC cli)
target_link_libraries(mcp-test-server PRIVATE tallowbrook-warnings)

add_executable(mcp-unit-tests
  unit/mcp_classify_test.cpp
  unit/mcp_curl_http_client_test.cpp
  unit/mcp_endpoint_test.cpp
  unit/mcp_relay_test.cpp
  unit/mcp_reply_test.cpp
  unit/mcp_token_test.cpp
)
target_include_directories(mcp-unit-tests PRIVATE unit)
target_link_libraries(mcp-unit-tests PRIVATE
  tallowbrook-core tallowbrook-mcp-impl mcp-test-server tallowbrook-warnings GTest::gtest_main)
gtest_discover_tests(mcp-unit-tests TEST_PREFIX "mcp." DISCOVERY_TIMEOUT 60)

add_executable(mcp-cli-tests cli/mcp_bridge_cli_test.cpp)
target_link_libraries(mcp-cli-tests PRIVATE
  cli-test-support mcp-test-server tallowbrook-warnings GTest::gtest_main)
target_compile_definitions(mcp-cli-tests PRIVATE HELPER_PATH="$<TARGET_FILE:tallowbrook-helper>")
add_dependencies(mcp-cli-tests tallowbrook-helper tallowbrook-mcp)
# One test waits out the bridge's 120-second no-progress limit.
gtest_discover_tests(mcp-cli-tests TEST_PREFIX "mcp." DISCOVERY_TIMEOUT 60
                     PROPERTIES TIMEOUT 400)

# The official MCP TypeScript SDK: its Client spawns the bridge over stdio, its server answers
# over streamable HTTP. Packages come from tests/mcp/package-lock.json (scripts/install-deps).
find_program(NODE_EXECUTABLE NAMES node nodejs REQUIRED)
add_test(NAME mcp.sdk.bridge
  COMMAND ${NODE_EXECUTABLE} --test ${CMAKE_CURRENT_SOURCE_DIR}/mcp/bridge_sdk.test.mjs)
set_tests_properties(mcp.sdk.bridge PROPERTIES
  ENVIRONMENT "TALLOWBROOK_HELPER=$<TARGET_FILE:tallowbrook-helper>"
  TIMEOUT 300)

# Fuzzers (scripts/fuzz): the per-line logic and the endpoint argument.
include(${CMAKE_CURRENT_LIST_DIR}/fuzz/fuzz.cmake)
tallowbrook_fuzz_target(mcp_messages SOURCES fuzz/mcp_messages_fuzz.cpp LIBRARIES tallowbrook-core)
tallowbrook_fuzz_target(mcp_endpoint SOURCES fuzz/mcp_endpoint_fuzz.cpp LIBRARIES tallowbrook-core)

# bench/mcp-bridge's timer: the bridge beside a direct libcurl client.
find_package(CURL REQUIRED)
add_executable(bench-mcp-bridge EXCLUDE_FROM_ALL ${PROJECT_SOURCE_DIR}/bench/mcp_bridge_bench.cpp)
target_link_libraries(bench-mcp-bridge PRIVATE CURL::libcurl tallowbrook-warnings)
