// The glyph runs and the writer thread of the text-pdf module: a page drawn from glyph runs on
// the PageWriter's thread must come out byte for byte as the PDF Pango's own cairo renderer
// writes for the same lines (same glyphs, positions, clusters, fonts, order).
#include <cairo-pdf.h>
#include <cairo.h>
#include <pango/pangocairo.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "documents/pango/glyph_runs.h"
#include "documents/pango/page_writer.h"
#include "documents/pango/paragraph_layout.h"
#include "documents/text_typesetter.h"

// The module's factory (the helper finds it with dlsym).
extern "C" tallowbrook::TextPdf::Typesetter* tallowbrook_create_text_typesetter();

namespace tallowbrook::TextPdf {
namespace {

cairo_status_t append(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

// A PDF written into memory, with fixed dates so two runs can be compared byte for byte.
struct MemoryPdf {
  std::string bytes;
  cairo_surface_t* surface = nullptr;
  cairo_t* cairo = nullptr;

  MemoryPdf() {
    surface = cairo_pdf_surface_create_for_stream(append, &bytes, 447, 596);
    cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_CREATE_DATE, "2024-01-01T00:00:00Z");
    cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_MOD_DATE, "2024-01-01T00:00:00Z");
    cairo = cairo_create(surface);
  }
  ~MemoryPdf() {
    if (cairo) cairo_destroy(cairo);
    if (surface) cairo_surface_destroy(surface);
  }
  const std::string& finish() {
    cairo_destroy(cairo);
    cairo = nullptr;
    cairo_surface_finish(surface);
    EXPECT_EQ(cairo_surface_status(surface), CAIRO_STATUS_SUCCESS);
    return bytes;
  }
};

// Whether two PDFs are the same bytes; otherwise where they part (the bytes are too many to
// print).
::testing::AssertionResult samePdf(const std::string& actual, const std::string& expected) {
  if (actual == expected) return ::testing::AssertionSuccess();
  std::size_t at = 0;
  while (at < actual.size() && at < expected.size() && actual[at] == expected[at]) ++at;
  return ::testing::AssertionFailure()
         << "the PDFs (" << actual.size() << " and " << expected.size()
         << " bytes) differ from byte " << at << ": \"" << actual.substr(at, 60)
         << "\" instead of \"" << expected.substr(at, 60) << "\"";
}

// Laid-out paragraphs, set as text-pdf sets them: 72 dpi, unhinted, unrounded glyph positions,
// 300 points wide.
class Paragraphs {
 public:
  explicit Paragraphs(const std::vector<std::string>& texts) {
    cairo_surface_t* scratch = cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1);
    cairo_t* cairo = cairo_create(scratch);
    context_ = pango_cairo_create_context(cairo);
    cairo_destroy(cairo);
    cairo_surface_destroy(scratch);
    pango_cairo_context_set_resolution(context_, 72);
    // Unrounded glyph positions and the language (which picks fallback fonts), as makeContext
    // sets them.
    pango_context_set_round_glyph_positions(context_, FALSE);
    pango_context_set_language(context_, layoutLanguage());
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    pango_cairo_context_set_font_options(context_, options);
    cairo_font_options_destroy(options);
    PangoFontDescription* font =
        pango_font_description_from_string("Georgia,DejaVu Serif,serif 11.5");
    for (const std::string& text : texts) {
      PangoLayout* layout = pango_layout_new(context_);
      pango_layout_set_font_description(layout, font);
      pango_layout_set_width(layout, 300 * PANGO_SCALE);
      pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
      pango_layout_set_text(layout, text.data(), static_cast<int>(text.size()));
      layouts_.push_back(layout);
    }
    pango_font_description_free(font);
  }
  ~Paragraphs() {
    for (PangoLayout* layout : layouts_) g_object_unref(layout);
    g_object_unref(context_);
  }

