// text-pdf's typesetter: Pango shapes and breaks the text (any script, bidirectional text),
// cairo writes the PDF with its fonts embedded as subsets and the text extractable, fontconfig
// substitutes the layout's fonts (Georgia by a serif, Menlo by a monospace).
//
// Three threads share the work: the calling thread fills frames and lays out paragraphs, a
// layout thread (its own Pango context and font map: Pango objects are not shared) lays out the
// paragraphs ahead of it, and a PageWriter's thread draws finished pages into cairo. Paragraphs
// travel between them as glyph runs.
#include <cairo-pdf.h>
#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "documents/pango/glyph_runs.h"
#include "documents/pango/page_writer.h"
#include "documents/pango/paragraph_layout.h"
#include "documents/text_typesetter.h"

namespace tallowbrook::TextPdf {
namespace {

// A paragraph of the text: one run's text up to (not including) a "\n".
struct Paragraph {
  std::size_t start = 0;            // byte position in the whole text
  std::size_t length = 0;           // bytes, without the "\n"
  std::size_t run = 0;              // index of its run
  std::size_t inRun = 0;            // byte position in its run's text
  double width = 0;                 // the width its lines were laid out for
  std::vector<PreparedLine> lines;  // once laid out; emptied once placed to its end
};

cairo_status_t writeToFile(void* closure, const unsigned char* data, unsigned int length) {
  auto* file = static_cast<std::FILE*>(closure);
  if (std::fwrite(data, 1, length, file) != length) return CAIRO_STATUS_WRITE_ERROR;
  return CAIRO_STATUS_SUCCESS;
}

class PangoDocument final : public Document {
 public:
  PangoDocument(const std::string& path, std::FILE* file, cairo_surface_t* surface,
                double pageHeight, const Attributed& text)
      : path_(path), file_(file), surface_(surface), pageHeight_(pageHeight), text_(text) {
    cairo_ = cairo_create(surface_);
    context_ = makeContext(cairo_, false);
    aheadContext_ = makeContext(cairo_, true);
    splitParagraphs();
    taken_ = std::make_unique<std::atomic<bool>[]>(paragraphs_.size());
    ready_.assign(paragraphs_.size(), false);
    writer_ = std::make_unique<PageWriter>(cairo_);
  }

  ~PangoDocument() override {
    if (file_) close();
    stopAhead();
    writer_.reset();
    if (lineLayout_) g_object_unref(lineLayout_);
    g_object_unref(aheadContext_);
    g_object_unref(context_);
    cairo_destroy(cairo_);
    cairo_surface_destroy(surface_);
  }

  void beginPage() override {}

  std::size_t fillFrame(const Rect& frame, std::size_t position) override {
    if (!ahead_.joinable() && !aheadStopped_) {
      aheadWidth_ = frame.width;
      ahead_ = std::thread([this] { layOutAhead(); });
    }
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
      prepare(i, frame.width);
      int offset = static_cast<int>(reached - paragraph.start);
      auto line = std::lower_bound(paragraph.lines.begin(), paragraph.lines.end(), offset,
                                   [](const PreparedLine& box, int o) { return box.start < o; });
      if (line == paragraph.lines.begin() && !first) cursor += style.spacingBefore;
      for (; line != paragraph.lines.end(); ++line) {
        if (cursor + line->height > bottom + 1e-6) return reached - position;
        place(i, *line, frame.x + line->x, cursor + line->baseline, style.grey);
        cursor += line->height;
        first = false;
        auto next = line + 1;
        reached = paragraph.start + (next == paragraph.lines.end()
                                         ? paragraph.length + 1
                                         : static_cast<std::size_t>(next->start));
      }
      cursor += style.spacingAfter;
      // A paragraph placed to its end is not needed again.
      paragraph.lines.clear();
      paragraph.lines.shrink_to_fit();
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
    PangoLayoutLine* line = pango_layout_get_line_readonly(lineLayout_, 0);
    const double top = pageHeight_ - y;
    if (appendLine(page_, line, pango_layout_get_text(lineLayout_), snapToCairo(x),
                   snapToCairo(top), style.grey, fonts_)) {
      return;
    }
    drawWithPango(x, top, style.grey, [&](const auto& draw) { draw(line); });
  }

