#include "documents/pdf_lines.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "documents/pdf_characters.h"

namespace tallowbrook::PdfText {

void LineBuilder::add(std::string_view character, const Pdf::Rect& box) {
  if (character == "\n" || character == "\r") {
    flush();
    return;
  }
  if (!(box.width > 0) || !(box.height > 0)) {
    text_ += character;
    return;
  }
  if (!box_) {
    box_ = box;
    text_ += character;
    return;
  }
  double distance = std::abs(box.midY() - box_->midY());
  double tolerance = 0.5 * std::min(box_->height, box.height);
  if (tolerance >= distance) {
    box_ = Pdf::unionOf(*box_, box);
    text_ += character;
  } else {
    flush();
    text_ += character;
    box_ = box;
  }
}

void LineBuilder::flush() {
  std::string text = Pdf::trimmed(text_);
  if (box_ && !text.empty()) lines_.push_back(Line{std::move(text), *box_});
  text_.clear();
  box_.reset();
}

std::vector<Line> LineBuilder::finish() {
  flush();
  return std::exchange(lines_, {});
}

std::vector<Line> buildLines(const Pdf::PageText& text) {
  auto characters = Pdf::splitCharacters(text.text);
  size_t n = std::min(characters.size(), text.boxes.size());
  LineBuilder builder;
  for (size_t i = 0; i < n; ++i) builder.add(characters[i], text.boxes[i]);
  return builder.finish();
}

Json lineObject(const Line& line, const Pdf::Rect& crop) {
  return Json{{"text", line.text},
              {"x", (line.box.minX() - crop.minX()) / crop.width},
              {"y", (crop.maxY() - line.box.maxY()) / crop.height},
              {"w", line.box.width / crop.width},
              {"h", line.box.height / crop.height}};
}

}  // namespace tallowbrook::PdfText
