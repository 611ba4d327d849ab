// text-pdf as the application runs it: the built helper writes PDFs that poppler-utils read
// back (pdftotext, pdfinfo, pdffonts) and fontconfig describes.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_helper.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

class TextPdfCli : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("textpdf-cli-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ignored;
    fs::permissions(dir_, fs::perms::owner_all, ignored);
    fs::remove_all(dir_, ignored);
  }
  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  fs::path dir_;
};

// Runs text-pdf and expects its done line; returns it.
json makePdf(const std::string& out, const std::string& request) {
  RunOptions options;
  options.input = request;
  options.timeoutMs = 120000;
  auto run = runHelper({"text-pdf", out}, options);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  EXPECT_EQ(lines.size(), 1u) << run.out;
  if (lines.size() != 1) return json();
  EXPECT_EQ(lines[0]["type"], "done");
  return lines[0];
}

HelperRun textPdf(const std::vector<std::string>& args, const std::string& input) {
  RunOptions options;
  options.input = input;
  std::vector<std::string> all{"text-pdf"};
  all.insert(all.end(), args.begin(), args.end());
  return runHelper(all, options);
}

std::string tool(const std::vector<std::string>& argv) {
  auto run = runProgram(argv);
  EXPECT_EQ(run.status, 0) << argv[0] << ": " << run.err;
  return run.out;
}

// pdftotext's text of `pdf` (pages `first` ... `last`, 0: all).
std::string pdfText(const std::string& pdf, int first = 0, int last = 0) {
  std::vector<std::string> argv{"pdftotext", "-enc", "UTF-8"};
  if (first > 0) argv.insert(argv.end(), {"-f", std::to_string(first), "-l", std::to_string(last)});
  argv.insert(argv.end(), {pdf, "-"});
  return tool(argv);
}

std::vector<std::string> words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> out;
  for (std::string word; in >> word;) out.push_back(word);
  return out;
}

std::string withoutSpaces(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c != ' ' && c != '\n' && c != '\f' && c != '\t' && c != '\r') out += c;
  }
  return out;
}

// The value of `key` in pdfinfo's output for `pdf`.
std::string info(const std::string& pdf, const std::string& key) {
  std::istringstream in(tool({"pdfinfo", pdf}));
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(key + ":", 0) == 0) {
      std::size_t value = line.find_first_not_of(' ', key.size() + 1);
      return value == std::string::npos ? "" : line.substr(value);
    }
  }
  return "<none>";
}

struct FontRow {
  std::string name;  // without the subset tag
  bool subset = false;
  bool embedded = false;
};

std::vector<FontRow> fonts(const std::string& pdf) {
  std::istringstream in(tool({"pdffonts", pdf}));
  std::vector<FontRow> rows;
  std::string line;
  std::getline(in, line);
  std::getline(in, line);
  while (std::getline(in, line)) {
    auto columns = words(line);
    if (columns.size() < 7) continue;
    // name type... emb sub uni id gen: count from the end.
    std::size_t n = columns.size();
    FontRow row;
    row.name = columns[0];
    row.embedded = columns[n - 5] == "yes";
    row.subset = columns[n - 4] == "yes";
    if (row.name.size() > 7 && row.name[6] == '+') row.name = row.name.substr(7);
    rows.push_back(row);
  }
  return rows;
}

std::string request(const std::string& title, const json& subtitle, const json& lines) {
  json doc{{"title", title}, {"lines", lines}};
  if (!subtitle.is_null()) doc["subtitle"] = subtitle;
  return doc.dump();
}

std::vector<std::string> expectedWords(const std::vector<std::string>& parts) {
  std::vector<std::string> out;
  for (const auto& part : parts) {
    auto more = words(part);
    out.insert(out.end(), more.begin(), more.end());
  }
  return out;
}

