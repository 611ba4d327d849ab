// The platform's text recogniser, behind an interface so the command's logic is tested with a
// fake and the real recogniser lives in a module loaded only for vision-ocr.
#pragma once

#include <string>
#include <vector>

#include "ocr/observation.h"
#include "ocr/settings.h"

namespace tallowbrook::VisionOCR {

struct ImageSize {
  int width = 0;
  int height = 0;
};

// One image at a time, on one thread (the main thread).
class TextRecognizer {
 public:
  virtual ~TextRecognizer() = default;

  // Reads and decodes the first image of the file at `path`. Returns false when the file is
  // missing or not an image this recogniser can decode.
  virtual bool open(const std::string& path, ImageSize* size) = 0;

  // The text of the opened image. Throws Error with a sentence for the user when it cannot be
  // recognised.
  virtual std::vector<DocumentObservation> recognize(const Settings& settings) = 0;
};

// The entry a recogniser module exports: a new recogniser owned by the caller.
using CreateTextRecognizer = TextRecognizer* (*)();
inline constexpr const char* kCreateTextRecognizerSymbol = "tallowbrook_create_text_recognizer";

}  // namespace tallowbrook::VisionOCR
