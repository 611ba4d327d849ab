// Typeset lines as plain glyph runs: what cairo needs to draw a Pango line (glyph ids at page
// positions, the UTF-8 text and its cluster map, the scaled font, the grey level) and nothing
// of Pango. Lines are turned into runs on the typesetting thread and drawn on the PDF thread,
// so the two never share a Pango object.
#pragma once

#include <cairo.h>
#include <pango/pangocairo.h>

#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace tallowbrook::TextPdf {

// One Pango run of a line, ready for cairo_show_text_glyphs: its text stays extractable from
// the PDF through the clusters.
struct GlyphRun {
  cairo_scaled_font_t* font = nullptr;  // kept alive by the FontCache that made the run
  double grey = 0;                      // text colour, grey level
  std::string text;                     // the run's UTF-8 text
  // Where the run starts from its line's baseline origin, and its glyphs from there; once
  // placed (placeRuns), the glyphs' page positions (points, origin top left).
  double originX = 0;
  double originY = 0;
  std::vector<cairo_glyph_t> glyphs;
  std::vector<cairo_text_cluster_t> clusters;
  bool backward = false;  // right-to-left run: clusters go from the last glyph back
  // Frames drawn for characters that no installed font has, placed like the glyphs (x, y: top
  // left). Such a character keeps its text on invisible space glyphs across its frame.
  std::vector<cairo_rectangle_t> missing;
  double frameWidth = 0;  // line width of those frames
};

// The runs of one page, in drawing order.
using PageRuns = std::vector<GlyphRun>;

// Scaled fonts shared by the FontCaches of several threads. Each thread's Pango font map makes
// its own scaled font for a font; the first one met for a face, size and options stands for all
// equal ones, so cairo writes each font once (its subsetting mishandles one face reached
// through several scaled fonts). Any thread.
class ScaledFonts {
 public:
  ScaledFonts() = default;
  ScaledFonts(const ScaledFonts&) = delete;
  ScaledFonts& operator=(const ScaledFonts&) = delete;
  ~ScaledFonts();

  // The held scaled font equal to `font` (`font` itself, held, when it is the first). Locks
  // mutex_.
  cairo_scaled_font_t* canonical(cairo_scaled_font_t* font);

 private:
  std::mutex mutex_;                         // guards fonts_
  std::vector<cairo_scaled_font_t*> fonts_;  // one reference each
};

// The cairo scaled font of each Pango font met so far, each held (and the Pango font with it,
// so a pointer never names two fonts) until the cache is destroyed. Typesetting thread only;
// the scaled fonts it hands out may be used on any thread (cairo locks them) while the cache
// lives.
class FontCache {
 public:
  // With `shared`, equal scaled fonts of other caches sharing it come out as one; `shared`
  // must outlive the cache and every use of its fonts.
  explicit FontCache(ScaledFonts* shared = nullptr) : shared_(shared) {}
  FontCache(const FontCache&) = delete;
  FontCache& operator=(const FontCache&) = delete;
  ~FontCache();

  // The scaled font Pango draws `font` with; null when it has none.
  cairo_scaled_font_t* scaledFont(PangoFont* font);

 private:
  ScaledFonts* shared_;
  std::unordered_map<PangoFont*, cairo_scaled_font_t*> fonts_;
};

// Appends to `runs` the runs of `line` (of a layout whose text is `text`) relative to the left
// end of its baseline, to be placed with placeRuns. A character that no installed font has
// becomes a frame (GlyphRun::missing) and space glyphs across its width that carry its text:
// Pango's own renderer would draw a hex box whose digits are text, and give the character none.
// False, with `runs` as it was, when the line has a font without a scaled font (or, for such a
// character, without a space): such a line is left to Pango. Same thread as `fonts`.
bool shapeLine(PageRuns& runs, PangoLayoutLine* line, const char* text, FontCache& fonts);

// Puts the runs [first, last) made by shapeLine on the page with their line's baseline origin
// at (`x`, `y`), already on cairo's fixed-point grid (see snapToCairo), glyph for glyph where
// Pango's cairo renderer would put them. Any thread.
void placeRuns(GlyphRun* first, GlyphRun* last, double x, double y);

// Appends to `runs` the runs of `line` (of a layout whose text is `text`) drawn with the
// left end of its baseline at (`x`, `y`) in `grey`, glyph for glyph where Pango's cairo
// renderer would put them (characters no font has: see shapeLine). `x` and `y` must already be
// on cairo's fixed-point grid (see snapToCairo). False, with `runs` as it was, when shapeLine
// leaves the line to Pango. Typesetting thread only.
bool appendLine(PageRuns& runs, PangoLayoutLine* line, const char* text, double x, double y,
                double grey, FontCache& fonts);

// Rounds a point to the grid on which cairo keeps its current point (1/256 of a unit), as
// cairo_move_to followed by cairo_get_current_point would. Pure.
double snapToCairo(double coordinate);

}  // namespace tallowbrook::TextPdf