TEST_F(TextPdfCli, LatinRoundTripInfoAndFonts) {
  std::string out = path("latin.pdf");
  json lines = json::array({{{"label", "Monday 3 June"},
                             {"text",
                              "The river rose two feet overnight and the lower meadow "
                              "is under water, so we moved the hives uphill."}},
                            {{"text", "A line without a label."}}});
  json done = makePdf(out, request("Field notes", "Archive of the farm", lines));
  EXPECT_EQ(done["pages"], 1);
  EXPECT_EQ(done["bytes"], fs::file_size(out));

  EXPECT_EQ(words(pdfText(out)),
            expectedWords({"Field notes", "Archive of the farm", "Monday 3 June", lines[0]["text"],
                           lines[1]["text"], "Tallowbrook \u00B7 1"}));
  EXPECT_EQ(info(out, "Title"), "Field notes");
  EXPECT_EQ(info(out, "Creator"), "Tallowbrook");
  EXPECT_EQ(info(out, "Pages"), "1");
  EXPECT_EQ(info(out, "Page size"), "447 x 596 pts");

  auto rows = fonts(out);
  ASSERT_FALSE(rows.empty());
  for (const auto& row : rows) {
    EXPECT_TRUE(row.embedded) << row.name;
    EXPECT_TRUE(row.subset) << row.name;
  }
  // The grey runs are set in a monospaced font, as fontconfig knows it.
  std::set<std::string> monospaced;
  for (const auto& name : words(tool({"fc-list", ":spacing=mono", "postscriptname"}))) {
    monospaced.insert(name.substr(name.find('=') + 1));
  }
  bool anyMono = false;
  for (const auto& row : rows) anyMono = anyMono || monospaced.count(row.name) > 0;
  EXPECT_TRUE(anyMono);
}

TEST_F(TextPdfCli, CyrillicRoundTrip) {
  std::string out = path("cyrillic.pdf");
  json lines = json::array({{{"label", "Понедельник"},
                             {"text",
                              "Река поднялась за ночь на два фута, и нижний луг под "
                              "водой. Мы перенесли ульи."}},
                            {{"label", "Вторник"}, {"text", "Вода ушла."}}});
  makePdf(out, request("Полевые заметки", "Архив", lines));
  EXPECT_EQ(words(pdfText(out)),
            expectedWords({"Полевые заметки", "Архив", "Понедельник", lines[0]["text"], "Вторник",
                           "Вода ушла.", "Tallowbrook \u00B7 1"}));
  EXPECT_EQ(info(out, "Title"), "Полевые заметки");
}

TEST_F(TextPdfCli, CjkRoundTrip) {
  std::string out = path("cjk.pdf");
  json lines = json::array({{{"label", "月曜日"}, {"text", "東京都の天気は晴れです。"}},
                            {{"label", "火曜日"}, {"text", "今日は雨が降っています。"}}});
  makePdf(out, request("野帳", nullptr, lines));
  EXPECT_EQ(withoutSpaces(pdfText(out)),
            withoutSpaces("野帳月曜日東京都の天気は晴れです。火曜日今日は雨が降っています。"
                          "Tallowbrook \u00B7 1"));
}

// pdftotext's text without white space and without the bidirectional embedding marks it adds
// around right-to-left runs (U+202A ... U+202E).
std::string withoutSpacesOrMarks(const std::string& text) {
  std::string out = withoutSpaces(text);
  for (const char* mark : {"\u202A", "\u202B", "\u202C", "\u202D", "\u202E"}) {
    for (std::size_t at; (at = out.find(mark)) != std::string::npos;) out.erase(at, 3);
  }
  return out;
}

TEST_F(TextPdfCli, RightToLeftTextComesBackInReadingOrder) {
  std::string out = path("rtl.pdf");
  json lines = json::array({{{"label", "עברית"}, {"text", "שלום עולם"}},
                            {{"label", "العربية"}, {"text", "مرحبا بالعالم"}}});
  makePdf(out, request("RTL", nullptr, lines));
  EXPECT_EQ(withoutSpacesOrMarks(pdfText(out)),
            withoutSpaces("RTL עברית שלום עולם العربية مرحبا بالعالم Tallowbrook \u00B7 1"));
}

