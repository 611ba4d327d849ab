#include "documents/pango/paragraph_layout.h"

#include <algorithm>
#include <string>

namespace tallowbrook::TextPdf {
namespace {

// Pango's layout units per point (at 72 dpi a point is one PDF unit).
double fromPango(int units) {
  return static_cast<double>(units) / PANGO_SCALE;
}
int toPango(double points) {
  return static_cast<int>(points * PANGO_SCALE + 0.5);
}

// Fontconfig has neither Georgia nor Menlo on most Linux systems: DejaVu Serif and DejaVu Sans
// Mono stand in (the package depends on them), named before the generic family so that other
// installed fonts (Noto, for the scripts DejaVu lacks) do not change the page's faces. "Menlo"
// alone would fall back to a proportional font.
const char* familyOf(Face face) {
  return face == Face::mono ? "Menlo,DejaVu Sans Mono,monospace" : "Georgia,DejaVu Serif,serif";
}

PangoFontDescription* fontFor(const Style& style) {
  PangoFontDescription* font = pango_font_description_new();
  pango_font_description_set_family(font, familyOf(style.face));
  pango_font_description_set_weight(
      font, style.face == Face::serifBold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_size(font, toPango(style.size));
  return font;
}

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

// Every line of `text` laid out as layOutParagraph lays it out: `line` gets the Pango line, its
// layout's text, the line's start in `text`, and its box.
void eachLine(
    PangoContext* context, std::string_view text, const Style& style, double width,
    const std::function<void(PangoLayoutLine*, const char*, int, const PreparedLine&)>& line) {
  std::string withoutNul;
  if (text.find('\0') != std::string_view::npos) {
    // NUL would end the text for Pango; a space keeps every byte offset where it was.
    withoutNul.assign(text);
    std::replace(withoutNul.begin(), withoutNul.end(), '\0', ' ');
    text = withoutNul;
  }
  std::size_t from = 0;
  for (std::size_t end : pieceEnds(text)) {
    PangoLayout* layout = makeLayout(context, text.substr(from, end - from), style, width);
    const char* layoutText = pango_layout_get_text(layout);
    PangoLayoutIter* iter = pango_layout_get_iter(layout);
    do {
      PangoRectangle logical;
      pango_layout_iter_get_line_extents(iter, nullptr, &logical);
      PangoLayoutLine* current = pango_layout_iter_get_line_readonly(iter);
      PreparedLine box;
      box.start = static_cast<int>(from) + current->start_index;
      box.x = fromPango(logical.x);
      box.height = fromPango(logical.height);
      box.baseline = fromPango(pango_layout_iter_get_baseline(iter) - logical.y);
      line(current, layoutText, box.start, box);
    } while (pango_layout_iter_next_line(iter));
    pango_layout_iter_free(iter);
    g_object_unref(layout);
    from = end;
  }
}

}  // namespace

PangoLanguage* layoutLanguage() {
  // Pango takes each script's fallback fonts in the order fontconfig gives for that script's own
  // language, unless the context's language is one whose scripts it does not know (the C
  // locale's "c"): that one counts as writing every script, so a font that only shares some of a
  // script's characters could come first (Noto Sans Grantha for Tamil, drawing dotted circles).
  PangoLanguage* language = pango_language_get_default();
  int scripts = 0;
  pango_language_get_scripts(language, &scripts);
  return scripts > 0 ? language : pango_language_from_string("en");
}

PangoContext* makeContext(cairo_t* cairo, bool ownFontMap) {
  PangoContext* context;
  if (ownFontMap) {
    PangoFontMap* fontMap = pango_cairo_font_map_new();
    context = pango_font_map_create_context(fontMap);
    g_object_unref(fontMap);
    pango_cairo_update_context(cairo, context);
  } else {
    context = pango_cairo_create_context(cairo);
  }
  pango_cairo_context_set_resolution(context, 72);
  pango_context_set_language(context, layoutLanguage());
  // Glyphs at their true (fractional) positions: rounded to whole points, spacing in small
  // text is visibly uneven, and a PDF needs no pixel grid.
  pango_context_set_round_glyph_positions(context, FALSE);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  pango_cairo_context_set_font_options(context, options);
  cairo_font_options_destroy(options);
  return context;
}

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

std::vector<PreparedLine> layOutParagraph(PangoContext* context, FontCache& fonts,
                                          std::string_view text, const Style& style, double width) {
  std::vector<PreparedLine> lines;
  eachLine(context, text, style, width,
           [&](PangoLayoutLine* line, const char* layoutText, int, const PreparedLine& box) {
             PreparedLine& prepared = lines.emplace_back(box);
             prepared.needsPango = !shapeLine(prepared.runs, line, layoutText, fonts);
           });
  return lines;
}

void withPangoLine(PangoContext* context, std::string_view text, const Style& style, double width,
                   int start, const std::function<void(PangoLayoutLine*, const char*)>& draw) {
  eachLine(context, text, style, width,
           [&](PangoLayoutLine* line, const char* layoutText, int lineStart, const PreparedLine&) {
             if (lineStart == start) draw(line, layoutText);
           });
}

}  // namespace tallowbrook::TextPdf
