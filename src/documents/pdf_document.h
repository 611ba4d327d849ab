// The PDF reader and rasteriser behind pdf-page and pdf-text, as a small interface so the
// commands' rules are tested with a fake and the real library (Poppler and cairo) lives in a
// module loaded only for those two commands.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/error.h"

namespace tallowbrook::Pdf {

// A rectangle in PDF page space: points, origin at the bottom left, y growing upwards.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  double minX() const { return x; }
  double maxX() const { return x + width; }
  double minY() const { return y; }
  double maxY() const { return y + height; }
  double midY() const { return y + height / 2; }
};

// The smallest rectangle holding both.
Rect unionOf(const Rect& a, const Rect& b);

// A failure of the PDF library. Its kind says what failed; the commands word the message from
// the kind and their own request (`what()` is only a short description).
class DocumentError : public Error {
 public:
  enum class Kind {
    cannotOpen,     // missing, unreadable, not a PDF, damaged beyond repair, or locked
    pageNotLoaded,  // the page cannot be loaded
    noContext,      // the bitmap could not be allocated
    noImage,        // the page drew but left no image to take
    cannotCreate,   // the output file could not be created
    writeFailed,    // encoding or writing the file failed part way
  };
  DocumentError(Kind kind, const std::string& description) : Error(description), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

// A page's text: the characters as UTF-8 and one box per character (in page space), in the
// same order. Characters that leave no mark (spaces, line breaks) have a zero-size box.
struct PageText {
  std::string text;
  std::vector<Rect> boxes;
};

// One opened document with at most one loaded page; one thread.
class Document {
 public:
  virtual ~Document() = default;

  // The number of pages, 0 or more.
  virtual int pageCount() const = 0;

  // Loads page `number` (1 ... pageCount()). Throws DocumentError pageNotLoaded when the page
  // cannot be loaded.
  virtual void loadPage(int number) = 0;

  // The loaded page's crop box in page space (not rotated).
  virtual Rect cropBox() const = 0;

  // Draws the loaded page into a new white `width` x `height` RGB bitmap: page space is scaled
  // by (width / crop.width, height / crop.height) after moving crop's corner to the origin, so
  // the crop box fills the bitmap exactly. The page's own /Rotate is not applied. Sizes are
  // 1 ... 8000. Throws DocumentError noContext when the bitmap cannot be allocated, noImage when
  // the page drew but left no image to take.
  virtual void draw(const Rect& crop, int width, int height) = 0;

  // Writes the bitmap of the last successful draw() as a PNG file at `path`. Throws
  // DocumentError cannotCreate when the file cannot be created, writeFailed when encoding or
  // writing fails part way (or nothing was drawn).
  virtual void writePng(const std::string& path) = 0;

  // The loaded page's text and character boxes.
  virtual PageText text() = 0;
};

// Opens documents.
class Library {
 public:
  virtual ~Library() = default;
  // The document at `path` (never null). Throws DocumentError cannotOpen when it is missing,
  // unreadable, not a PDF, damaged beyond repair, or encrypted with a password.
  virtual std::unique_ptr<Document> open(const std::string& path) = 0;
};

// The entry the pdf module exports: a new library owned by the caller.
using CreateLibrary = Library* (*)();
inline constexpr const char* kCreateLibrarySymbol = "tallowbrook_create_pdf_library";

// Loads the pdf module (or fails with the loader's reason) and returns its library. Main
// thread; the library lives until the process ends.
Library& loadLibrary();

}  // namespace tallowbrook::Pdf
