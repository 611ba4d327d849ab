// pdf-page and pdf-text on the shared corpus of real PDFs, beside Poppler's own tools:
// pdftoppm's rendering of the crop box and pdftotext's words with their boxes. Also every
// corpus file cut short at ten lengths, and a page drawn at 8000 x 8000.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <regex>

#include <gtest/gtest.h>

#include "pdf_test_support.h"
#include "run_helper.h"

namespace {

using nlohmann::json;
using pdf_test::corpusDir;
using pdf_test::corpusFiles;
using pdf_test::ScratchDir;

// Documents whose first page's text is partly not page text, or not in reading order: text
// drawn by annotations (AcroForm field values, a FreeText box), which pdftotext includes and a
// page's own text does not, and right-to-left Arabic, which pdftotext reorders for display.
bool textComparable(const std::string& name) {
  return name != "pdfminer__acroform-test.pdf" && name != "pypdf__libreoffice-form.pdf" &&
         name != "pdfminer__irs-i1040nr-50pages.pdf" && name != "pypdf__arabic-habibi.pdf";
}

struct PageInfo {
  int rotation = -1;
  double media[4] = {0, 0, 0, 0};
  double crop[4] = {0, 0, 0, 0};
};

// Page 1's rotation and boxes as pdfinfo reports them; rotation -1 when pdfinfo cannot read it.
PageInfo pageInfo(const std::string& path) {
  PageInfo info;
  auto run = runProgram({"pdfinfo", "-box", "-f", "1", "-l", "1", path});
  std::smatch m;
  std::regex rot(R"(Page +1 rot: +(\d+))");
  std::regex media(R"(Page +1 MediaBox: +(\S+) +(\S+) +(\S+) +(\S+))");
  std::regex crop(R"(Page +1 CropBox: +(\S+) +(\S+) +(\S+) +(\S+))");
  if (std::regex_search(run.out, m, rot)) info.rotation = std::stoi(m[1]);
  if (std::regex_search(run.out, m, media)) {
    for (int i = 0; i < 4; ++i) info.media[i] = std::stod(m[i + 1]);
  }
  if (std::regex_search(run.out, m, crop)) {
    for (int i = 0; i < 4; ++i) info.crop[i] = std::stod(m[i + 1]);
  }
  return info;
}

struct Word {
  double x0, y0, x1, y1;  // top-left origin, points, relative to the crop box
  std::string text;
  bool sideways;  // on a line that runs up or down the page
};

std::string unescaped(std::string text) {
  const std::pair<const char*, const char*> entities[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}};
  for (const auto& [entity, plain] : entities) {
    for (size_t at = text.find(entity); at != std::string::npos; at = text.find(entity, at + 1)) {
      text.replace(at, strlen(entity), plain);
    }
  }
  return text;
}

// pdftotext's words of page 1 whose centres lie inside the crop box, moved from media-box
// coordinates to the crop box.
std::vector<Word> pdftotextWords(const std::string& path, const PageInfo& info,
                                 const ScratchDir& dir) {
  std::string html = dir.file("words.html");
  runProgram({"pdftotext", "-f", "1", "-l", "1", "-bbox-layout", path, html});
  std::string text = pdf_test::slurp(html);
  std::regex line(
      R"re(<line xMin="([-\d.]+)" yMin="([-\d.]+)" xMax="([-\d.]+)" yMax="([-\d.]+)">([\s\S]*?)</line>)re");
  std::regex word(
      R"re(<word xMin="([-\d.]+)" yMin="([-\d.]+)" xMax="([-\d.]+)" yMax="([-\d.]+)">([^<]*)</word>)re");
  double dx = info.crop[0] - info.media[0];
  double dy = info.media[3] - info.crop[3];
  double width = info.crop[2] - info.crop[0];
  double height = info.crop[3] - info.crop[1];
  std::vector<Word> words;
  for (std::sregex_iterator l(text.begin(), text.end(), line), end; l != end; ++l) {
    const std::smatch& lm = *l;
    std::string inside = lm[5];
    std::vector<Word> lineWords;
    size_t characters = 0;
    for (std::sregex_iterator it(inside.begin(), inside.end(), word); it != end; ++it) {
      const std::smatch& m = *it;
      lineWords.push_back(Word{std::stod(m[1]) - dx, std::stod(m[2]) - dy, std::stod(m[3]) - dx,
                               std::stod(m[4]) - dy, unescaped(m[5]), false});
      characters += lineWords.back().text.size();
    }
    // A line of one or two characters is taller than wide whichever way it runs.
    double lineWidth = std::stod(lm[3]) - std::stod(lm[1]);
    double lineHeight = std::stod(lm[4]) - std::stod(lm[2]);
    bool sideways = characters >= 3 && lineHeight > lineWidth;
    for (Word& w : lineWords) {
      w.sideways = sideways;
      double cx = (w.x0 + w.x1) / 2, cy = (w.y0 + w.y1) / 2;
      if (cx >= 0 && cx <= width && cy >= 0 && cy <= height) words.push_back(w);
    }
  }
  return words;
}