TEST_F(TextPdfCli, EmojiAreDrawnAsPicturesBetweenTheText) {
  std::string out = path("emoji.pdf");
  makePdf(out, request("Party", nullptr,
                       json::array({{{"text", "before \U0001F389\U0001F642 after"}}})));
  // In drawing order: pdftotext's own reading order puts a word after a picture in a block of
  // its own.
  EXPECT_EQ(words(tool({"pdftotext", "-raw", "-enc", "UTF-8", out, "-"})),
            expectedWords({"Party", "before", "after", "Tallowbrook \u00B7 1"}));
  // Colour emoji glyphs become images in the PDF: two lines of header, then one per image.
  std::string images = tool({"pdfimages", "-list", out});
  EXPECT_GE(std::count(images.begin(), images.end(), '\n'), 3) << images;
}

// The code points of UTF-8 `text`, each once, without white space.
std::set<char32_t> codePoints(const std::string& text) {
  std::set<char32_t> out;
  for (std::size_t i = 0; i < text.size();) {
    unsigned char lead = static_cast<unsigned char>(text[i]);
    int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t c = length == 1 ? lead : lead & (0x7F >> length);
    for (int k = 1; k < length && i + k < text.size(); ++k) {
      c = (c << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
    }
    if (c != ' ' && c != '\n' && c != '\t') out.insert(c);
    i += static_cast<std::size_t>(length);
  }
  return out;
}

// The PostScript names of the installed fonts that have `c`, as fontconfig knows them.
const std::set<std::string>& fontsWith(char32_t c) {
  static std::map<char32_t, std::set<std::string>> known;
  auto found = known.find(c);
  if (found != known.end()) return found->second;
  char charset[32];
  std::snprintf(charset, sizeof charset, ":charset=%x", static_cast<unsigned>(c));
  std::set<std::string>& names = known[c];
  std::istringstream in(tool({"fc-list", charset, "postscriptname"}));
  for (std::string line; std::getline(in, line);) {
    auto equals = line.find('=');
    if (equals != std::string::npos) names.insert(line.substr(equals + 1));
  }
  return names;
}

// The characters of `text` (as U+XXXX) that no font embedded in `pdf` has. Pango lays a
// character out in the first font of its fallback list that has it; one that no installed font
// has stays in the line's own font (which lacks it) and is drawn as a frame. So when every
// character is in some font of the page, as fontconfig reports the fonts' character sets, none
// was drawn as a frame; an empty answer means no glyph is missing.
std::vector<std::string> charactersWithoutFont(const std::string& pdf, const std::string& text) {
  std::set<std::string> embedded;
  for (const auto& row : fonts(pdf)) embedded.insert(row.name);
  std::vector<std::string> missing;
  for (char32_t c : codePoints(text)) {
    const auto& names = fontsWith(c);
    bool any = std::any_of(names.begin(), names.end(),
                           [&](const std::string& name) { return embedded.count(name) > 0; });
    if (!any) {
      char code[16];
      std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(c));
      missing.push_back(code);
    }
  }
  return missing;
}

// How pdftotext reads a script back.
enum class Reading {
  layout,  // its default: lines from the glyphs' positions, right-to-left runs reordered
  // Content stream order: for scripts whose marks stack above and below their letters (Thai,
  // Khmer), which the layout analysis would put on lines of their own or after the next letter.
  // The text is the same either way; only pdftotext's reconstruction differs.
  drawingOrder,
};

// Typesets `text` labelled `label` and expects every glyph drawn from a font (no frame for a
// missing character) and the text back from pdftotext, white space and bidirectional marks
// aside (pdftotext breaks lines and adds embedding marks around right-to-left runs).
void expectScript(const std::string& pdf, const std::string& label, const std::string& text,
                  Reading reading = Reading::layout) {
  makePdf(pdf, request("T", nullptr, json::array({{{"label", label}, {"text", text}}})));
  EXPECT_EQ(charactersWithoutFont(pdf, label + text), std::vector<std::string>{});
  std::string back = reading == Reading::layout
                         ? pdfText(pdf)
                         : tool({"pdftotext", "-raw", "-enc", "UTF-8", pdf, "-"});
  EXPECT_EQ(withoutSpacesOrMarks(back), withoutSpaces("T" + label + text + "Tallowbrook \u00B7 1"))
      << back;
}

