#include "documents/pango/glyph_runs.h"

#include <algorithm>
#include <cmath>

namespace tallowbrook::TextPdf {

ScaledFonts::~ScaledFonts() {
  for (cairo_scaled_font_t* font : fonts_) cairo_scaled_font_destroy(font);
}

namespace {

bool sameMatrix(const cairo_matrix_t& a, const cairo_matrix_t& b) {
  return a.xx == b.xx && a.yx == b.yx && a.xy == b.xy && a.yy == b.yy && a.x0 == b.x0 &&
         a.y0 == b.y0;
}

// Whether `a` and `b` draw the same glyphs the same way: same face, size, transformation and
// options.
bool sameScaledFont(cairo_scaled_font_t* a, cairo_scaled_font_t* b) {
  if (cairo_scaled_font_get_font_face(a) != cairo_scaled_font_get_font_face(b)) return false;
  cairo_matrix_t ma, mb;
  cairo_scaled_font_get_font_matrix(a, &ma);
  cairo_scaled_font_get_font_matrix(b, &mb);
  if (!sameMatrix(ma, mb)) return false;
  cairo_scaled_font_get_ctm(a, &ma);
  cairo_scaled_font_get_ctm(b, &mb);
  if (!sameMatrix(ma, mb)) return false;
  cairo_font_options_t* oa = cairo_font_options_create();
  cairo_font_options_t* ob = cairo_font_options_create();
  cairo_scaled_font_get_font_options(a, oa);
  cairo_scaled_font_get_font_options(b, ob);
  bool same = cairo_font_options_equal(oa, ob);
  cairo_font_options_destroy(oa);
  cairo_font_options_destroy(ob);
  return same;
}

}  // namespace

cairo_scaled_font_t* ScaledFonts::canonical(cairo_scaled_font_t* font) {
  std::lock_guard lock(mutex_);
  for (cairo_scaled_font_t* held : fonts_) {
    if (held == font || sameScaledFont(held, font)) return held;
  }
  fonts_.push_back(cairo_scaled_font_reference(font));
  return font;
}

FontCache::~FontCache() {
  for (auto& [font, scaled] : fonts_) {
    if (scaled) cairo_scaled_font_destroy(scaled);
    g_object_unref(font);
  }
}

cairo_scaled_font_t* FontCache::scaledFont(PangoFont* font) {
  auto found = fonts_.find(font);
  if (found != fonts_.end()) return found->second;
  cairo_scaled_font_t* scaled = nullptr;
  if (PANGO_IS_CAIRO_FONT(font)) {
    scaled = pango_cairo_font_get_scaled_font(PANGO_CAIRO_FONT(font));
    if (scaled && cairo_scaled_font_status(scaled) == CAIRO_STATUS_SUCCESS) {
      if (shared_) scaled = shared_->canonical(scaled);
      cairo_scaled_font_reference(scaled);
    } else {
      scaled = nullptr;
    }
  }
  g_object_ref(font);
  fonts_.emplace(font, scaled);
  return scaled;
}

double snapToCairo(double coordinate) {
  // cairo stores points as 24.8 fixed point, rounding to the nearest (ties to even).
  return std::nearbyint(coordinate * 256) / 256;
}

namespace {

// A space of a font: its glyph (0 when the font has none) and its advance in points.
struct Space {
  unsigned long glyph = 0;
  double advance = 0;
};

Space spaceOf(cairo_scaled_font_t* font) {
  cairo_glyph_t* glyphs = nullptr;
  int count = 0;
  Space space;
  if (cairo_scaled_font_text_to_glyphs(font, 0, 0, " ", 1, &glyphs, &count, nullptr, nullptr,
                                       nullptr) == CAIRO_STATUS_SUCCESS &&
      count == 1) {
    cairo_text_extents_t extents;
    cairo_scaled_font_glyph_extents(font, glyphs, 1, &extents);
    if (extents.x_advance > 0) space = {glyphs[0].index, extents.x_advance};
  }
  cairo_glyph_free(glyphs);
  return space;
}

// The clusters of `item` as cairo wants them: bytes and drawn glyphs of each, in logical order.
// `drawn` holds how many glyphs each of the item's glyphs was drawn with.
void addClusters(GlyphRun& run, PangoGlyphItem* item, const char* text,
                 const std::vector<int>& drawn) {
  PangoGlyphItemIter iter;
  if (!pango_glyph_item_iter_init_start(&iter, item, text)) return;
  do {
    int bytes = iter.end_index - iter.start_index;
    int count = 0;
    int from = std::min(iter.start_glyph, iter.end_glyph + 1);
    int to = std::max(iter.start_glyph + 1, iter.end_glyph);
    for (int i = from; i < to; ++i) count += drawn[static_cast<std::size_t>(i)];
    run.clusters.push_back({bytes, count});
  } while (pango_glyph_item_iter_next_cluster(&iter));
}

}  // namespace

bool shapeLine(PageRuns& runs, PangoLayoutLine* line, const char* text, FontCache& fonts) {
  const std::size_t before = runs.size();
  int advance = 0;  // Pango units from the line's left end
  for (GSList* node = line->runs; node; node = node->next) {
    auto* item = static_cast<PangoGlyphItem*>(node->data);
    PangoGlyphString* glyphs = item->glyphs;
    int width = pango_glyph_string_get_width(glyphs);
    advance += item->start_x_offset;

    GlyphRun& run = runs.emplace_back();
    run.font = fonts.scaledFont(item->item->analysis.font);
    if (!run.font) {
      runs.resize(before);
      return false;
    }
    // Pango's cairo renderer puts a glyph at (x + advance, y - y_offset) + its own offset, each
    // step in this order; placeRuns does the same additions.
    run.originX = static_cast<double>(advance) / PANGO_SCALE;
    run.originY = static_cast<double>(-item->y_offset) / PANGO_SCALE;
    run.backward = (item->item->analysis.level & 1) != 0;
    run.text.assign(text + item->item->offset, static_cast<std::size_t>(item->item->length));
    run.glyphs.reserve(static_cast<std::size_t>(glyphs->num_glyphs));
    Space space;  // the font's, once a character no font has needs it
    std::vector<int> drawn(static_cast<std::size_t>(glyphs->num_glyphs), 0);
    int position = 0;
    for (int i = 0; i < glyphs->num_glyphs; ++i) {
      const PangoGlyphInfo& glyph = glyphs->glyphs[i];
      const double x = static_cast<double>(position + glyph.geometry.x_offset) / PANGO_SCALE;
      const double y = static_cast<double>(glyph.geometry.y_offset) / PANGO_SCALE;
      if (glyph.glyph & PANGO_GLYPH_UNKNOWN_FLAG) {
        if (space.glyph == 0) space = spaceOf(run.font);
        if (space.glyph == 0) {
          runs.resize(before);
          return false;
        }
        // A frame where Pango would draw its hex box (the glyph's ink rectangle), and spaces
        // from one end of the glyph's advance to the other: text extractors take the
        // character's width from the glyphs that carry it, and would see a word break in a
        // narrower one.
        PangoRectangle ink;
        pango_font_get_glyph_extents(item->item->analysis.font, glyph.glyph, &ink, nullptr);
        run.frameWidth = std::max(ink.height / 16.0 / PANGO_SCALE, 0.25);
        run.missing.push_back({x + static_cast<double>(ink.x) / PANGO_SCALE,
                               y + static_cast<double>(ink.y) / PANGO_SCALE,
                               static_cast<double>(ink.width) / PANGO_SCALE,
                               static_cast<double>(ink.height) / PANGO_SCALE});
        const double last =
            x + static_cast<double>(glyph.geometry.width) / PANGO_SCALE - space.advance;
        for (double at = x;; at += space.advance) {
          const bool end = at >= last;
          run.glyphs.push_back({space.glyph, end ? std::max(last, x) : at, y});
          ++drawn[static_cast<std::size_t>(i)];
          if (end) break;
        }
      } else if (glyph.glyph != PANGO_GLYPH_EMPTY) {
        run.glyphs.push_back({glyph.glyph, x, y});
        drawn[static_cast<std::size_t>(i)] = 1;
      }
      position += glyph.geometry.width;
    }
    addClusters(run, item, text, drawn);
    advance += width + item->end_x_offset;
  }
  return true;
}

void placeRuns(GlyphRun* first, GlyphRun* last, double x, double y) {
  for (GlyphRun* run = first; run != last; ++run) {
    const double baseX = x + run->originX;
    const double baseY = y + run->originY;
    for (cairo_glyph_t& glyph : run->glyphs) {
      glyph.x = baseX + glyph.x;
      // Pango adds nothing for a zero offset; adding 0.0 leaves baseY as it is.
      glyph.y = baseY + glyph.y;
    }
    for (cairo_rectangle_t& frame : run->missing) {
      frame.x += baseX;
      frame.y += baseY;
    }
  }
}

bool appendLine(PageRuns& runs, PangoLayoutLine* line, const char* text, double x, double y,
                double grey, FontCache& fonts) {
  const std::size_t before = runs.size();
  if (!shapeLine(runs, line, text, fonts)) return false;
  for (std::size_t i = before; i < runs.size(); ++i) runs[i].grey = grey;
  placeRuns(runs.data() + before, runs.data() + runs.size(), x, y);
  return true;
}

}  // namespace tallowbrook::TextPdf
