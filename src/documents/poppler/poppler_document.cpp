// The PDF library of pdf-page and pdf-text: Poppler's C++ interface opens the document, draws
// pages with Poppler's own rasteriser (Splash, as pdftoppm does) and gives the page's words
// with one box per character; png_writer writes the image.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-image.h>
#include <poppler/cpp/poppler-page-renderer.h>
#include <poppler/cpp/poppler-page.h>

#include "base/silenced_stderr.h"
#include "documents/pdf_characters.h"
#include "documents/pdf_document.h"
#include "documents/poppler/mapped_file.h"
#include "documents/poppler/png_writer.h"

namespace tallowbrook::Pdf {
namespace {

// The page's /Rotate entry in degrees: 0, 90, 180 or 270.
int rotationOf(const poppler::page& page) {
  switch (page.orientation()) {
    case poppler::page::landscape:
      return 90;
    case poppler::page::upside_down:
      return 180;
    case poppler::page::seascape:
      return 270;
    default:
      return 0;
  }
}

// Poppler draws and lays out a page turned by its /Rotate entry. This takes a point of that
// turned view (top-left origin, points) back to the unturned page (top-left origin at the crop
// box's top-left corner), for a crop box of `width` x `height`.
void turnBack(int rotation, double width, double height, double* x, double* y) {
  double u = *x, v = *y;
  switch (rotation) {
    case 90:
      *x = v;
      *y = height - u;
      break;
    case 180:
      *x = width - u;
      *y = height - v;
      break;
    case 270:
      *x = width - v;
      *y = u;
      break;
    default:
      break;
  }
}

// Whether two boxes (page space) share a line: their vertical centres lie within half the
// smaller height of each other.
bool oneLine(const Rect& a, const Rect& b) {
  return std::abs(a.midY() - b.midY()) <= std::min(a.height, b.height) / 2;
}

// What separates two words that follow each other, from the last box of the first and the
// first box of the next (page space): nothing when they touch on one line (a change of font
// inside a word), a space when Poppler saw one or a gap shows between them on one line (words
// of two table cells), a line break when the next word is on another line.
std::string_view separator(const poppler::text_box& word, const Rect& last, const Rect& next) {
  if (!oneLine(last, next)) return "\n";
  double height = std::min(last.height, next.height);
  if (word.has_space_after() || next.minX() - last.maxX() > 0.15 * height) return " ";
  return "";
}

// The page's characters and their boxes in page space.
PageText pageText(const poppler::page& page, const Rect& crop, int rotation) {
  // Boxes come in the turned view, relative to the crop box: turn them back, into page space.
  auto toPage = [&](const poppler::rectf& box) {
    if (!(box.width() > 0) || !(box.height() > 0)) return Rect{};
    double x1 = box.left(), y1 = box.top(), x2 = box.right(), y2 = box.bottom();
    turnBack(rotation, crop.width, crop.height, &x1, &y1);
    turnBack(rotation, crop.width, crop.height, &x2, &y2);
    double left = std::min(x1, x2), top = std::min(y1, y2);
    double width = std::abs(x2 - x1), height = std::abs(y2 - y1);
    return Rect{crop.x + left, crop.maxY() - top - height, width, height};
  };
  PageText result;
  auto add = [&](std::string_view character, const Rect& box) {
    result.text += character;
    // Spaces and line breaks leave no mark.
    result.boxes.push_back(isWhiteSpace(character) ? Rect{} : box);
  };

  std::vector<poppler::text_box> words = page.text_list();
  Rect last;
  for (size_t w = 0; w < words.size(); ++w) {
    poppler::byte_array utf8 = words[w].text().to_utf8();
    std::string text(utf8.begin(), utf8.end());
    auto characters = splitCharacters(text);
    if (characters.empty()) continue;
    Rect first = toPage(words[w].char_bbox(0));
    if (w > 0) {
      std::string_view between = separator(words[w - 1], last, first);
      if (!between.empty()) add(between, Rect{});
    }
    for (size_t i = 0; i < characters.size(); ++i) {
      Rect box = toPage(words[w].char_bbox(i));
      add(characters[i], box);
      last = box;
    }
  }
  return result;
}

class PopplerPdf final : public Document {
 public:
  PopplerPdf(std::unique_ptr<MappedFile> file, poppler::document* document)
      : file_(std::move(file)), document_(document) {}

