// Visual lines rebuilt from a page's characters and their boxes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/out.h"
#include "documents/pdf_document.h"

namespace tallowbrook::PdfText {

// A finished line: its trimmed text and the union of its characters' boxes (page space).
struct Line {
  std::string text;
  Pdf::Rect box;
};

// Collects characters into lines in reading order of the page's text.
class LineBuilder {
 public:
  // Adds one character with its box. "\n" or "\r" closes the current line. A box without
  // width or height joins the text without moving the line's box. A box whose vertical centre
  // lies within half the smaller of its height and the line's height from the line's centre
  // widens the line; any other box closes the line and starts the next one.
  void add(std::string_view character, const Pdf::Rect& box);

  // Closes the current line: kept when it has a box and its trimmed text is not empty. The
  // current text and box are reset in every case.
  void flush();

  // The lines closed so far, in order.
  const std::vector<Line>& lines() const { return lines_; }

  // Flushes the current line and hands over every line, leaving the builder empty.
  std::vector<Line> finish();

 private:
  std::string text_;
  std::optional<Pdf::Rect> box_;
  std::vector<Line> lines_;
};

// The lines of `text` (flushed at the end): character i of the text goes with boxes[i]; only
// the first min(characters, boxes) characters are read.
std::vector<Line> buildLines(const Pdf::PageText& text);

// {"text","x","y","w","h"}: the line's box as fractions of `crop`, top-left origin, not clamped.
Json lineObject(const Line& line, const Pdf::Rect& crop);

}  // namespace tallowbrook::PdfText