  // Calls `line` for every line of every paragraph with its layout's text and the left end of
  // its baseline (fractions of a point on purpose, so rounding is exercised).
  void eachLine(const std::function<void(PangoLayoutLine*, const char*, double, double)>& line) {
    double y = 40.3;
    for (PangoLayout* layout : layouts_) {
      for (GSList* node = pango_layout_get_lines_readonly(layout); node; node = node->next) {
        auto* current = static_cast<PangoLayoutLine*>(node->data);
        PangoRectangle logical;
        pango_layout_line_get_extents(current, nullptr, &logical);
        line(current, pango_layout_get_text(layout), 34.137 + logical.x / double(PANGO_SCALE), y);
        y += 14.371;
      }
    }
  }

 private:
  PangoContext* context_ = nullptr;
  std::vector<PangoLayout*> layouts_;
};

// The PDF Pango's renderer writes for `paragraphs`, one page.
std::string drawnByPango(Paragraphs& paragraphs, double grey) {
  MemoryPdf pdf;
  paragraphs.eachLine([&](PangoLayoutLine* line, const char*, double x, double y) {
    cairo_set_source_rgb(pdf.cairo, grey, grey, grey);
    cairo_move_to(pdf.cairo, x, y);
    pango_cairo_show_layout_line(pdf.cairo, line);
  });
  cairo_show_page(pdf.cairo);
  return pdf.finish();
}

// The same page drawn from glyph runs on a PageWriter's thread; lines that appendLine refuses
// are drawn by Pango through drawHere. `refused` counts them.
std::string drawnFromRuns(Paragraphs& paragraphs, double grey, int* refused = nullptr) {
  MemoryPdf pdf;
  FontCache fonts;
  {
    PageWriter writer(pdf.cairo);
    PageRuns page;
    paragraphs.eachLine([&](PangoLayoutLine* line, const char* text, double x, double y) {
      std::size_t before = page.size();
      if (appendLine(page, line, text, snapToCairo(x), snapToCairo(y), grey, fonts)) return;
      EXPECT_EQ(page.size(), before);
      if (refused) ++*refused;
      writer.drawHere(std::move(page), [&](cairo_t* cairo) {
        cairo_set_source_rgb(cairo, grey, grey, grey);
        cairo_move_to(cairo, x, y);
        pango_cairo_show_layout_line(cairo, line);
      });
      page = {};
    });
    writer.endPage(std::move(page));
    writer.finish();
  }
  return pdf.finish();
}

TEST(TextPdfGlyphRuns, LatinPageIsTheSameAsPangosOwn) {
  Paragraphs paragraphs({
      "AVATAR Type, WAVE; kerning pairs: To, Yo, LT, fi fl ffi. The quick brown fox jumps over "
      "the lazy dog, again and again, until the line has to break somewhere near the end.",
      "Combining marks: e\u0301 a\u0308 o\u0303; soft\u00adhyphen; zero\u200bwidth space.",
  });
  std::string expected = drawnByPango(paragraphs, 0);
  EXPECT_TRUE(samePdf(drawnFromRuns(paragraphs, 0), expected));
}

TEST(TextPdfGlyphRuns, EveryScriptIsTheSameAsPangosOwn) {
  Paragraphs paragraphs({
      "Съешь же ещё этих мягких французских булок, да выпей чаю. Ξεσκεπάζω την ψυχοφθόρα.",
      "我能吞下玻璃而不伤身体。私はガラスを食べられます。それは私を傷つけません。",
      "שלום עולם, זה טקסט בעברית עם מספרים 123 ו-English words בתוכו.",
      "مرحبا بالعالم، هذا نص عربي للاختبار مع أرقام ١٢٣ وكلمات English.",
      "दुष्ट राक्षसों के राजा। আমি কাঁচ খেতে পারি। நான் கண்ணாடி சாப்பிடுவேன். "
      "ฉันกินกระจกได้ ខ្ញុំអាចញុំកញ្ចក់បាន ብርሃን ዘርአይ 나는 유리를 먹을 수 있어요.",
      "Apples \U0001F34E and bees \U0001F41D, a flag \U0001F1E9\U0001F1EA, a family "
      "\U0001F468\u200D\U0001F469\u200D\U0001F467.",
  });
  std::string expected = drawnByPango(paragraphs, 0.35);
  EXPECT_TRUE(samePdf(drawnFromRuns(paragraphs, 0.35), expected));
}

