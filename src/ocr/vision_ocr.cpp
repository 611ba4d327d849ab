#include "ocr/vision_ocr.h"

#include <chrono>
#include <cstdlib>
#include <memory>

#include "base/args.h"
#include "base/error.h"
#include "base/fail.h"
#include "base/module.h"
#include "ocr/report.h"
#include "ocr/self_test.h"

namespace tallowbrook::VisionOCR {
namespace {

std::unique_ptr<TextRecognizer> loadRecognizer() {
  // Tesseract's OpenMP threads make a page several times slower on few cores; libgomp reads
  // the limit once, when the module pulls it in.
  setenv("OMP_THREAD_LIMIT", "1", /*overwrite=*/0);
  auto create = moduleEntry<CreateTextRecognizer>("ocr", kCreateTextRecognizerSymbol);
  return std::unique_ptr<TextRecognizer>(create());
}

}  // namespace

void recognizeAndReport(const std::string& path, const Settings& settings,
                        TextRecognizer& recognizer) {
  ImageSize size;
  if (!recognizer.open(path, &size)) fail("could not read an image at " + path);

  std::vector<DocumentObservation> observations;
  auto start = std::chrono::steady_clock::now();
  try {
    observations = recognizer.recognize(settings);
  } catch (const Error& error) {
    fail("Vision failed: " + error.message());
  }
  auto end = std::chrono::steady_clock::now();

  double elapsedMs = std::chrono::duration<double, std::milli>(end - start).count();
  writeJsonLine(report(settings, size, elapsedMs, collectLines(observations)));
}

void run(const std::string& path) {
  if (path == "--self-test") {
    Geometry::selfTest();
    return;
  }
  Settings settings = Settings::fromArguments(commandLine());
  auto recognizer = loadRecognizer();
  recognizeAndReport(path, settings, *recognizer);
}

}  // namespace tallowbrook::VisionOCR
