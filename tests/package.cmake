# The protocol reference and the Debian package.
#
# package.protocol runs every example of docs/protocol.md with the built helper and compares
# the output with the text written there (tests/cli/protocol_examples.py describes the format).
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(TALLOWBROOK_SOUND_SERVER "${PROJECT_SOURCE_DIR}/../shared/tools/test-sound-server")
# Subcommands every copy of the reference shows an example of.
set(PROTOCOL_REQUIRED "capabilities,vision-ocr,pdf-page,pdf-text,answer,record,speak,rtf-text,mcp-bridge,text-pdf")
# Inputs of examples that are made by the build: answer's tiny scripted model (tests/answer.cmake).
set(PROTOCOL_TEST_MODEL ${ANSWER_MODEL_DIR}/reply.gguf)

add_test(NAME package.protocol
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/cli/protocol_examples.py
    --helper $<TARGET_FILE:tallowbrook-helper>
    --doc ${PROJECT_SOURCE_DIR}/docs/protocol.md
    --examples ${PROJECT_SOURCE_DIR}/examples
    --sound-server ${TALLOWBROOK_SOUND_SERVER}
    --env TALLOWBROOK_TEST_MODEL=${PROTOCOL_TEST_MODEL}
    --require ${PROTOCOL_REQUIRED})
set_tests_properties(package.protocol PROPERTIES TIMEOUT 300)

# The README's one example per subcommand, checked the same way.
add_test(NAME package.readme
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/cli/protocol_examples.py
    --helper $<TARGET_FILE:tallowbrook-helper>
    --doc ${PROJECT_SOURCE_DIR}/README.md
    --examples ${PROJECT_SOURCE_DIR}/examples
    --sound-server ${TALLOWBROOK_SOUND_SERVER}
    --env TALLOWBROOK_TEST_MODEL=${PROTOCOL_TEST_MODEL}
    --require ${PROTOCOL_REQUIRED})
set_tests_properties(package.readme PROPERTIES TIMEOUT 300)

# package.deb builds the Debian package from this build tree, runs lintian on it, extracts it
# into a scratch root and runs the installed reference's examples with the installed helper
# (tests/cli/package_test.sh). A sanitizer build is not something to package: there the
# examples run through package.protocol only.
if(NOT TALLOWBROOK_SANITIZE)
  add_test(NAME package.deb
    COMMAND ${CMAKE_COMMAND} -E env CPACK=${CMAKE_CPACK_COMMAND} CMAKE=${CMAKE_COMMAND}
      bash ${CMAKE_CURRENT_SOURCE_DIR}/cli/package_test.sh ${CMAKE_BINARY_DIR}
      ${CMAKE_CURRENT_SOURCE_DIR}/cli/protocol_examples.py ${TALLOWBROOK_SOUND_SERVER}
      ${PROTOCOL_REQUIRED} TALLOWBROOK_TEST_MODEL=${PROTOCOL_TEST_MODEL})
  set_tests_properties(package.deb PROPERTIES TIMEOUT 600 LABELS package)
endif()