TEST_F(TextPdfCli, LatinWithLigaturesHasEveryGlyphAndComesBack) {
  // "ffi", "fl", "ff", "fi" are ligature glyphs; each maps back to its letters.
  expectScript(path("latin.pdf"), "Latin",
               "The office staff fluffed the fine waffles; affluent flyers fled. \u00C9t\u00E9, "
               "na\u00EFve, \u0141\u00F3d\u017A, \u0218tefan.");
}

TEST_F(TextPdfCli, CyrillicHasEveryGlyphAndComesBack) {
  expectScript(path("cyrillic.pdf"), "Русский",
               "Съешь же ещё этих мягких французских булок, да выпей чаю.");
}

TEST_F(TextPdfCli, GreekHasEveryGlyphAndComesBack) {
  expectScript(path("greek.pdf"), "Ελληνικά", "Ξεσκεπάζω την ψυχοφθόρα βδελυγμία.");
}

TEST_F(TextPdfCli, HebrewHasEveryGlyphAndComesBack) {
  expectScript(path("hebrew.pdf"), "עברית", "דג סקרן שט בים מאוכזב ולפתע מצא חברה.");
}

TEST_F(TextPdfCli, ArabicHasEveryGlyphAndComesBack) {
  // Joined letter forms map back to the letters typed.
  expectScript(path("arabic.pdf"), "العربية",
               "نص حكيم له سر قاطع وذو شأن عظيم مكتوب على ثوب أخضر.");
}

TEST_F(TextPdfCli, DevanagariHasEveryGlyphAndComesBack) {
  // Conjuncts and vowel signs before their consonant come back in typed order.
  expectScript(path("devanagari.pdf"), "हिन्दी",
               "ऋषियों को सताने वाले दुष्ट राक्षसों के राजा रावण का सर्वनाश करने वाले।");
}

TEST_F(TextPdfCli, BengaliHasEveryGlyphAndComesBack) {
  expectScript(path("bengali.pdf"), "বাংলা", "আমি কাঁচ খেতে পারি, তাতে আমার কোনো ক্ষতি হয় না।");
}

TEST_F(TextPdfCli, TamilHasEveryGlyphAndComesBack) {
  expectScript(path("tamil.pdf"), "தமிழ்", "நான் கண்ணாடி சாப்பிடுவேன், அதனால் எனக்கு ஒரு கேடும் வராது.");
}

TEST_F(TextPdfCli, ThaiHasEveryGlyphAndComesBack) {
  expectScript(path("thai.pdf"), "ไทย", "ฉันกินกระจกได้ แต่มันไม่ทำให้ฉันเจ็บ", Reading::drawingOrder);
}

TEST_F(TextPdfCli, KhmerHasEveryGlyphAndComesBack) {
  expectScript(path("khmer.pdf"), "ខ្មែរ", "ខ្ញុំអាចញុំកញ្ចក់បាន ដោយគ្មានបញ្ហារ", Reading::drawingOrder);
}

TEST_F(TextPdfCli, EthiopicHasEveryGlyphAndComesBack) {
  expectScript(path("ethiopic.pdf"), "አማርኛ", "ብርሃን ዘርአይ ቆንጆ ልጅ ነው።");
}

TEST_F(TextPdfCli, CjkHasEveryGlyphAndComesBack) {
  expectScript(path("cjk.pdf"), "中文", "我能吞下玻璃而不伤身体。私はガラスを食べられます。");
}

TEST_F(TextPdfCli, HangulHasEveryGlyphAndComesBack) {
  expectScript(path("hangul.pdf"), "한국어", "나는 유리를 먹을 수 있어요. 그래도 아프지 않아요.");
}