  void endPage() override {
    writer_->endPage(std::move(page_));
    page_ = {};
  }

  void finish() override {
    if (!close()) throw Error("cannot write " + path_);
  }

 private:
  // How many paragraphs the layout thread may run ahead of the one being placed.
  static constexpr std::size_t kAhead = 64;

  // Writes the rest of the file and closes it; false when writing failed at any point or the
  // file was closed before.
  bool close() {
    if (!file_) return false;
    stopAhead();
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

  std::string_view paragraphText(const Paragraph& paragraph) const {
    return std::string_view(text_[paragraph.run].text).substr(paragraph.inRun, paragraph.length);
  }

  // Claims paragraph `i` for the calling thread; false when the other thread has it.
  bool take(std::size_t i) { return !taken_[i].exchange(true); }

  // Lays out paragraph `i` with this thread's context and fonts and publishes its lines.
  void layOutHere(std::size_t i, PangoContext* context, FontCache& fonts, double width) {
    Paragraph& paragraph = paragraphs_[i];
    std::vector<PreparedLine> lines = layOutParagraph(context, fonts, paragraphText(paragraph),
                                                      text_[paragraph.run].style, width);
    {
      std::lock_guard lock(mutex_);
      paragraph.lines = std::move(lines);
      paragraph.width = width;
      ready_[i] = true;
    }
    changed_.notify_all();
  }

  // Makes the lines of paragraph `i`, `width` points wide, ready on the calling thread: laid out
  // here, or by the layout thread (while it works on it, this thread lays out the paragraphs
  // after it that nobody has taken yet).
  void prepare(std::size_t i, double width) {
    {
      std::lock_guard lock(mutex_);
      placing_ = i;
    }
    changed_.notify_all();
    if (take(i)) {
      layOutHere(i, context_, fonts_, width);
    } else {
      std::size_t next = i + 1;
      std::unique_lock lock(mutex_);
      while (!ready_[i]) {
        while (next < paragraphs_.size() && next <= i + kAhead && taken_[next].load()) ++next;
        if (next < paragraphs_.size() && next <= i + kAhead) {
          lock.unlock();
          if (take(next)) layOutHere(next, context_, fonts_, width);
          lock.lock();
        } else {
          changed_.wait(lock, [&] { return ready_[i]; });
        }
      }
    }
    Paragraph& paragraph = paragraphs_[i];
    if (paragraph.width != width) {
      // Laid out ahead for another frame width.
      paragraph.lines = layOutParagraph(context_, fonts_, paragraphText(paragraph),
                                        text_[paragraph.run].style, width);
      paragraph.width = width;
    }
  }

  // The layout thread: lays out the paragraphs not taken yet, in order, up to kAhead after the
  // one being placed.
  void layOutAhead() {
    for (std::size_t i = 0; i < paragraphs_.size(); ++i) {
      {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stopping_ || i <= placing_ + kAhead; });
        if (stopping_) return;
      }
      if (take(i)) layOutHere(i, aheadContext_, aheadFonts_, aheadWidth_);
    }
  }

  void stopAhead() {
    if (!ahead_.joinable()) {
      aheadStopped_ = true;
      return;
    }
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    ahead_.join();
    aheadStopped_ = true;
  }

