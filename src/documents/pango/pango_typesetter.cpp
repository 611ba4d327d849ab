// text-pdf's typesetter: Pango shapes and breaks the text (any script, bidirectional text),
// cairo writes the PDF with its fonts embedded as subsets and the text extractable, fontconfig
// substitutes the layout's fonts (Georgia by a serif, Menlo by a monospace). Typesetting runs on
// the calling thread and hands each page over as glyph runs to a PageWriter, whose thread
// drives cairo, so the two halves of the work overlap.
#include <cairo-pdf.h>
#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "documents/pango/glyph_runs.h"
#include "documents/pango/page_writer.h"
#include "documents/text_typesetter.h"

namespace tallowbrook::TextPdf {
namespace {

// Pango's layout units per point (at 72 dpi a point is one PDF unit).
double fromPango(int units) {
  return static_cast<double>(units) / PANGO_SCALE;
}
int toPango(double points) {
  return static_cast<int>(points * PANGO_SCALE + 0.5);
}

// Fontconfig has neither Georgia nor Menlo on most Linux systems: the generic family after each
// name decides the substitute. "Menlo" alone would fall back to a proportional font.
const char* familyOf(Face face) {
  return face == Face::mono ? "Menlo,monospace" : "Georgia,serif";
}

PangoFontDescription* fontFor(const Style& style) {
  PangoFontDescription* font = pango_font_description_new();
  pango_font_description_set_family(font, familyOf(style.face));
  pango_font_description_set_weight(
      font, style.face == Face::serifBold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_size(font, toPango(style.size));
  return font;
}

// A layout of `text` in `style`: `width` points wide (0: unbounded), every line exactly
// lineHeight x size tall.
PangoLayout* makeLayout(PangoContext* context, std::string_view text, const Style& style,
                        double width) {
  PangoLayout* layout = pango_layout_new(context);
  PangoFontDescription* font = fontFor(style);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  if (width > 0) {
    pango_layout_set_width(layout, toPango(width));
    pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
  }
  PangoAttrList* attributes = pango_attr_list_new();
  pango_attr_list_insert(
      attributes, pango_attr_line_height_new_absolute(toPango(style.lineHeight * style.size)));
  pango_layout_set_attributes(layout, attributes);
  pango_attr_list_unref(attributes);
  pango_layout_set_text(layout, text.data(), static_cast<int>(text.size()));
  return layout;
}

// One placed line of a paragraph's layout, in layout coordinates.
struct LineBox {
  PangoLayoutLine* line;
  const char* text;  // its layout's text
  int start;         // byte offset in the paragraph
  double x;          // left edge of the line (right-to-left lines are aligned right)
  double height;     // line height
  double baseline;   // baseline below the line's top
};

// A paragraph of the text: one run's text up to (not including) a "\n".
struct Paragraph {
  std::size_t start;                  // byte position in the whole text
  std::size_t length;                 // bytes, without the "\n"
  std::size_t run;                    // index of its run
  std::vector<PangoLayout*> layouts;  // made on first use, one per piece
  std::vector<LineBox> lines;         // starts relative to the paragraph
};

// Pango breaks a stretch without any break opportunity in time that grows with the square of
// its length (20000 such bytes take most of a second). Such a stretch is cut into pieces of
// this many bytes, each laid out on its own; the cost is a shorter last line per piece.
constexpr std::size_t kUnbrokenPiece = 4096;

// Where the paragraph text `text` is cut into pieces: after every kUnbrokenPiece bytes without
// a space, at a character boundary. Always ends with text.size().
std::vector<std::size_t> pieceEnds(std::string_view text) {
  std::vector<std::size_t> ends;
  std::size_t stretch = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == ' ' || c == '\t') {
      stretch = i + 1;
    } else if (i - stretch >= kUnbrokenPiece && (c & 0xC0) != 0x80) {
      ends.push_back(i);
      stretch = i;
    }
  }
  ends.push_back(text.size());
  return ends;
}

cairo_status_t writeToFile(void* closure, const unsigned char* data, unsigned int length) {
  auto* file = static_cast<std::FILE*>(closure);
  if (std::fwrite(data, 1, length, file) != length) return CAIRO_STATUS_WRITE_ERROR;
  return CAIRO_STATUS_SUCCESS;
}

class PangoDocument final : public Document {
 public:
  PangoDocument(std::FILE* file, cairo_surface_t* surface, double pageHeight,
                const Attributed& text)
      : file_(file), surface_(surface), pageHeight_(pageHeight), text_(text) {
    cairo_ = cairo_create(surface_);
    context_ = pango_cairo_create_context(cairo_);
    pango_cairo_context_set_resolution(context_, 72);
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    pango_cairo_context_set_font_options(context_, options);
    cairo_font_options_destroy(options);
    splitParagraphs();
    writer_ = std::make_unique<PageWriter>(cairo_);
  }