// Where each cluster of `run` starts in its text and among its glyphs, in logical order.
struct ClusterAt {
  std::size_t byte = 0;
  std::size_t glyph = 0;
  int bytes = 0;
  int glyphs = 0;
};
std::vector<ClusterAt> clustersOf(const GlyphRun& run) {
  std::vector<ClusterAt> out;
  std::size_t byte = 0;
  std::size_t glyph = 0;
  for (const cairo_text_cluster_t& cluster : run.clusters) {
    out.push_back({byte, glyph, cluster.num_bytes, cluster.num_glyphs});
    byte += static_cast<std::size_t>(cluster.num_bytes);
    glyph += static_cast<std::size_t>(cluster.num_glyphs);
  }
  return out;
}

TEST(TextPdfGlyphRuns, ACharacterNoFontHasKeepsItsTextOnASpaceInAFrame) {
  // Pango's renderer would draw a hex box (its digits as text) and give the character no glyph,
  // so the PDF would lose it. The runs draw a frame instead and map the character to space
  // glyphs of its font across the frame: cairo writes its text, the spaces draw nothing.
  Paragraphs paragraphs({"Here \uE000\uE001 are two characters no font has, and more words."});
  PageRuns page;
  FontCache fonts;
  paragraphs.eachLine([&](PangoLayoutLine* line, const char* text, double x, double y) {
    EXPECT_TRUE(appendLine(page, line, text, snapToCairo(x), snapToCairo(y), 0, fonts));
  });
  std::vector<std::string> carried;
  std::size_t frames = 0;
  for (const GlyphRun& run : page) {
    frames += run.missing.size();
    std::size_t frame = 0;
    unsigned long space = 0;
    for (const ClusterAt& cluster : clustersOf(run)) {
      std::string text = run.text.substr(cluster.byte, static_cast<std::size_t>(cluster.bytes));
      if (text == " ") space = run.glyphs[cluster.glyph].index;
      if (text != "\uE000" && text != "\uE001") continue;
      carried.push_back(text);
      ASSERT_GE(cluster.glyphs, 1);
      ASSERT_LT(frame, run.missing.size());
      const cairo_glyph_t& glyph = run.glyphs[cluster.glyph];
      const cairo_rectangle_t& box = run.missing[frame++];
      // The space of "Here " before it, from where its frame is, on the baseline.
      for (int g = 0; g < cluster.glyphs; ++g) {
        EXPECT_EQ(run.glyphs[cluster.glyph + static_cast<std::size_t>(g)].index, space);
      }
      EXPECT_GT(box.width, 1);
      EXPECT_GT(box.height, 5);
      EXPECT_GE(box.x, glyph.x);
      EXPECT_LT(box.x, glyph.x + 2);
      EXPECT_LT(box.y, glyph.y);
      EXPECT_LE(box.y + box.height, glyph.y + 1);
    }
    EXPECT_EQ(frame, run.missing.size());
    if (!run.missing.empty()) {
      EXPECT_GT(run.frameWidth, 0);
    }
  }
  EXPECT_EQ(frames, 2u);
  EXPECT_EQ(carried, (std::vector<std::string>{"\uE000", "\uE001"}));
}

TEST(TextPdfGlyphRuns, PointsSnapToCairosGrid) {
  cairo_surface_t* scratch = cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1);
  cairo_t* cairo = cairo_create(scratch);
  for (double value : {0.0, 34.0, 34.137, 50.601562, 562.0 + 1.0 / 512, 0.5 / 256, 1.5 / 256,
                       123.456789, 595.99999}) {
    cairo_move_to(cairo, value, value);
    double x = 0;
    double y = 0;
    cairo_get_current_point(cairo, &x, &y);
    EXPECT_EQ(snapToCairo(value), x) << value;
  }
  cairo_destroy(cairo);
  cairo_surface_destroy(scratch);
}

