#include "documents/pango/page_writer.h"

#include <utility>

namespace tallowbrook::TextPdf {
namespace {

void draw(cairo_t* cairo, const PageRuns& page) {
  for (const GlyphRun& run : page) {
    cairo_set_source_rgb(cairo, run.grey, run.grey, run.grey);
    cairo_set_scaled_font(cairo, run.font);
    cairo_show_text_glyphs(cairo, run.text.data(), static_cast<int>(run.text.size()),
                           run.glyphs.data(), static_cast<int>(run.glyphs.size()),
                           run.clusters.data(), static_cast<int>(run.clusters.size()),
                           run.backward ? CAIRO_TEXT_CLUSTER_FLAG_BACKWARD
                                        : static_cast<cairo_text_cluster_flags_t>(0));
    if (run.missing.empty()) continue;
    // Frames for characters no font has, drawn as paths (their text is in the glyphs above).
    cairo_set_line_width(cairo, run.frameWidth);
    for (const cairo_rectangle_t& frame : run.missing) {
      const double inset = run.frameWidth / 2;
      cairo_rectangle(cairo, frame.x + inset, frame.y + inset, frame.width - 2 * inset,
                      frame.height - 2 * inset);
    }
    cairo_stroke(cairo);
  }
}

}  // namespace

PageWriter::PageWriter(cairo_t* cairo) : cairo_(cairo), thread_([this] { drawChunks(); }) {}

PageWriter::~PageWriter() {
  finish();
}

void PageWriter::add(Chunk chunk) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return chunks_.size() < kMaxWaiting; });
  chunks_.push_back(std::move(chunk));
  lock.unlock();
  changed_.notify_all();
}

void PageWriter::endPage(PageRuns runs) {
  add({std::move(runs), true});
}

void PageWriter::drawHere(PageRuns runs, const std::function<void(cairo_t*)>& draw) {
  if (!runs.empty()) add({std::move(runs), false});
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return chunks_.empty() && !drawing_; });
  // Holding the lock keeps the writer thread waiting until the drawing is done.
  draw(cairo_);
}

void PageWriter::finish() {
  if (!thread_.joinable()) return;
  {
    std::lock_guard lock(mutex_);
    done_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void PageWriter::drawChunks() {
  for (;;) {
    Chunk chunk;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return !chunks_.empty() || done_; });
      if (chunks_.empty()) return;
      chunk = std::move(chunks_.front());
      chunks_.pop_front();
      drawing_ = true;
    }
    changed_.notify_all();
    draw(cairo_, chunk.runs);
    if (chunk.endsPage) cairo_show_page(cairo_);
    {
      std::lock_guard lock(mutex_);
      drawing_ = false;
    }
    changed_.notify_all();
  }
}

}  // namespace tallowbrook::TextPdf