  int pageCount() const override { return std::max(0, document_->pages()); }

  void loadPage(int number) override {
    SilencedStderr quiet;
    page_.reset(document_->create_page(number - 1));
    if (!page_) {
      throw DocumentError(DocumentError::Kind::pageNotLoaded,
                          "page " + std::to_string(number) + " would not load");
    }
    poppler::rectf box = page_->page_rect(poppler::crop_box);
    crop_ = Rect{box.x(), box.y(), box.width(), box.height()};
    rotation_ = rotationOf(*page_);
  }

  Rect cropBox() const override { return crop_; }

  void draw(const Rect& crop, int width, int height) override {
    // Poppler ends the process when it cannot allocate its bitmap (and the copy handed back):
    // make sure the address space is there first.
    void* volatile room = std::malloc(size_t(width) * size_t(height) * 3 * 2);
    if (!room) {
      throw DocumentError(DocumentError::Kind::noContext, "could not allocate a " +
                                                              std::to_string(width) + "x" +
                                                              std::to_string(height) + " context");
    }
    std::free(room);
    SilencedStderr quiet;
    poppler::page_renderer renderer;
    renderer.set_render_hints(poppler::page_renderer::antialiasing |
                              poppler::page_renderer::text_antialiasing);
    renderer.set_image_format(poppler::image::format_rgb24);
    renderer.set_paper_color(0xFFFFFFFF);
    // The renderer adds the page's own turn to the one asked for: asking for the opposite turn
    // draws the page as it is stored.
    auto unturn = poppler::rotation_enum((4 - rotation_ / 90) % 4);
    image_ = renderer.render_page(page_.get(), 72.0 * width / crop.width,
                                  72.0 * height / crop.height, 0, 0, width, height, unturn);
    if (!image_.is_valid() || image_.width() != width || image_.height() != height) {
      image_ = poppler::image();
      throw DocumentError(DocumentError::Kind::noImage, "the page drew but produced no image");
    }
  }

  void writePng(const std::string& path) override {
    if (!image_.is_valid()) {
      throw DocumentError(DocumentError::Kind::writeFailed, "writing " + path + " failed");
    }
    Bitmap bitmap{reinterpret_cast<const uint8_t*>(image_.const_data()), image_.width(),
                  image_.height(), image_.bytes_per_row()};
    Pdf::writePng(bitmap, path);
  }

  PageText text() override {
    SilencedStderr quiet;
    return pageText(*page_, crop_, rotation_);
  }

 private:
  std::unique_ptr<MappedFile> file_;  // the document's bytes: outlives the document
  std::unique_ptr<poppler::document> document_;
  std::unique_ptr<poppler::page> page_;
  Rect crop_;
  int rotation_ = 0;
  poppler::image image_;
};

class PopplerLibrary final : public Library {
 public:
  std::unique_ptr<Document> open(const std::string& path) override {
    auto cannotOpen = [&] {
      return DocumentError(DocumentError::Kind::cannotOpen, "could not open " + path + " as a PDF");
    };
    auto file = std::make_unique<MappedFile>(path);
    if (!file->data()) throw cannotOpen();
    SilencedStderr quiet;
    std::unique_ptr<poppler::document> document(
        poppler::document::load_from_raw_data(file->data(), int(file->size())));
    // A document that needs a password stays locked: it cannot be read without one.
    if (!document || document->is_locked()) throw cannotOpen();
    return std::make_unique<PopplerPdf>(std::move(file), document.release());
  }
};

}  // namespace
}  // namespace tallowbrook::Pdf

extern "C" tallowbrook::Pdf::Library* tallowbrook_create_pdf_library() {
  return new tallowbrook::Pdf::PopplerLibrary();
}
