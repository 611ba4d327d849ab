# Installed layout and the Debian package.
#
#   <prefix>/bin/tallowbrook-helper
#   <prefix>/lib/tallowbrook-helper/tallowbrook-*.so      modules (tallowbrook_module)
#   <prefix>/lib/tallowbrook-helper/llama/                llama.cpp's libraries (src/answer/llama)
#   <prefix>/share/man/man1/tallowbrook-helper.1.gz
#   <prefix>/share/doc/tallowbrook-helper/                protocol.md, README.md, copyright,
#                                                         changelog.Debian.gz, examples/
#
# The helper finds its modules relative to its own executable (src/base/module.h), so the
# prefix can be anything and can be moved as a whole. The package is made with CPack's DEB
# generator from this build tree: `cpack --config <build>/CPackConfig.cmake` (scripts/package).

set(TALLOWBROOK_DOC_DIR share/doc/tallowbrook-helper)

# Debian wants the manual page and the changelog compressed with gzip -9 and no time stamp.
set(TALLOWBROOK_PACKAGE_FILES ${CMAKE_BINARY_DIR}/package-files)
find_program(GZIP gzip REQUIRED)
function(tallowbrook_gzip source output)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${TALLOWBROOK_PACKAGE_FILES}
    COMMAND ${GZIP} -9n -c ${source} > ${output}
    DEPENDS ${source} VERBATIM)
endfunction()
tallowbrook_gzip(${PROJECT_SOURCE_DIR}/docs/tallowbrook-helper.1
                 ${TALLOWBROOK_PACKAGE_FILES}/tallowbrook-helper.1.gz)
tallowbrook_gzip(${PROJECT_SOURCE_DIR}/cmake/packaging/changelog
                 ${TALLOWBROOK_PACKAGE_FILES}/changelog.Debian.gz)
add_custom_target(tallowbrook-package-files ALL DEPENDS
  ${TALLOWBROOK_PACKAGE_FILES}/tallowbrook-helper.1.gz
  ${TALLOWBROOK_PACKAGE_FILES}/changelog.Debian.gz)

install(FILES ${TALLOWBROOK_PACKAGE_FILES}/tallowbrook-helper.1.gz DESTINATION share/man/man1)
install(FILES
  ${PROJECT_SOURCE_DIR}/docs/protocol.md
  ${PROJECT_SOURCE_DIR}/README.md
  ${PROJECT_SOURCE_DIR}/cmake/packaging/copyright
  ${TALLOWBROOK_PACKAGE_FILES}/changelog.Debian.gz
  DESTINATION ${TALLOWBROOK_DOC_DIR})
# The bundled examples, so that an installed helper can show every job on its own (the
# examples in protocol.md run in a copy of this folder).
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${TALLOWBROOK_DOC_DIR}/examples)
# lintian's overrides, each with its reason.
install(FILES ${PROJECT_SOURCE_DIR}/cmake/packaging/lintian-overrides
        DESTINATION share/lintian/overrides RENAME tallowbrook-helper)

# The Debian package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tallowbrook-helper)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Tallowbrook")
set(CPACK_PACKAGE_CONTACT "Tallowbrook developers <helper@tallowbrook.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "document, speech, recording and model jobs for the Tallowbrook archive")
# CPack puts the summary first; this is the extended description under it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "The Tallowbrook archiving application starts this helper once per job and reads
the JSON lines it prints: text recognition in images (Tesseract), PDF pages as
images and as positioned text (Poppler), RTF files as text, text typeset into
PDF (Pango and cairo), speech (espeak-ng), audio recording (PulseAudio or
PipeWire), answers from a local language model, and a bridge between desktop AI
clients and the application's Model Context Protocol endpoint.")
# Library dependencies come from dpkg-shlibdeps on the executable, the modules and llama.cpp's
# libraries (cmake/packaging/package-config.cmake.in, run by cpack); the data and
# programs the helper uses at run time are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
configure_file(${PROJECT_SOURCE_DIR}/cmake/packaging/package-config.cmake.in
               ${CMAKE_BINARY_DIR}/CPackProjectConfig.cmake @ONLY)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_BINARY_DIR}/CPackProjectConfig.cmake)
set(TALLOWBROOK_RUNTIME_DEPENDS
  # vision-ocr: English recognition data and orientation detection.
  tesseract-ocr-eng tesseract-ocr-osd
  # text-pdf: the serif and monospaced fonts its layout asks for.
  fonts-dejavu-core)
string(REPLACE ";" ", " CPACK_DEBIAN_PACKAGE_DEPENDS "${TALLOWBROOK_RUNTIME_DEPENDS}")
# German recognition data; CJK and emoji fonts for text-pdf; a sound server for record and
# speak preview; the Vulkan loader through which capabilities finds a GPU.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "tesseract-ocr-deu, fonts-noto-cjk, fonts-noto-core, fonts-noto-color-emoji, pipewire-pulse | pulseaudio, libvulkan1")
include(CPack)