TEST(TextPdfPageWriter, PagesComeOutInOrder) {
  // Many small pages through the bounded queue: each page's runs, then its end, in order.
  Paragraphs paragraphs({"One line of text."});
  PageRuns line;
  FontCache fonts;
  paragraphs.eachLine([&](PangoLayoutLine* current, const char* text, double x, double y) {
    ASSERT_TRUE(appendLine(line, current, text, snapToCairo(x), snapToCairo(y), 0, fonts));
  });
  ASSERT_FALSE(line.empty());

  MemoryPdf expected;
  MemoryPdf actual;
  {
    PageWriter writer(actual.cairo);
    for (int page = 0; page < 100; ++page) {
      PageRuns runs;
      for (int i = 0; i <= page % 3; ++i) {
        GlyphRun run = line[0];
        for (cairo_glyph_t& glyph : run.glyphs) glyph.y += 20 * i;
        run.grey = page % 2 ? 0.5 : 0;
        runs.push_back(run);
        cairo_set_source_rgb(expected.cairo, run.grey, run.grey, run.grey);
        cairo_set_scaled_font(expected.cairo, run.font);
        cairo_show_text_glyphs(expected.cairo, run.text.data(), static_cast<int>(run.text.size()),
                               run.glyphs.data(), static_cast<int>(run.glyphs.size()),
                               run.clusters.data(), static_cast<int>(run.clusters.size()),
                               static_cast<cairo_text_cluster_flags_t>(0));
      }
      cairo_show_page(expected.cairo);
      writer.endPage(std::move(runs));
    }
  }
  const std::string& written = actual.finish();
  EXPECT_TRUE(samePdf(written, expected.finish()));
}