  // Puts `line` of paragraph `i` on the page with its baseline's left end at (x, y) from the
  // top left, in `grey`.
  void place(std::size_t i, PreparedLine& line, double x, double y, double grey) {
    if (!line.needsPango) {
      const std::size_t before = page_.size();
      for (GlyphRun& run : line.runs) {
        run.grey = grey;
        page_.push_back(std::move(run));
      }
      placeRuns(page_.data() + before, page_.data() + page_.size(), snapToCairo(x), snapToCairo(y));
      return;
    }
    const Paragraph& paragraph = paragraphs_[i];
    drawWithPango(x, y, grey, [&](const auto& draw) {
      withPangoLine(context_, paragraphText(paragraph), text_[paragraph.run].style, paragraph.width,
                    line.start, [&](PangoLayoutLine* pangoLine, const char*) { draw(pangoLine); });
    });
  }

  // Draws, by Pango on this thread, once the writer has drawn everything before it, the line
  // that `find` passes to the function it is given (a line with a font cairo cannot draw with).
  template <typename Find>
  void drawWithPango(double x, double y, double grey, const Find& find) {
    writer_->drawHere(std::move(page_), [&](cairo_t* cairo) {
      find([&](PangoLayoutLine* line) {
        cairo_set_source_rgb(cairo, grey, grey, grey);
        cairo_move_to(cairo, x, y);
        pango_cairo_show_layout_line(cairo, line);
      });
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
        Paragraph& paragraph = paragraphs_.emplace_back();
        paragraph.start = position + from;
        paragraph.length = end - from;
        paragraph.run = run;
        paragraph.inRun = from;
        from = end + 1;
      }
      position += text.size();
    }
  }

 private:
  std::string path_;  // the output file, for the failure
  std::FILE* file_;
  cairo_surface_t* surface_;
  double pageHeight_;
  const Attributed text_;  // read by both layout threads
  cairo_t* cairo_ = nullptr;
  PangoContext* context_ = nullptr;       // this thread's
  PangoContext* aheadContext_ = nullptr;  // the layout thread's, with its own font map
  std::vector<Paragraph> paragraphs_;     // each one's lines: see prepare()
  ScaledFonts scaledFonts_;               // what both caches hand out; outlives them
  FontCache fonts_{&scaledFonts_};        // this thread's; both caches outlive writer_
  FontCache aheadFonts_{&scaledFonts_};   // the layout thread's
  PageRuns page_;                         // the current page's runs
  PangoLayout* lineLayout_ = nullptr;     // drawLine's layout, set in lineStyle_
  Style lineStyle_;
  std::unique_ptr<PageWriter> writer_;

  // Sharing paragraphs with the layout thread. A paragraph's lines belong to the thread that
  // took it until ready_, then to this thread.
  std::unique_ptr<std::atomic<bool>[]> taken_;  // taken by a thread to lay out
  std::mutex mutex_;                 // guards ready_, placing_, stopping_, published lines
  std::condition_variable changed_;  // any of those changed
  std::vector<bool> ready_;          // lines published
  std::size_t placing_ = 0;          // the paragraph this thread places
  bool stopping_ = false;            // the layout thread must end
  double aheadWidth_ = 0;            // the width the layout thread sets paragraphs in
  bool aheadStopped_ = false;        // this thread's: the layout thread ended or never will start
  std::thread ahead_;
};

class PangoTypesetter final : public Typesetter {
 public:
  std::unique_ptr<Document> open(const std::string& path, double pageWidth, double pageHeight,
                                 const Info& info, const Attributed& text) override {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) throw Error("cannot write " + path);
    cairo_surface_t* surface =
        cairo_pdf_surface_create_for_stream(writeToFile, file, pageWidth, pageHeight);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
      cairo_surface_destroy(surface);
      std::fclose(file);
      throw Error(std::string(kNoContext));
    }
    cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_TITLE, info.title.c_str());
    cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_CREATOR, info.creator.c_str());
    return std::make_unique<PangoDocument>(path, file, surface, pageHeight, text);
  }
};

}  // namespace
}  // namespace tallowbrook::TextPdf

extern "C" tallowbrook::TextPdf::Typesetter* tallowbrook_create_text_typesetter() {
  static tallowbrook::TextPdf::PangoTypesetter typesetter;
  return &typesetter;
}