// The bytes of `text` without white space.
std::string withoutSpaces(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c != ' ' && c != '\t' && c != '\n' && c != '\r') out += c;
  }
  return out;
}

// 2 x longest common subsequence / total length: 1 for equal sequences, 0 for disjoint ones.
double similarity(const std::string& a, const std::string& b) {
  if (a.empty() && b.empty()) return 1;
  std::vector<int> previous(b.size() + 1, 0), current(b.size() + 1, 0);
  for (char x : a) {
    for (size_t j = 0; j < b.size(); ++j) {
      current[j + 1] = x == b[j] ? previous[j] + 1 : std::max(previous[j + 1], current[j]);
    }
    std::swap(previous, current);
  }
  return 2.0 * previous[b.size()] / double(a.size() + b.size());
}

json runJson(const std::vector<std::string>& args) {
  auto run = pdf_test::runBounded(args);
  EXPECT_FALSE(run.timedOut);
  auto lines = jsonLines(run.out);
  EXPECT_EQ(lines.size(), 1u) << run.out;
  return lines.empty() ? json() : lines[0];
}

TEST(PdfCorpus, EveryFileGivesAResultOrTheOpenFailure) {
  ScratchDir dir;
  auto files = corpusFiles();
  ASSERT_GE(files.size(), 30u);
  for (const auto& name : files) {
    std::string path = corpusDir() + "/" + name;
    for (const char* command : {"pdf-page", "pdf-text"}) {
      std::vector<std::string> args = {command, path, "1"};
      if (std::string(command) == "pdf-page") args.push_back(dir.file("page.png"));
      auto run = pdf_test::runBounded(args);
      ASSERT_FALSE(run.timedOut) << name;
      EXPECT_EQ(run.signal, 0) << name;
      EXPECT_EQ(run.err, "") << name;
      auto lines = jsonLines(run.out);
      ASSERT_EQ(lines.size(), 1u) << name << ": " << run.out;
      if (run.status == 0) {
        EXPECT_EQ(lines[0]["type"], command) << name;
      } else {
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_EQ(lines[0]["message"],
                  std::string(command) + ": could not open " + path + " as a PDF")
            << name;
      }
    }
  }
}

TEST(PdfCorpus, EncryptedMalformedAndEmptyFilesCannotBeOpened) {
  for (const char* name :
       {"pdfminer__encrypted-aes256-pw-baz.pdf", "pdfplumber__encrypted-rc4-pw-test.pdf",
        "pypdf__encrypted-rc4-pw-openpassword.pdf", "pdfplumber__empty-0-bytes.pdf"}) {
    std::string path = corpusDir() + "/" + name;
    json failure = runJson({"pdf-text", path, "1"});
    EXPECT_EQ(failure["message"], "pdf-text: could not open " + path + " as a PDF");
  }
}

TEST(PdfCorpus, PagesLookLikePdftoppmsRenderingOfTheCropBox) {
  ScratchDir dir;
  int compared = 0;
  for (const auto& name : corpusFiles()) {
    std::string path = corpusDir() + "/" + name;
    PageInfo info = pageInfo(path);
    if (info.rotation != 0) continue;
    json summary = runJson({"pdf-page", path, "1", dir.file("ours.png")});
    if (summary["type"] != "pdf-page") continue;
    runProgram({"pdftoppm", "-f", "1", "-l", "1", "-cropbox", "-scale-to-x", "1404", "-scale-to-y",
                "1872", "-singlefile", path, dir.file("peer")});
    auto ours = pdf_test::readPng(dir.file("ours.png"));
    auto peer = pdf_test::readPpm(dir.file("peer.ppm"));
    ASSERT_TRUE(ours) << name;
    ASSERT_TRUE(peer) << name;
    ASSERT_EQ(peer->width, 1404) << name;
    ASSERT_EQ(peer->height, 1872) << name;
    ASSERT_EQ(ours->width, 1404);
    ASSERT_EQ(ours->height, 1872);
    double db = pdf_test::psnr(*ours, *peer);
    EXPECT_GE(db, 25) << name;
    printf("  %-45s PSNR %.1f dB\n", name.c_str(), db);
    ++compared;
  }
  EXPECT_GE(compared, 20);
}

