#include "ocr/vision_ocr.h"

#include "cli/fail.h"
#include "ocr/self_test.h"

namespace tallowbrook::VisionOCR {

void run(const std::string& path) {
  if (path == "--self-test") {
    Geometry::selfTest();
    return;
  }
  fail("vision-ocr: text recognition is not built yet");
}

}  // namespace tallowbrook::VisionOCR