  ~PangoDocument() override {
    if (file_) finish();
    writer_.reset();
    for (Paragraph& paragraph : paragraphs_) {
      for (PangoLayout* layout : paragraph.layouts) g_object_unref(layout);
    }
    if (lineLayout_) g_object_unref(lineLayout_);
    g_object_unref(context_);
    cairo_destroy(cairo_);
    cairo_surface_destroy(surface_);
  }

  void beginPage() override {}

  std::size_t fillFrame(const Rect& frame, std::size_t position) override {
    const double top = pageHeight_ - (frame.y + frame.height);
    const double bottom = pageHeight_ - frame.y;
    std::size_t reached = position;
    double cursor = top;
    bool first = true;
    auto after = std::upper_bound(paragraphs_.begin(), paragraphs_.end(), position,
                                  [](std::size_t p, const Paragraph& q) { return p < q.start; });
    if (after == paragraphs_.begin()) return 0;
    for (std::size_t i = static_cast<std::size_t>(after - paragraphs_.begin()) - 1;
         i < paragraphs_.size(); ++i) {
      Paragraph& paragraph = paragraphs_[i];
      const Style& style = text_[paragraph.run].style;
      layOut(paragraph, frame.width);
      int offset = static_cast<int>(reached - paragraph.start);
      auto line = std::lower_bound(paragraph.lines.begin(), paragraph.lines.end(), offset,
                                   [](const LineBox& box, int o) { return box.start < o; });
      if (line == paragraph.lines.begin() && !first) cursor += style.spacingBefore;
      for (; line != paragraph.lines.end(); ++line) {
        if (cursor + line->height > bottom + 1e-6) return reached - position;
        drawLine(line->line, line->text, frame.x + line->x, cursor + line->baseline, style.grey);
        cursor += line->height;
        first = false;
        auto next = line + 1;
        reached = paragraph.start + (next == paragraph.lines.end()
                                         ? paragraph.length + 1
                                         : static_cast<std::size_t>(next->start));
      }
      cursor += style.spacingAfter;
      releaseLayout(paragraph);
    }
    return reached - position;
  }

  void drawLine(const std::string& text, const Style& style, double x, double y) override {
    // One layout serves every footer: only its text changes from page to page.
    if (!lineLayout_ || lineStyle_.face != style.face || lineStyle_.size != style.size) {
      if (lineLayout_) g_object_unref(lineLayout_);
      lineLayout_ = makeLayout(context_, text, style, 0);
      lineStyle_ = style;
    } else {
      pango_layout_set_text(lineLayout_, text.data(), static_cast<int>(text.size()));
    }
    drawLine(pango_layout_get_line_readonly(lineLayout_, 0), pango_layout_get_text(lineLayout_), x,
             pageHeight_ - y, style.grey);
  }

  void endPage() override {
    writer_->endPage(std::move(page_));
    page_ = {};
  }

  bool finish() override {
    if (!file_) return false;
    writer_->finish();
    cairo_surface_finish(surface_);
    bool good = cairo_surface_status(surface_) == CAIRO_STATUS_SUCCESS &&
                cairo_status(cairo_) == CAIRO_STATUS_SUCCESS;
    // A write that failed inside stdio's buffer shows only in the stream's error flag.
    good = std::fflush(file_) == 0 && std::ferror(file_) == 0 && good;
    good = std::fclose(file_) == 0 && good;
    file_ = nullptr;
    return good;
  }

 private:
  // Draws `line` (of a layout whose text is `text`) with its baseline's left end at (x, y)
  // from the top left: as glyph runs for the writer thread, or, for a line with glyphs no font
  // has, by Pango right here.
  void drawLine(PangoLayoutLine* line, const char* text, double x, double y, double grey) {
    if (appendLine(page_, line, text, snapToCairo(x), snapToCairo(y), grey, fonts_)) return;
    writer_->drawHere(std::move(page_), [&](cairo_t* cairo) {
      cairo_set_source_rgb(cairo, grey, grey, grey);
      cairo_move_to(cairo, x, y);
      pango_cairo_show_layout_line(cairo, line);
    });
    page_ = {};
  }