TEST(PdfCorpus, LinesMatchPdftotextsWordsAndPlaces) {
  ScratchDir dir;
  int compared = 0;
  for (const auto& name : corpusFiles()) {
    std::string path = corpusDir() + "/" + name;
    PageInfo info = pageInfo(path);
    if (info.rotation != 0 || !textComparable(name)) continue;
    json result = runJson({"pdf-text", path, "1"});
    if (result["type"] != "pdf-text") continue;
    auto words = pdftotextWords(path, info, dir);
    std::string ours, theirs;
    for (const auto& line : result["lines"]) ours += line["text"].get<std::string>() + "\n";
    for (const auto& word : words) theirs += word.text;
    double similar = similarity(withoutSpaces(ours), withoutSpaces(theirs));
    EXPECT_GE(similar, 0.97) << name;

    // Each of pdftotext's words that our text has lies inside a line of ours holding it.
    double width = info.crop[2] - info.crop[0];
    double height = info.crop[3] - info.crop[1];
    int located = 0, considered = 0;
    for (const auto& word : words) {
      // Sideways words are single characters stacked on lines of their own in page space.
      if (word.sideways || ours.find(word.text) == std::string::npos) continue;
      ++considered;
      bool found = false;
      double cx = (word.x0 + word.x1) / 2, cy = (word.y0 + word.y1) / 2;
      for (const auto& line : result["lines"]) {
        double x0 = line["x"].get<double>() * width, y0 = line["y"].get<double>() * height;
        double x1 = x0 + line["w"].get<double>() * width;
        double y1 = y0 + line["h"].get<double>() * height;
        if (cx >= x0 - 1 && cx <= x1 + 1 && cy >= y0 - 1 && cy <= y1 + 1 &&
            line["text"].get<std::string>().find(word.text) != std::string::npos) {
          found = true;
          break;
        }
      }
      if (found) {
        ++located;
      } else {
        printf("    not in place: %s at %.1f %.1f\n", word.text.c_str(), cx, cy);
      }
    }
    EXPECT_EQ(located, considered) << name;
    printf("  %-45s similarity %.3f, words in place %d/%d\n", name.c_str(), similar, located,
           considered);
    ++compared;
  }
  EXPECT_GE(compared, 15);
}

TEST(PdfCorpus, FilesCutShortGiveAResultOrAFailure) {
  ScratchDir dir;
  for (const auto& name : corpusFiles()) {
    std::string bytes = pdf_test::slurp(corpusDir() + "/" + name);
    if (bytes.empty()) continue;
    for (int k = 1; k <= 10; ++k) {
      std::string cut = dir.file("cut.pdf");
      std::ofstream(cut, std::ios::binary)
          .write(bytes.data(), std::streamsize(bytes.size() * k / 11));
      for (const char* command : {"pdf-page", "pdf-text"}) {
        std::vector<std::string> args = {command, cut, "1"};
        if (std::string(command) == "pdf-page") {
          args.insert(args.end(), {dir.file("cut.png"), "300", "400"});
        }
        auto run = pdf_test::runBounded(args);
        ASSERT_FALSE(run.timedOut) << name << " cut at " << k << "/11";
        EXPECT_EQ(run.signal, 0) << name << " cut at " << k << "/11";
        EXPECT_TRUE(run.status == 0 || run.status == 1);
        auto lines = jsonLines(run.out);
        ASSERT_EQ(lines.size(), 1u) << name << ": " << run.out;
        EXPECT_EQ(lines[0]["type"], run.status == 0 ? command : "error") << name;
      }
    }
  }
}

TEST(PdfCorpus, APageDrawnAt8000By8000) {
  ScratchDir dir;
  std::string path = corpusDir() + "/pypdf__multicolumn.pdf";
  json summary = runJson({"pdf-page", path, "1", dir.file("big.png"), "8000", "8000"});
  EXPECT_EQ(summary["width"], 8000);
  EXPECT_EQ(summary["height"], 8000);
  auto image = pdf_test::readPng(dir.file("big.png"));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 8000);
  EXPECT_EQ(image->height, 8000);
}

}  // namespace