TEST_F(TextPdfCli, EveryEmojiIsDrawnAsAPicture) {
  // Colour emoji are pictures, not text: each distinct one becomes an image of the page, and
  // the words around them come back.
  std::string out = path("emoji-each.pdf");
  makePdf(out, request("T", nullptr,
                       json::array({{{"label", "Emoji"},
                                     {"text",
                                      "apple \U0001F34E bee \U0001F41D party \U0001F389 smile "
                                      "\U0001F642 end"}}})));
  std::string images = tool({"pdfimages", "-list", out});
  // Two lines of header, then one per image.
  EXPECT_GE(std::count(images.begin(), images.end(), '\n'), 2 + 4) << images;
  EXPECT_EQ(withoutSpaces(tool({"pdftotext", "-raw", "-enc", "UTF-8", out, "-"})),
            withoutSpaces("T Emoji apple bee party smile end Tallowbrook \u00B7 1"));
}

TEST_F(TextPdfCli, ACharacterNoFontHasComesBackAsText) {
  // U+E000 and U+E001 (private use) are in no installed font: the page shows frames for them,
  // and the PDF still carries them as text, in place, for search and copy.
  std::string out = path("missing.pdf");
  std::string text = "Here \uE000\uE001 are two characters no font has, and more words.";
  makePdf(out, request("T", nullptr, json::array({{{"text", text}}})));
  EXPECT_EQ(charactersWithoutFont(out, text), (std::vector<std::string>{"U+E000", "U+E001"}));
  EXPECT_EQ(words(pdfText(out)), expectedWords({"T", text, "Tallowbrook \u00B7 1"}));
}

TEST_F(TextPdfCli, EmptyLinesGiveOnePageWithTitleAndSubtitle) {
  std::string out = path("empty.pdf");
  json done = makePdf(out, R"({"title":"Only a title","subtitle":"and a subtitle","lines":[]})");
  EXPECT_EQ(done["pages"], 1);
  EXPECT_EQ(info(out, "Pages"), "1");
  EXPECT_EQ(words(pdfText(out)),
            expectedWords({"Only a title", "and a subtitle", "Tallowbrook \u00B7 1"}));
}

TEST_F(TextPdfCli, EmptyLabelAndEmptyTextAndNulls) {
  std::string out = path("empties.pdf");
  json done = makePdf(out, R"({"title":"T","subtitle":null,"lines":[{"label":"","text":""},)"
                           R"({"label":null,"text":"after"}],"unknown":{"a":1}})");
  EXPECT_EQ(done["pages"], 1);
  EXPECT_EQ(words(pdfText(out)), expectedWords({"T", "after", "Tallowbrook \u00B7 1"}));
}

TEST_F(TextPdfCli, LongTextIsNumberedPageAfterPage) {
  std::string out = path("long.pdf");
  json lines = json::array();
  for (int i = 0; i < 120; ++i) {
    lines.push_back({{"label", "Entry " + std::to_string(i)},
                     {"text", "Paragraph number " + std::to_string(i) +
                                  " says a few words about the weather and the hives, long "
                                  "enough to wrap onto a second line of the frame."}});
  }
  json done = makePdf(out, request("Many pages", "subtitle", lines));
  int pages = done["pages"];
  ASSERT_GT(pages, 3);
  EXPECT_EQ(info(out, "Pages"), std::to_string(pages));
  EXPECT_EQ(done["bytes"], fs::file_size(out));
  for (int page = 1; page <= pages; ++page) {
    auto pageWords = words(pdfText(out, page, page));
    ASSERT_GE(pageWords.size(), 3u);
    std::vector<std::string> tail(pageWords.end() - 3, pageWords.end());
    EXPECT_EQ(tail, (std::vector<std::string>{"Tallowbrook", "\u00B7", std::to_string(page)}));
  }
  // Everything comes back in order across the pages, footers between them.
  std::vector<std::string> expected = expectedWords({"Many pages", "subtitle"});
  std::vector<std::string> all = words(pdfText(out));
  std::vector<std::string> withoutFooters;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i] == "Tallowbrook" && i + 2 < all.size() && all[i + 1] == "\u00B7") {
      i += 2;
      continue;
    }
    withoutFooters.push_back(all[i]);
  }
  for (const auto& line : lines) {
    auto more = expectedWords({line["label"], line["text"]});
    expected.insert(expected.end(), more.begin(), more.end());
  }
  EXPECT_EQ(withoutFooters, expected);
}

