// One paragraph of text-pdf typeset by Pango: shaped, broken into lines of the frame's width,
// and each line turned into glyph runs, so what is kept holds no Pango object and can be
// placed on a page by another thread than the one that laid it out.
#pragma once

#include <pango/pangocairo.h>

#include <functional>
#include <string_view>
#include <vector>

#include "documents/pango/glyph_runs.h"
#include "documents/text_typesetter.h"

namespace tallowbrook::TextPdf {

// The language of text-pdf's contexts: the locale's, or English where Pango does not know
// which scripts the locale's language writes (the C locale). Any thread.
PangoLanguage* layoutLanguage();

// A Pango context set as text-pdf sets its text: 72 dpi (a point is a PDF unit), no hinting,
// unrounded metrics and glyph positions, layoutLanguage(), plus what cairo's PDF surface asks for.
// A new font map when `ownFontMap` (Pango's objects are not shared between threads), else the
// thread's default one. Reads `cairo`'s target; the context belongs to the calling thread until
// handed over.
PangoContext* makeContext(cairo_t* cairo, bool ownFontMap);

// A layout of `text` in `style`: `width` points wide (0: unbounded, one line), every line
// exactly lineHeight x size tall. Same thread as `context`.
PangoLayout* makeLayout(PangoContext* context, std::string_view text, const Style& style,
                        double width);

// One line of a laid-out paragraph.
struct PreparedLine {
  int start = 0;            // byte offset in the paragraph
  double x = 0;             // left edge (right-to-left lines are aligned right)
  double height = 0;        // line height
  double baseline = 0;      // baseline below the line's top
  PageRuns runs;            // relative to the baseline's left end (see placeRuns)
  bool needsPango = false;  // has a font cairo cannot draw with: only Pango can (drawWithPango)
};

// Lays out `text` (one paragraph, without its "\n"; NUL bytes count as spaces) in `style`,
// `width` points wide. A stretch of more than 4096 bytes without a space is set in pieces (Pango
// breaks such a stretch in quadratic time), each starting a new line. Same thread as `context`
// and `fonts`.
std::vector<PreparedLine> layOutParagraph(PangoContext* context, FontCache& fonts,
                                          std::string_view text, const Style& style, double width);

// Lays out `text` as layOutParagraph does and calls `draw` with the Pango line that starts at
// byte `start`, and its layout's text. Same thread as `context`.
void withPangoLine(PangoContext* context, std::string_view text, const Style& style, double width,
                   int start, const std::function<void(PangoLayoutLine*, const char*)>& draw);

}  // namespace tallowbrook::TextPdf