  void splitParagraphs() {
    std::size_t position = 0;
    for (std::size_t run = 0; run < text_.size(); ++run) {
      const std::string& text = text_[run].text;
      std::size_t from = 0;
      while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        if (end == std::string::npos) end = text.size();
        paragraphs_.push_back({position + from, end - from, run, {}, {}});
        from = end + 1;
      }
      position += text.size();
    }
  }

  // Shapes and breaks `paragraph` into lines `width` points wide, once, keeping each line's box.
  void layOut(Paragraph& paragraph, double width) {
    if (!paragraph.layouts.empty()) return;
    const Run& run = text_[paragraph.run];
    std::string_view text(run.text);
    text = text.substr(paragraph.start - runStart(paragraph.run), paragraph.length);
    std::string withoutNul;
    if (text.find('\0') != std::string_view::npos) {
      // NUL would end the text for Pango; a space keeps every byte offset where it was.
      withoutNul.assign(text);
      std::replace(withoutNul.begin(), withoutNul.end(), '\0', ' ');
      text = withoutNul;
    }
    std::size_t from = 0;
    for (std::size_t end : pieceEnds(text)) {
      PangoLayout* layout = makeLayout(context_, text.substr(from, end - from), run.style, width);
      paragraph.layouts.push_back(layout);
      const char* layoutText = pango_layout_get_text(layout);
      PangoLayoutIter* iter = pango_layout_get_iter(layout);
      do {
        PangoRectangle logical;
        pango_layout_iter_get_line_extents(iter, nullptr, &logical);
        PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iter);
        paragraph.lines.push_back({line, layoutText, static_cast<int>(from) + line->start_index,
                                   fromPango(logical.x), fromPango(logical.height),
                                   fromPango(pango_layout_iter_get_baseline(iter) - logical.y)});
      } while (pango_layout_iter_next_line(iter));
      pango_layout_iter_free(iter);
      from = end;
    }
  }

  // A paragraph drawn to its end is not needed again.
  void releaseLayout(Paragraph& paragraph) {
    for (PangoLayout* layout : paragraph.layouts) g_object_unref(layout);
    paragraph.layouts.clear();
    paragraph.layouts.shrink_to_fit();
    paragraph.lines.clear();
    paragraph.lines.shrink_to_fit();
  }

  std::size_t runStart(std::size_t run) {
    while (runStarts_.size() <= run) {
      runStarts_.push_back(
          runStarts_.empty() ? 0 : runStarts_.back() + text_[runStarts_.size() - 1].text.size());
    }
    return runStarts_[run];
  }

 private:
  std::FILE* file_;
  cairo_surface_t* surface_;
  double pageHeight_;
  Attributed text_;
  cairo_t* cairo_ = nullptr;
  PangoContext* context_ = nullptr;
  std::vector<Paragraph> paragraphs_;
  std::vector<std::size_t> runStarts_;
  FontCache fonts_;                    // outlives writer_, which draws with its fonts
  PageRuns page_;                      // the current page's runs
  PangoLayout* lineLayout_ = nullptr;  // drawLine's layout, set in lineStyle_
  Style lineStyle_;
  std::unique_ptr<PageWriter> writer_;
};

class PangoTypesetter final : public Typesetter {
 public:
  Opened open(const std::string& path, double pageWidth, double pageHeight, const Info& info,
              const Attributed& text) override {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return {Opened::Status::cannotWrite, nullptr};
    cairo_surface_t* surface =
        cairo_pdf_surface_create_for_stream(writeToFile, file, pageWidth, pageHeight);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
      cairo_surface_destroy(surface);
      std::fclose(file);
      return {Opened::Status::noContext, nullptr};
    }
    cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_TITLE, info.title.c_str());
    cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_CREATOR, info.creator.c_str());
    return {Opened::Status::opened,
            std::make_unique<PangoDocument>(file, surface, pageHeight, text)};
  }
};

}  // namespace
}  // namespace tallowbrook::TextPdf

extern "C" tallowbrook::TextPdf::Typesetter* tallowbrook_create_text_typesetter() {
  static tallowbrook::TextPdf::PangoTypesetter typesetter;
  return &typesetter;
}