TEST_F(TextPdfCli, AWordOf200000CharactersBreaksAcrossPages) {
  std::string out = path("word.pdf");
  std::string word(200000, 'x');
  json done = makePdf(out, request("T", nullptr, json::array({{{"text", word}}})));
  EXPECT_GT(done["pages"].get<int>(), 10);
  EXPECT_EQ(info(out, "Pages"), std::to_string(done["pages"].get<int>()));
  std::string text = pdfText(out);
  EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 200000);
}

TEST_F(TextPdfCli, AFiftyMegabyteRequestGivesANormalPdf) {
  std::string out = path("big.pdf");
  std::string padding(50 * 1024 * 1024, 'p');
  json doc{{"title", "Big"}, {"ignored", padding}, {"lines", json::array({{{"text", "small"}}})}};
  json done = makePdf(out, doc.dump());
  EXPECT_EQ(done["pages"], 1);
  EXPECT_EQ(words(pdfText(out)), expectedWords({"Big", "small", "Tallowbrook \u00B7 1"}));
}

TEST_F(TextPdfCli, AFiftyMegabyteNonRequestFails) {
  std::string out = path("big.pdf");
  RunOptions options;
  options.input = std::string(50 * 1024 * 1024, '[');
  options.timeoutMs = 120000;
  auto run = runHelper({"text-pdf", out}, options);
  expectFailureDocument(run, "could not parse the request on stdin");
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(TextPdfCli, InputThatNeverEndsIsNotARequest) {
  std::string out = path("endless.pdf");
  RunOptions options;
  options.timeoutMs = 20000;
  auto run = runHelperFedForever({"text-pdf", out}, options);
  EXPECT_FALSE(run.timedOut);
  expectFailureDocument(run, "could not parse the request on stdin");
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(TextPdfCli, BadRequestsFailWithoutAFile) {
  std::string out = path("bad.pdf");
  for (const char* input :
       {"", "not json", "[1]", R"({"lines":[]})", R"({"title":"T"})",
        R"({"title":"T","lines":{"text":"a"}})", R"({"title":"T","lines":[{"label":"only"}]})"}) {
    expectFailureDocument(textPdf({out}, input), "could not parse the request on stdin");
    EXPECT_FALSE(fs::exists(out)) << input;
  }
}

TEST_F(TextPdfCli, NoPathPrintsTheUsage) {
  expectFailureDocument(textPdf({}, R"({"title":"T","lines":[]})"), "usage: text-pdf <out.pdf>");
}

TEST_F(TextPdfCli, FurtherArgumentsAreIgnored) {
  std::string out = path("extra.pdf");
  auto run = textPdf({out, "more", "words"}, R"({"title":"T","lines":[]})");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(fs::exists(out));
}

TEST_F(TextPdfCli, UnwritableOutputsFail) {
  std::string missing = path("no-such-folder/out.pdf");
  expectFailureDocument(textPdf({missing}, R"({"title":"T","lines":[]})"),
                        "cannot write " + missing);
  expectFailureDocument(textPdf({dir_.string()}, R"({"title":"T","lines":[]})"),
                        "cannot write " + dir_.string());
  if (::geteuid() != 0) {
    fs::permissions(dir_, fs::perms::owner_read | fs::perms::owner_exec);
    std::string locked = path("locked.pdf");
    expectFailureDocument(textPdf({locked}, R"({"title":"T","lines":[]})"),
                          "cannot write " + locked);
  }
}

TEST_F(TextPdfCli, AFullDiskFailsAndLeavesNoFile) {
  expectFailureDocument(textPdf({"/dev/full"}, R"({"title":"T","lines":[{"text":"a"}]})"),
                        "cannot write /dev/full");
  EXPECT_TRUE(fs::exists("/dev/full"));
}

}  // namespace
