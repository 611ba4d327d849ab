// The PDF library of pdf-page and pdf-text. Poppler's C++ interface opens the document and
// draws pages with Poppler's own rasteriser (Splash, as pdftoppm does); its GLib interface
// gives the page's text with one box per character; png_writer writes the image.
#include <poppler.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-image.h>
#include <poppler/cpp/poppler-page-renderer.h>
#include <poppler/cpp/poppler-page.h>

#include "cli/silenced_stderr.h"
#include "documents/pdf_characters.h"
#include "documents/pdf_document.h"
#include "documents/poppler/png_writer.h"

namespace tallowbrook::Pdf {
namespace {

struct GObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};

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

// Whether two characters that follow each other in Poppler's text (boxes in its turned view)
// sit on one line with a visible gap between them. Poppler's text runs words of separate
// blocks together when they share a line ("Rate" and "5.37%" in two table columns); a space
// keeps them apart, as every reader of the page sees them.
bool apartOnOneLine(const PopplerRectangle& a, const PopplerRectangle& b) {
  double height = std::min(a.y2 - a.y1, b.y2 - b.y1);
  double distance = std::abs((a.y1 + a.y2) / 2 - (b.y1 + b.y2) / 2);
  return distance <= height / 2 && b.x1 - a.x2 > 0.15 * height;
}

// The page's characters and their boxes in page space, from Poppler's GLib interface.
PageText pageText(PopplerPage* page, const Rect& crop, int rotation) {
  // The whole page and beyond it: a word that starts outside the crop box still counts.
  double reach = crop.width + crop.height;
  PopplerRectangle area{-reach, -reach, 2 * reach, 2 * reach};
  std::string text;
  if (char* found = poppler_page_get_text_for_area(page, &area)) {
    text = found;
    g_free(found);
  }
  PopplerRectangle* rectangles = nullptr;
  guint count = 0;
  if (!poppler_page_get_text_layout_for_area(page, &area, &rectangles, &count)) count = 0;

  auto characters = splitCharacters(text);
  size_t n = std::min(characters.size(), size_t(count));
  PageText result;
  result.boxes.reserve(n);
  const PopplerRectangle* previous = nullptr;  // the previous character's, when it left a mark
  for (size_t i = 0; i < n; ++i) {
    const PopplerRectangle& r = rectangles[i];
    if (isWhiteSpace(characters[i]) || r.x2 <= r.x1 || r.y2 <= r.y1) {
      // Spaces and line breaks leave no mark; Poppler gives them the gap they fill.
      result.text += characters[i];
      result.boxes.push_back(Rect{});
      previous = nullptr;
      continue;
    }
    if (previous && apartOnOneLine(*previous, r)) {
      result.text += ' ';
      result.boxes.push_back(Rect{});
    }
    previous = &r;
    // Boxes come in the turned view, relative to the crop box: turn them back, into page space.
    double x1 = r.x1, y1 = r.y1, x2 = r.x2, y2 = r.y2;
    turnBack(rotation, crop.width, crop.height, &x1, &y1);
    turnBack(rotation, crop.width, crop.height, &x2, &y2);
    double left = std::min(x1, x2), top = std::min(y1, y2);
    double width = std::abs(x2 - x1), height = std::abs(y2 - y1);
    result.text += characters[i];
    result.boxes.push_back(Rect{crop.x + left, crop.maxY() - top - height, width, height});
  }
  g_free(rectangles);
  return result;
}

class PopplerPdf final : public Document {
 public:
  PopplerPdf(poppler::document* document, std::string path)
      : document_(document), path_(std::move(path)) {}

  int pageCount() const override { return std::max(0, document_->pages()); }

  bool loadPage(int number) override {
    SilencedStderr quiet;
    number_ = number;
    page_.reset(document_->create_page(number - 1));
    if (!page_) return false;
    poppler::rectf box = page_->page_rect(poppler::crop_box);
    crop_ = Rect{box.x(), box.y(), box.width(), box.height()};
    rotation_ = rotationOf(*page_);
    return true;
  }

  Rect cropBox() const override { return crop_; }

  DrawResult draw(const Rect& crop, int width, int height) override {
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
      return DrawResult::noImage;
    }
    return DrawResult::drawn;
  }

  WriteResult writePng(const std::string& path) override {
    if (!image_.is_valid()) return WriteResult::failed;
    Bitmap bitmap{reinterpret_cast<const uint8_t*>(image_.const_data()), image_.width(),
                  image_.height(), image_.bytes_per_row()};
    return Pdf::writePng(bitmap, path);
  }

  PageText text() override {
    SilencedStderr quiet;
    std::string absolute = path_;
    if (absolute.empty() || absolute.front() != '/') {
      char* here = getcwd(nullptr, 0);
      if (!here) return {};
      absolute = std::string(here) + "/" + path_;
      free(here);
    }
    gchar* uri = g_filename_to_uri(absolute.c_str(), nullptr, nullptr);
    if (!uri) return {};
    std::unique_ptr<::PopplerDocument, GObjectUnref> document(
        poppler_document_new_from_file(uri, nullptr, nullptr));
    g_free(uri);
    if (!document) return {};
    std::unique_ptr<PopplerPage, GObjectUnref> page(
        poppler_document_get_page(document.get(), number_ - 1));
    if (!page) return {};
    return pageText(page.get(), crop_, rotation_);
  }

 private:
  std::unique_ptr<poppler::document> document_;
  std::string path_;
  std::unique_ptr<poppler::page> page_;
  int number_ = 0;
  Rect crop_;
  int rotation_ = 0;
  poppler::image image_;
};

class PopplerLibrary final : public Library {
 public:
  std::unique_ptr<Document> open(const std::string& path) override {
    SilencedStderr quiet;
    std::unique_ptr<poppler::document> document(poppler::document::load_from_file(path));
    // A document that needs a password stays locked: it cannot be read without one.
    if (!document || document->is_locked()) return nullptr;
    return std::make_unique<PopplerPdf>(document.release(), path);
  }
};

}  // namespace
}  // namespace tallowbrook::Pdf

extern "C" tallowbrook::Pdf::Library* tallowbrook_create_pdf_library() {
  return new tallowbrook::Pdf::PopplerLibrary();
}
