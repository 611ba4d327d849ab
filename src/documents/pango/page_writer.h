// The PDF side of text-pdf on a thread of its own: draws the glyph runs of each page into the
// cairo PDF context and ends the page, so cairo's writer (content streams, compression, output)
// works while the typesetting thread shapes and breaks the next pages.
#pragma once

#include <cairo.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "documents/pango/glyph_runs.h"

namespace tallowbrook::TextPdf {

class PageWriter {
 public:
  // Starts the writer thread, which from now on is the only user of `cairo` (outside
  // drawHere) until finish() returns. The fonts of the runs handed over must outlive finish().
  explicit PageWriter(cairo_t* cairo);
  PageWriter(const PageWriter&) = delete;
  PageWriter& operator=(const PageWriter&) = delete;
  // Finishes if finish() was not called.
  ~PageWriter();

  // Hands over the rest of the current page: `runs` are drawn in order, then the page is
  // ended. Waits while many hand-overs are still waiting to be drawn, so memory stays bounded.
  // All members below: one thread (the one that typesets).
  void endPage(PageRuns runs);

  // Hands over `runs` of the current page, then waits until everything handed over is drawn
  // and calls `draw` with the cairo context on the calling thread (for what only Pango can
  // draw; the writer thread does not touch the context meanwhile).
  void drawHere(PageRuns runs, const std::function<void(cairo_t*)>& draw);

  // Waits until everything handed over is drawn, and stops the thread; `cairo` then belongs to
  // the caller again. Later calls do nothing.
  void finish();

 private:
  struct Chunk {
    PageRuns runs;
    bool endsPage = false;
  };

  void add(Chunk chunk);
  void drawChunks();

  static constexpr std::size_t kMaxWaiting = 32;

  cairo_t* cairo_;
  std::mutex mutex_;                 // guards chunks_, drawing_ and done_
  std::condition_variable changed_;  // any of them changed
  std::deque<Chunk> chunks_;         // handed over, not drawn yet
  bool drawing_ = false;             // the writer thread is drawing a chunk it took
  bool done_ = false;                // no more chunks will come
  std::thread thread_;
};

}  // namespace tallowbrook::TextPdf
