// The typesetter and PDF writer behind text-pdf, as a small interface so the command's rules
// (run order, page loop, stop rule, summary) are tested with a fake, and the real one (Pango
// and cairo) lives in a module loaded only for this command.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"

namespace tallowbrook::TextPdf {

// The two font families of the layout, with the weight of each use.
enum class Face {
  serif,      // "Georgia": a serif font
  serifBold,  // "Georgia-Bold": the bold of that serif
  mono,       // "Menlo": a monospaced font, never a proportional one
};

// How one run is set. Sizes and spacings in points; `grey` is the grey level of the text
// colour (0 black ... 1 white, alpha 1); `lineHeight` multiplies the font size to give the
// height of each line of the paragraph.
struct Style {
  Face face = Face::serif;
  double size = 11.5;
  double grey = 0;
  double spacingAfter = 0;
  double spacingBefore = 0;
  double lineHeight = 1.25;
};

// A run of styled text. In the attributed text every run ends with "\n" and is one paragraph.
struct Run {
  std::string text;  // UTF-8
  Style style;
};

// The whole styled text, runs in order. Character positions are byte offsets into the
// concatenation of the runs' texts.
using Attributed = std::vector<Run>;

// A rectangle in PDF user space: points, origin at the bottom left of the page.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

// One PDF being written. One thread.
class Document {
 public:
  virtual ~Document() = default;

  // Starts a new page of the document's page size.
  virtual void beginPage() = 0;

  // Sets the text from byte `position` (a paragraph start or a line start inside a paragraph)
  // into `frame` on the current page, paragraph after paragraph and line after line from the
  // top, until the next line would cross the frame's bottom or the text ends. Paragraphs break
  // across frames only between lines. Returns the number of bytes placed (0 when not even one
  // line fits); a paragraph's closing "\n" counts as placed with its last line.
  virtual std::size_t fillFrame(const Rect& frame, std::size_t position) = 0;

  // Draws `text` as one line in `style` (only its face, size and grey count) with the
  // baseline's left end at (x, y) in PDF user space.
  virtual void drawLine(const std::string& text, const Style& style, double x, double y) = 0;

  // Ends the current page.
  virtual void endPage() = 0;

  // Writes the rest of the file and closes it. Throws Error "cannot write <path>" when writing
  // failed at any point (a full disk): the file is then incomplete.
  virtual void finish() = 0;
};

// Document information written into the PDF.
struct Info {
  std::string title;
  std::string creator;
};

// The failure when the PDF writer cannot be set up on the output file.
inline constexpr std::string_view kNoContext = "cannot create a PDF context";

// Makes documents.
class Typesetter {
 public:
  virtual ~Typesetter() = default;

  // Creates the file at `path` and a PDF of `pageWidth` x `pageHeight` points on it, with
  // `info`, that will set `text`; never null. Throws Error "cannot write <path>" when the file
  // cannot be created, Error kNoContext when the PDF writer cannot be set up on it.
  virtual std::unique_ptr<Document> open(const std::string& path, double pageWidth,
                                         double pageHeight, const Info& info,
                                         const Attributed& text) = 0;
};

// The module's factory, and its name.
using CreateTypesetter = Typesetter* (*)();
inline constexpr const char* kCreateTypesetterSymbol = "tallowbrook_create_text_typesetter";

// The real typesetter, from the textpdf module loaded on first use (fails with the loader's
// reason if the module cannot be loaded). Main thread only.
Typesetter& loadTypesetter();

}  // namespace tallowbrook::TextPdf