TEST(TextPdfScaledFonts, TheFirstOfEqualFontsStandsForThemAndOthersStayApart) {
  // Two threads' font maps can each make a scaled font for the same face and size (cairo makes
  // two when both ask at once); the registry hands out the first one for both.
  cairo_font_face_t* face =
      cairo_toy_font_face_create("DejaVu Serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_matrix_t identity;
  cairo_matrix_init_identity(&identity);
  cairo_matrix_t size11;
  cairo_matrix_init_scale(&size11, 11.5, 11.5);
  cairo_matrix_t size8;
  cairo_matrix_init_scale(&size8, 8, 8);
  cairo_scaled_font_t* a = cairo_scaled_font_create(face, &size11, &identity, options);
  cairo_scaled_font_t* b = cairo_scaled_font_create(face, &size8, &identity, options);
  {
    ScaledFonts fonts;
    EXPECT_EQ(fonts.canonical(a), a);
    EXPECT_EQ(fonts.canonical(b), b);
    EXPECT_EQ(fonts.canonical(a), a);
    cairo_scaled_font_destroy(a);  // the registry still holds it
    EXPECT_EQ(cairo_scaled_font_status(fonts.canonical(b)), CAIRO_STATUS_SUCCESS);
    EXPECT_EQ(cairo_scaled_font_get_reference_count(a), 1u);
  }
  cairo_scaled_font_destroy(b);
  cairo_font_options_destroy(options);
  cairo_font_face_destroy(face);
}

TEST(TextPdfParagraphLayout, AnotherFontMapGivesTheSameLinesAndFonts) {
  // The layout thread has a font map of its own; its lines must be the ones this thread would
  // make, down to the scaled fonts cairo draws with.
  MemoryPdf pdf;
  PangoContext* here = makeContext(pdf.cairo, false);
  PangoContext* other = makeContext(pdf.cairo, true);
  ScaledFonts shared;
  FontCache hereFonts(&shared);
  FontCache otherFonts(&shared);
  const Style serif{Face::serif, 11.5, 0, 4, 0, 1.25};
  const Style mono{Face::mono, 8, 0.35, 1, 6, 1.25};
  for (const char* text :
       {"The quick brown fox jumps over the lazy dog, again and again, until it breaks.",
        "Съешь же ещё этих мягких французских булок. 我能吞下玻璃而不伤身体。",
        "שלום עולם 123 مرحبا بالعالم \U0001F34E\U0001F41D and a private \uE000 character.",
        "A\0NUL byte counts as a space."}) {
    for (const Style& style : {serif, mono}) {
      auto a = layOutParagraph(here, hereFonts, text, style, 379);
      auto b = layOutParagraph(other, otherFonts, text, style, 379);
      ASSERT_EQ(a.size(), b.size()) << text;
      for (std::size_t l = 0; l < a.size(); ++l) {
        EXPECT_EQ(a[l].start, b[l].start);
        EXPECT_EQ(a[l].x, b[l].x);
        EXPECT_EQ(a[l].height, b[l].height);
        EXPECT_EQ(a[l].baseline, b[l].baseline);
        EXPECT_GE(a[l].height, style.size * 1.25);
        EXPECT_EQ(a[l].needsPango, b[l].needsPango);
        ASSERT_EQ(a[l].runs.size(), b[l].runs.size());
        for (std::size_t r = 0; r < a[l].runs.size(); ++r) {
          const GlyphRun& x = a[l].runs[r];
          const GlyphRun& y = b[l].runs[r];
          // One scaled font for both: cairo then writes each font once.
          EXPECT_EQ(x.font, y.font);
          EXPECT_EQ(x.text, y.text);
          EXPECT_EQ(x.originX, y.originX);
          ASSERT_EQ(x.missing.size(), y.missing.size());
          for (std::size_t m = 0; m < x.missing.size(); ++m) {
            EXPECT_EQ(x.missing[m].x, y.missing[m].x);
            EXPECT_EQ(x.missing[m].y, y.missing[m].y);
          }
          ASSERT_EQ(x.glyphs.size(), y.glyphs.size());
          for (std::size_t g = 0; g < x.glyphs.size(); ++g) {
            EXPECT_EQ(x.glyphs[g].index, y.glyphs[g].index);
            EXPECT_EQ(x.glyphs[g].x, y.glyphs[g].x);
            EXPECT_EQ(x.glyphs[g].y, y.glyphs[g].y);
          }
          ASSERT_EQ(x.clusters.size(), y.clusters.size());
          for (std::size_t c = 0; c < x.clusters.size(); ++c) {
            EXPECT_EQ(x.clusters[c].num_bytes, y.clusters[c].num_bytes);
            EXPECT_EQ(x.clusters[c].num_glyphs, y.clusters[c].num_glyphs);
          }
        }
      }
    }
  }
  auto lines = layOutParagraph(here, hereFonts, "Here \uE000 no font has this.", serif, 379);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_FALSE(lines[0].needsPango);
  std::size_t frames = 0;
  for (const GlyphRun& run : lines[0].runs) frames += run.missing.size();
  EXPECT_EQ(frames, 1u);
  g_object_unref(other);
  g_object_unref(here);
}

TEST(TextPdfParagraphLayout, MarksStayInTheFontOfTheirLetters) {
  // A run that starts with a combining mark was cut from its letter by a change of font: the
  // shaper then draws the mark on a dotted circle. That happens when a fallback font that only
  // shares some of a script's characters comes before the script's own font (with the C
  // locale's language, Noto Sans Grantha before Noto Sans Tamil).
  MemoryPdf pdf;
  PangoContext* context = makeContext(pdf.cairo, false);
  FontCache fonts;
  for (const char* text :
       {"ऋषियों को सताने वाले दुष्ट राक्षसों के राजा रावण का सर्वनाश करने वाले।",
        "আমি কাঁচ খেতে পারি, তাতে আমার কোনো ক্ষতি হয় না।",
        "நான் கண்ணாடி சாப்பிடுவேன், அதனால் எனக்கு ஒரு கேடும் வராது.", "ฉันกินกระจกได้ แต่มันไม่ทำให้ฉันเจ็บ",
        "ខ្ញុំអាចញុំកញ្ចក់បាន ដោយគ្មានបញ្ហារ", "ብርሃን ዘርአይ ቆንጆ ልጅ ነው።"}) {
    for (const PreparedLine& line :
         layOutParagraph(context, fonts, text, {Face::serif, 11.5, 0, 4, 0, 1.25}, 379)) {
      EXPECT_FALSE(line.needsPango);
      for (const GlyphRun& run : line.runs) {
        ASSERT_FALSE(run.text.empty());
        gunichar first = g_utf8_get_char(run.text.c_str());
        EXPECT_FALSE(g_unichar_ismark(first)) << text << ": a run starts with U+" << std::hex
                                              << first << " in \"" << run.text << "\"";
      }
    }
  }
  g_object_unref(context);
}

TEST(TextPdfParagraphLayout, AStretchWithoutSpacesIsSetInPiecesOnNewLines) {
  MemoryPdf pdf;
  PangoContext* context = makeContext(pdf.cairo, false);
  FontCache fonts;
  std::string word(10000, 'x');
  auto lines = layOutParagraph(context, fonts, word, {Face::serif, 11.5, 0, 4, 0, 1.25}, 379);
  ASSERT_GT(lines.size(), 3u);
  std::vector<int> starts;
  for (const PreparedLine& line : lines) starts.push_back(line.start);
  EXPECT_TRUE(std::is_sorted(starts.begin(), starts.end()));
  EXPECT_EQ(starts.front(), 0);
  // Each piece of 4096 bytes starts a line of its own.
  EXPECT_NE(std::find(starts.begin(), starts.end(), 4096), starts.end());
  EXPECT_NE(std::find(starts.begin(), starts.end(), 8192), starts.end());
  g_object_unref(context);
}

// A document of many pages and paragraphs through the real typesetter, as text-pdf drives it.
std::string typesetDocument(const std::string& path) {
  Attributed text;
  const Style label{Face::mono, 8, 0.35, 1, 6, 1.25};
  const Style body{Face::serif, 11.5, 0, 4, 0, 1.25};
  text.push_back({"Typeset twice\n", {Face::serifBold, 17, 0, 4, 0, 1.25}});
  for (int i = 0; i < 300; ++i) {
    text.push_back({"Entry " + std::to_string(i) + "\n", label});
    std::string words;
    for (int w = 0; w <= i % 50; ++w) words += (w % 7 ? "meadow " : "Съешь 我能 ");
    text.push_back({words + "\n", body});
  }
  std::unique_ptr<Document> document = tallowbrook_create_text_typesetter()->open(
      path, 447, 596, {"Typeset twice", "Tallowbrook"}, text);
  std::size_t position = 0;
  std::size_t length = 0;
  for (const Run& run : text) length += run.text.size();
  int pages = 0;
  while (position < length) {
    document->beginPage();
    std::size_t placed = document->fillFrame({34, 154, 379, 408}, position);
    document->drawLine("Tallowbrook \u00B7 " + std::to_string(++pages), label, 34, 16);
    document->endPage();
    if (placed == 0) break;
    position += placed;
  }
  EXPECT_EQ(position, length);
  EXPECT_GT(pages, 10);
  EXPECT_NO_THROW(document->finish());
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  // Only the creation date may differ between two runs.
  auto date = bytes.find("/CreationDate (");
  if (date != std::string::npos) bytes.erase(date, bytes.find(')', date) - date);
  return bytes;
}

TEST(TextPdfTypesetter, TwoRunsWriteTheSameDocument) {
  // Which thread lays out which paragraph varies from run to run; the document must not.
  auto dir = std::filesystem::temp_directory_path();
  std::string first = typesetDocument((dir / "textpdf-twice-1.pdf").string());
  std::string second = typesetDocument((dir / "textpdf-twice-2.pdf").string());
  std::filesystem::remove(dir / "textpdf-twice-1.pdf");
  std::filesystem::remove(dir / "textpdf-twice-2.pdf");
  EXPECT_GT(first.size(), 10000u);
  EXPECT_TRUE(samePdf(second, first));
}

}  // namespace
}  // namespace tallowbrook::TextPdf
