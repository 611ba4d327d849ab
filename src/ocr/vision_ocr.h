// The `vision-ocr` subcommand.
#pragma once

#include <string>

namespace tallowbrook::VisionOCR {

// Given "--self-test", runs the geometry self-test (exit status 1 when a check fails).
// Otherwise recognises the text of the image at `path`. Main thread only.
void run(const std::string& path);

}  // namespace tallowbrook::VisionOCR
