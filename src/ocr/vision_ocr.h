// The `vision-ocr` subcommand.
#pragma once

#include <string>

#include "ocr/settings.h"
#include "ocr/text_recognizer.h"

namespace tallowbrook::VisionOCR {

// Given "--self-test", runs the geometry self-test (exit status 1 when a check fails).
// Otherwise recognises the text of the image at `path` with the options of the whole command
// line, using the recogniser module, and prints the report. Main thread only.
void run(const std::string& path);

// Recognises the image at `path` with `recognizer` and prints the report; fails with
// "could not read an image at <path>" or "Vision failed: <reason>". Main thread only.
void recognizeAndReport(const std::string& path, const Settings& settings,
                        TextRecognizer& recognizer);

}  // namespace tallowbrook::VisionOCR
