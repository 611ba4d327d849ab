// The PDF library of pdf-page and pdf-text: Poppler's GLib interface reads the document and
// its text, cairo draws the page, png_writer writes it. Poppler's C++ interface tells the
// page's /Rotate entry, which the GLib one keeps to itself.
#include <cairo.h>
#include <poppler.h>
#include <unistd.h>

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-page.h>

#include <algorithm>
#include <climits>
#include <memory>

#include "cli/silenced_stderr.h"
#include "documents/pdf_characters.h"
#include "documents/pdf_document.h"
#include "documents/poppler/png_writer.h"

namespace tallowbrook::Pdf {
namespace {

struct GObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};
struct SurfaceDestroy {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct ContextDestroy {
  void operator()(cairo_t* context) const { cairo_destroy(context); }
};

// Poppler shows a page turned by its /Rotate entry. This matrix takes a point of that turned
// view (top-left origin, points) back to the unturned page (top-left origin at the crop box's
// top-left corner), for a crop box of `width` x `height`.
cairo_matrix_t unturned(int rotation, double width, double height) {
  cairo_matrix_t m;
  switch (rotation) {
    case 90:
      cairo_matrix_init(&m, 0, -1, 1, 0, 0, height);
      break;
    case 180:
      cairo_matrix_init(&m, -1, 0, 0, -1, width, height);
      break;
    case 270:
      cairo_matrix_init(&m, 0, 1, -1, 0, width, 0);
      break;
    default:
      cairo_matrix_init_identity(&m);
      break;
  }
  return m;
}

// The page's /Rotate entry in degrees: 0, 90, 180 or 270.
int rotationOf(const std::string& path, int number) {
  std::unique_ptr<poppler::document> document(poppler::document::load_from_file(path));
  if (!document) return 0;
  std::unique_ptr<poppler::page> page(document->create_page(number - 1));
  if (!page) return 0;
  switch (page->orientation()) {
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

class PopplerPdf final : public Document {
 public:
  PopplerPdf(::PopplerDocument* document, std::string path)
      : document_(document), path_(std::move(path)) {}

  int pageCount() const override {
    return std::max(0, poppler_document_get_n_pages(document_.get()));
  }

  bool loadPage(int number) override {
    SilencedStderr quiet;
    page_.reset(poppler_document_get_page(document_.get(), number - 1));
    if (!page_) return false;
    PopplerRectangle box{};
    poppler_page_get_crop_box(page_.get(), &box);
    crop_ = Rect{std::min(box.x1, box.x2), std::min(box.y1, box.y2), std::abs(box.x2 - box.x1),
                 std::abs(box.y2 - box.y1)};
    rotation_ = rotationOf(path_, number);
    return true;
  }

  Rect cropBox() const override { return crop_; }

  DrawResult draw(const Rect& crop, int width, int height) override {
    surface_.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    if (cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS) {
      surface_.reset();
      return DrawResult::noContext;
    }
    std::unique_ptr<cairo_t, ContextDestroy> cr(cairo_create(surface_.get()));
    cairo_set_source_rgb(cr.get(), 1, 1, 1);
    cairo_paint(cr.get());
    cairo_scale(cr.get(), width / crop.width, height / crop.height);
    cairo_matrix_t back = unturned(rotation_, crop.width, crop.height);
    cairo_transform(cr.get(), &back);
    {
      SilencedStderr quiet;
      poppler_page_render(page_.get(), cr.get());
    }
    cairo_status_t status = cairo_status(cr.get());
    cr.reset();
    cairo_surface_flush(surface_.get());
    if (status != CAIRO_STATUS_SUCCESS ||
        cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS ||
        !cairo_image_surface_get_data(surface_.get())) {
      surface_.reset();
      return DrawResult::noImage;
    }
    return DrawResult::drawn;
  }

  WriteResult writePng(const std::string& path) override {
    if (!surface_) return WriteResult::failed;
    Bitmap bitmap{cairo_image_surface_get_data(surface_.get()),
                  cairo_image_surface_get_width(surface_.get()),
                  cairo_image_surface_get_height(surface_.get()),
                  cairo_image_surface_get_stride(surface_.get())};
    return Pdf::writePng(bitmap, path);
  }

  PageText text() override {
    SilencedStderr quiet;
    PageText result;
    char* text = poppler_page_get_text(page_.get());
    if (text) {
      result.text = text;
      g_free(text);
    }
    PopplerRectangle* rectangles = nullptr;
    guint count = 0;
    if (!poppler_page_get_text_layout(page_.get(), &rectangles, &count)) count = 0;
    // Poppler gives each character's box in the turned view of the page, top-left origin,
    // relative to the crop box: turn it back and put it into page space.
    cairo_matrix_t back = unturned(rotation_, crop_.width, crop_.height);
    auto characters = splitCharacters(result.text);
    result.boxes.reserve(count);
    for (guint i = 0; i < count; ++i) {
      const PopplerRectangle& r = rectangles[i];
      if (i < characters.size() && isWhiteSpace(characters[i])) {
        // Spaces and line breaks leave no mark; Poppler gives them the gap they fill.
        result.boxes.push_back(Rect{});
        continue;
      }
      double x1 = r.x1, y1 = r.y1, x2 = r.x2, y2 = r.y2;
      cairo_matrix_transform_point(&back, &x1, &y1);
      cairo_matrix_transform_point(&back, &x2, &y2);
      double left = std::min(x1, x2), top = std::min(y1, y2);
      double width = std::abs(x2 - x1), height = std::abs(y2 - y1);
      result.boxes.push_back(Rect{crop_.x + left, crop_.maxY() - top - height, width, height});
    }
    g_free(rectangles);
    return result;
  }

 private:
  std::unique_ptr<::PopplerDocument, GObjectUnref> document_;
  std::string path_;
  int rotation_ = 0;
  std::unique_ptr<PopplerPage, GObjectUnref> page_;
  Rect crop_;
  std::unique_ptr<cairo_surface_t, SurfaceDestroy> surface_;
};

class PopplerLibrary final : public Library {
 public:
  std::unique_ptr<Document> open(const std::string& path) override {
    std::string absolute = path;
    if (absolute.empty() || absolute.front() != '/') {
      char* here = getcwd(nullptr, 0);
      if (!here) return nullptr;
      absolute = std::string(here) + "/" + path;
      free(here);
    }
    gchar* uri = g_filename_to_uri(absolute.c_str(), nullptr, nullptr);
    if (!uri) return nullptr;
    SilencedStderr quiet;
    ::PopplerDocument* document = poppler_document_new_from_file(uri, nullptr, nullptr);
    g_free(uri);
    if (!document) return nullptr;
    return std::make_unique<PopplerPdf>(document, path);
  }
};

}  // namespace
}  // namespace tallowbrook::Pdf

extern "C" tallowbrook::Pdf::Library* tallowbrook_create_pdf_library() {
  return new tallowbrook::Pdf::PopplerLibrary();
}
