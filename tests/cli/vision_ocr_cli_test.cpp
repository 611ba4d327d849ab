// vision-ocr with the real recogniser, on images rendered from known text and on the corpus.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "run_helper.h"

namespace {

const std::string kImages = OCR_IMAGES_DIR;
const std::string kCorpus = CORPORA_DIR "/ocr/tesseract-test";

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string folded(const std::string& text) {
  std::istringstream words(text);
  std::string word, out;
  while (words >> word) out += (out.empty() ? "" : " ") + word;
  return out;
}

double characterErrorRate(const std::string& text, const std::string& truth) {
  std::string a = folded(text), b = folded(truth);
  std::vector<size_t> previous(b.size() + 1), current(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    current[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      current[j] = std::min(
          {previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0)});
    }
    std::swap(previous, current);
  }
  return double(previous[b.size()]) / double(std::max<size_t>(1, b.size()));
}

// Runs vision-ocr and returns its one report; expects status 0 and a silent stderr. Large
// scanned pages take seconds each, many more on a loaded machine: two minutes before giving up.
nlohmann::json recognize(const std::string& path, std::vector<std::string> options = {}) {
  std::vector<std::string> words{"vision-ocr", path};
  words.insert(words.end(), options.begin(), options.end());
  RunOptions patient;
  patient.timeoutMs = 120000;
  auto run = runHelper(words, patient);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  EXPECT_EQ(lines.size(), 1u) << run.out;
  return lines.empty() ? nlohmann::json() : lines[0];
}

std::vector<std::string> texts(const nlohmann::json& report) {
  std::vector<std::string> result;
  for (const auto& line : report["lines"]) result.push_back(line["text"]);
  return result;
}

std::string joined(const nlohmann::json& report) {
  std::string text;
  for (const auto& line : report["lines"]) text += line["text"].get<std::string>() + "\n";
  return text;
}

void expectWellFormedLines(const nlohmann::json& report) {
  ASSERT_EQ(report["lineCount"], report["lines"].size());
  int index = 0;
  for (const auto& line : report["lines"]) {
    EXPECT_EQ(line["index"], index);
    EXPECT_EQ(line["ord"], index);
    ++index;
    const auto& b = line["bbox"];
    EXPECT_GE(b["x"].get<double>(), 0);
    EXPECT_GE(b["y"].get<double>(), 0);
    EXPECT_GE(b["w"].get<double>(), 0);
    EXPECT_GE(b["h"].get<double>(), 0);
    EXPECT_LE(b["x"].get<double>() + b["w"].get<double>(), 1 + 1e-12);
    EXPECT_LE(b["y"].get<double>() + b["h"].get<double>(), 1 + 1e-12);
    for (const char* key : {"confidence", "obsConfidence"}) {
      ASSERT_TRUE(line.contains(key));
      EXPECT_GT(line[key].get<double>(), 0);
      EXPECT_LE(line[key].get<double>(), 1);
    }
    EXPECT_FALSE(line.contains("block") && line["block"].is_null());
  }
}

void expectFailure(const std::vector<std::string>& words, const std::string& message) {
  auto run = runHelper(words);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u) << run.out;
  EXPECT_EQ(lines[0], (nlohmann::json{{"type", "error"}, {"message", message}}));
}

TEST(VisionOcr, TwoParagraphsKeepTheirTextOrderAndBlocks) {
  auto report = recognize(kImages + "/paragraphs.png");
  EXPECT_EQ(report["type"], "vision-ocr");
  EXPECT_EQ(report["engine"], "documents");
  EXPECT_EQ(report["width"], 1400);
  EXPECT_EQ(report["height"], 700);
  EXPECT_EQ(report["settings"], (nlohmann::json{{"useLanguageCorrection", "false"},
                                                {"automaticallyDetectLanguage", "false"},
                                                {"languages", "en-US"},
                                                {"minimumTextHeightFraction", "0.0"}}));
  EXPECT_EQ(texts(report),
            (std::vector<std::string>{
                "The archive keeps every letter", "that arrived during the winter.",
                "Receipts are filed by month", "and scanned at three hundred dots."}));
  expectWellFormedLines(report);
  std::vector<int> blocks;
  double previousY = -1;
  for (const auto& line : report["lines"]) {
    blocks.push_back(line["block"]);
    EXPECT_GT(line["bbox"]["y"].get<double>(), previousY);
    previousY = line["bbox"]["y"];
  }
  EXPECT_EQ(blocks, (std::vector<int>{0, 0, 1, 1}));
  // The first line starts 80 px from the left and 80 px from the top of a 1400 x 700 page.
  EXPECT_NEAR(report["lines"][0]["bbox"]["x"].get<double>(), 80.0 / 1400, 0.01);
  EXPECT_NEAR(report["lines"][0]["bbox"]["y"].get<double>(), 80.0 / 700, 0.03);
}

TEST(VisionOcr, SkewedLineIsReadAndBoxedWhole) {
  auto report = recognize(kImages + "/skewed.png");
  ASSERT_EQ(texts(report), std::vector<std::string>{"Skewed lines still read well"});
  expectWellFormedLines(report);
  // Turned 6 degrees, the 650 px long line spans far more than its 50 px letters in height.
  EXPECT_GT(report["lines"][0]["bbox"]["h"].get<double>() * 300, 90);
}

TEST(VisionOcr, MinimumTextHeightDropsSmallLines) {
  auto all = recognize(kImages + "/small-text.png");
  EXPECT_EQ(texts(all), (std::vector<std::string>{"Large heading text",
                                                  "small footnote text that is much lower"}));
  auto large = recognize(kImages + "/small-text.png", {"--min-text-height", "0.1"});
  EXPECT_EQ(texts(large), std::vector<std::string>{"Large heading text"});
  EXPECT_EQ(large["settings"]["minimumTextHeightFraction"], "0.1");
  EXPECT_EQ(large["lines"][0]["index"], 0);
}

TEST(VisionOcr, ReadsEveryCommonImageFormat) {
  for (const char* format : {"jpg", "webp", "gif", "bmp", "pnm", "tif"}) {
    auto report = recognize(kImages + "/formats/phototest." + format);
    EXPECT_EQ(texts(report), (std::vector<std::string>{"This is a lot of text to test",
                                                       "the recognition of formats."}))
        << format;
  }
}

TEST(VisionOcr, CorpusPageMatchesItsGroundTruth) {
  auto report = recognize(kCorpus + "/phototest.tif");
  expectWellFormedLines(report);
  EXPECT_LE(characterErrorRate(joined(report), slurp(kCorpus + "/phototest.gt.txt")), 0.01);
}

TEST(VisionOcr, TurnedPagesAreReadUpright) {
  for (const char* name : {"phototest-rotated-L", "phototest-rotated-R", "phototest-rotated-180"}) {
    auto report = recognize(kCorpus + "/" + name + ".png");
    expectWellFormedLines(report);
    EXPECT_LE(characterErrorRate(joined(report), slurp(kCorpus + "/" + name + ".gt.txt")), 0.01)
        << name << ": " << joined(report);
  }
  // Turned a quarter, lines run down the page: their boxes are tall and narrow.
  auto sideways = recognize(kCorpus + "/phototest-rotated-L.png");
  ASSERT_GT(sideways["lines"].size(), 0u);
  const auto& box = sideways["lines"][0]["bbox"];
  EXPECT_GT(box["h"].get<double>() * 640, box["w"].get<double>() * 480 * 3);
}

TEST(VisionOcr, OtherInstalledLanguagesAndDetection) {
  auto german = recognize(kImages + "/paragraphs.png", {"--languages", "de-DE,en-US"});
  EXPECT_EQ(german["settings"]["languages"], "de-DE,en-US");
  EXPECT_EQ(german["lineCount"], 4);
  auto detected = recognize(kImages + "/paragraphs.png", {"--auto-language", "yes"});
  EXPECT_EQ(detected["settings"]["automaticallyDetectLanguage"], "true");
  EXPECT_EQ(texts(detected)[0], "The archive keeps every letter");
  auto corrected = recognize(kImages + "/paragraphs.png", {"--language-correction", "on"});
  EXPECT_EQ(texts(corrected)[3], "and scanned at three hundred dots.");
}

TEST(VisionOcr, LanguageWithoutDataFailsNamingIt) {
  expectFailure({"vision-ocr", kImages + "/paragraphs.png", "--languages", "en-US,fr-FR"},
                "Vision failed: no recognition data is installed for the language \"fr-FR\" "
                "(install tesseract-ocr-fra)");
  expectFailure({"vision-ocr", kImages + "/paragraphs.png", "--languages", "xx-YY"},
                "Vision failed: unsupported recognition language \"xx-YY\"");
}

TEST(VisionOcr, UnreadableFilesFailWithTheReadMessage) {
  for (const char* name : {"missing.png", "empty.png", "truncated.png", "text.png", "formats"}) {
    std::string path = kImages + "/" + name;
    expectFailure({"vision-ocr", path}, "could not read an image at " + path);
  }
}

// Pages stored as colour PNGs (grey text in RGB, RGBA and grey+alpha; coloured text on
// coloured ground) read exactly as the same pixels stored as a TIFF, which is decoded in colour.
TEST(VisionOcr, ColourPngsReadAsTheSamePageInATiff) {
  for (const char* name : {"gray-rgb", "gray-rgba", "gray-la", "black-on-cream", "navy-on-pink",
                           "yellow-on-white", "red-on-blue", "eurotext-tinted"}) {
    const std::string base = kImages + "/colour/" + name;
    auto png = recognize(base + ".png");
    auto tiff = recognize(base + ".tif");
    EXPECT_EQ(png["lines"], tiff["lines"]) << name;
    if (std::string(name).rfind("gray-", 0) == 0) {
      EXPECT_EQ(texts(png), (std::vector<std::string>{"The archive keeps every letter",
                                                      "that arrived during the winter.",
                                                      "Receipts are filed by month"}))
          << name;
    }
  }
}

TEST(VisionOcr, BlankAndNearWhiteColourPages) {
  auto blank = recognize(kImages + "/colour/blank.png");
  EXPECT_EQ(blank["width"], 3000);
  EXPECT_EQ(blank["lineCount"], 0);
  auto labels = recognize(kImages + "/colour/near-white.png");
  EXPECT_EQ(texts(labels), (std::vector<std::string>{"North gate", "South"}));
  expectWellFormedLines(labels);
}

TEST(VisionOcr, TruncatedColourPngsFailWithTheReadMessage) {
  char dir[] = "/tmp/tallowbrook-cut-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  // One page that is grey in RGB, one in colour, cut within the header and at twelve points
  // through the image data, short of the closing chunk.
  for (const char* name : {"gray-rgb", "black-on-cream"}) {
    const std::string whole = slurp(kImages + "/colour/" + name + ".png");
    ASSERT_GT(whole.size(), 1000u) << name;
    const std::string cut = std::string(dir) + "/" + name + ".png";
    const size_t last = whole.size() - 13;
    for (size_t length : {size_t(0), size_t(8), size_t(16), size_t(33), size_t(40), size_t(60)}) {
      std::ofstream(cut, std::ios::binary | std::ios::trunc)
          .write(whole.data(), std::streamsize(length));
      expectFailure({"vision-ocr", cut}, "could not read an image at " + cut);
    }
    for (int step = 1; step <= 12; ++step) {
      std::ofstream(cut, std::ios::binary | std::ios::trunc)
          .write(whole.data(), std::streamsize(60 + (last - 60) * step / 12));
      expectFailure({"vision-ocr", cut}, "could not read an image at " + cut);
    }
    unlink(cut.c_str());
  }
  rmdir(dir);
}

TEST(VisionOcr, OnePixelImageGivesAnEmptyReport) {
  auto report = recognize(kImages + "/one-pixel.png");
  EXPECT_EQ(report["width"], 1);
  EXPECT_EQ(report["lineCount"], 0);
  EXPECT_EQ(report["lines"], nlohmann::json::array());
}

// Runs vision-ocr on `path` limited to 1.5 GB of address space, so an image decoded whole
// into gigabytes fails. AddressSanitizer reserves terabytes of address space, so the limit
// applies only to builds without it.
HelperRun recognizeInBoundedMemory(const std::string& path) {
#if defined(__SANITIZE_ADDRESS__)
  const std::string limit;
#else
  const std::string limit = "ulimit -v 1500000; ";
#endif
  return runProgram({"/bin/sh", "-c", limit + "exec \"$0\" vision-ocr \"$1\"", HELPER_PATH, path});
}

TEST(VisionOcr, HugeBlankImageGivesAnEmptyReportWithinBoundedMemory) {
  // 20000 x 20000 one-bit pixels decode into 50 MB; blank, nothing is recognised.
  auto run = recognizeInBoundedMemory(kImages + "/huge.png");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["width"], 20000);
  EXPECT_EQ(lines[0]["lineCount"], 0);
}

TEST(VisionOcr, DecompressionBombIsRefusedBeforeDecoding) {
  auto run = recognizeInBoundedMemory(kImages + "/bomb.png");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["message"],
            "Vision failed: the image is too large to decode safely (60000 x 60000 pixels "
            "would take 24032 MB; at most 1536 MB)");
}

TEST(VisionOcr, ColourPngClaimingMoreDataThanItHoldsFailsWithinBoundedMemory) {
  // The first image data chunk of an RGB page says it holds 2 GB.
  std::string bytes = slurp(kImages + "/colour/black-on-cream.png");
  const size_t idat = bytes.find("IDAT");
  ASSERT_NE(idat, std::string::npos);
  bytes.replace(idat - 4, 4, std::string("\x7f\xff\xff\xf0", 4));
  char dir[] = "/tmp/tallowbrook-claim-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string path = std::string(dir) + "/claim.png";
  std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
  auto run = recognizeInBoundedMemory(path);
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u) << run.out;
  EXPECT_EQ(lines[0]["message"], "could not read an image at " + path);
  unlink(path.c_str());
  rmdir(dir);
}

TEST(VisionOcr, VeryLargeImageIsScaledDownAndRead) {
  // 108 million pixels with labels near opposite corners: read, not refused.
  auto report = recognize(kImages + "/large-labels.png");
  EXPECT_EQ(report["width"], 12000);
  ASSERT_EQ(texts(report), (std::vector<std::string>{"North gate", "South"}));
  expectWellFormedLines(report);
  EXPECT_NEAR(report["lines"][0]["bbox"]["x"].get<double>(), 300.0 / 12000, 0.01);
  EXPECT_NEAR(report["lines"][1]["bbox"]["x"].get<double>(), 10000.0 / 12000, 0.01);
  EXPECT_GT(report["lines"][1]["bbox"]["y"].get<double>(), 0.9);
}

TEST(VisionOcr, LightTextOnADarkPageIsRead) {
  auto report = recognize(kImages + "/dark-page.png");
  EXPECT_EQ(texts(report), (std::vector<std::string>{"The archive keeps every letter",
                                                     "that arrived during the winter."}));
  expectWellFormedLines(report);
}

TEST(VisionOcr, DarkPanelInALightScreenshotIsReadApart) {
  auto report = recognize(kImages + "/panel.png");
  expectWellFormedLines(report);
  std::vector<std::string> left, right;
  for (const auto& line : report["lines"]) {
    // The panel spans x 700...1560 of 1600.
    (line["bbox"]["x"].get<double>() > 700.0 / 1600 ? right : left).push_back(line["text"]);
  }
  EXPECT_EQ(left, (std::vector<std::string>{"File Edit View Window Help",
                                            "Notes from the morning meeting",
                                            "Budget review moved to Thursday"}));
  EXPECT_EQ(right, (std::vector<std::string>{"Terminal output of the build",
                                             "All tests passed in four minutes",
                                             "Warnings were treated as errors"}));
}

TEST(VisionOcr, SingleCharactersAndShortLabelsInSeveralFaces) {
  const std::vector<std::string> labels = {"3", "7", "K", "42", "Total", "Room 12", "EXIT"};
  for (int face = 0; face < 6; ++face) {
    for (size_t n = 0; n < labels.size(); ++n) {
      std::string name = std::to_string(face) + "_" + std::to_string(n) + ".png";
      auto report = recognize(kImages + "/labels/" + name);
      EXPECT_EQ(texts(report), std::vector<std::string>{labels[n]}) << name;
    }
  }
}

TEST(VisionOcr, SmallLabelInTheCornerOfALargePage) {
  auto report = recognize(kImages + "/corner-label.png");
  ASSERT_EQ(texts(report), std::vector<std::string>{"A12"});
  EXPECT_GT(report["lines"][0]["bbox"]["x"].get<double>(), 0.9);
  EXPECT_GT(report["lines"][0]["bbox"]["y"].get<double>(), 0.9);
}

TEST(VisionOcr, ShortUprightLinesAreNeverFlipped) {
  // Their letters read as letters upside down too, some with more confidence.
  const std::vector<std::string> lines = {"ZVI GALIL", "SOS",      "NOON",    "MOW",
                                          "pod",       "suns",     "XOX 808", "HOI",
                                          "dollop",    "Sun 1969", "NO SWIM", "ANNA"};
  for (size_t n = 0; n < lines.size(); ++n) {
    for (int face = 0; face < 2; ++face) {
      std::string name = std::to_string(n) + "_" + std::to_string(face) + ".png";
      auto report = recognize(kImages + "/upright/" + name);
      EXPECT_EQ(texts(report), std::vector<std::string>{lines[n]}) << name;
    }
  }
}

TEST(VisionOcr, PagesInOneAndTwoColumnsReadInOrder) {
  // Large pages are read in two halves on two threads where a blank band allows it; the lines
  // must come out as whole pages read them, column by column.
  for (const char* name : {"one-column", "two-column"}) {
    std::string base = kImages + "/rendered/" + name;
    auto report = recognize(base + ".png");
    expectWellFormedLines(report);
    EXPECT_LE(characterErrorRate(joined(report), slurp(base + ".gt.txt")), 0.01) << name;
  }
}

// A top-left normalised box of an upright page as it lies on the page turned clockwise by
// `degrees`.
nlohmann::json turnedBox(const nlohmann::json& box, int degrees) {
  const double x = box["x"], y = box["y"], w = box["w"], h = box["h"];
  switch (degrees) {
    case 90:
      return {{"x", 1 - y - h}, {"y", x}, {"w", h}, {"h", w}};
    case 180:
      return {{"x", 1 - x - w}, {"y", 1 - y - h}, {"w", w}, {"h", h}};
    case 270:
      return {{"x", y}, {"y", 1 - x - w}, {"w", h}, {"h", w}};
    default:
      return box;
  }
}

TEST(VisionOcr, TurnedPagesReadAsTheUprightPageDoes) {
  // A large page turned by a quarter, a half or three quarters is read turned upright, in two
  // halves like the upright page: the same lines, each where the upright line lies once the
  // page is turned.
  for (const char* name : {"one-column", "two-column"}) {
    const std::string base = kImages + "/rendered/" + name;
    const auto upright = recognize(base + ".png");
    ASSERT_GT(upright["lines"].size(), 40u) << name;
    for (int degrees : {90, 180, 270}) {
      const auto report = recognize(base + ".turned" + std::to_string(degrees) + ".png");
      expectWellFormedLines(report);
      ASSERT_EQ(texts(report), texts(upright)) << name << " turned " << degrees;
      for (size_t i = 0; i < upright["lines"].size(); ++i) {
        const auto expected = turnedBox(upright["lines"][i]["bbox"], degrees);
        const auto& box = report["lines"][i]["bbox"];
        for (const char* key : {"x", "y", "w", "h"}) {
          EXPECT_NEAR(box[key].get<double>(), expected[key].get<double>(), 0.002)
              << name << " turned " << degrees << ", line " << i << " " << key;
        }
      }
    }
  }
}

// Every corpus image with a ground truth, inverted and turned by a quarter, a half and three
// quarters, reads as well as the image itself.
class CorpusVariants : public testing::TestWithParam<std::string> {};

TEST_P(CorpusVariants, ReadAsWellAsTheOriginal) {
  const std::string stem = GetParam();
  const std::string truth = slurp(kCorpus + "/" + stem + ".gt.txt");
  ASSERT_FALSE(truth.empty()) << stem;
  std::string original = kCorpus + "/" + stem + ".tif";
  if (!std::ifstream(original)) original = kCorpus + "/" + stem + ".png";
  const double upright = characterErrorRate(joined(recognize(original)), truth);
  for (const char* variant : {"inverted", "turned90", "turned180", "turned270"}) {
    auto report = recognize(kImages + "/corpus/" + stem + "." + variant + ".png");
    EXPECT_LE(characterErrorRate(joined(report), truth), upright + 0.01)
        << stem << " " << variant << ": " << joined(report);
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusVariants,
                         testing::Values("8071_093.3B", "8087_054.3B", "eurotext", "phototest",
                                         "phototest-rotated-180", "phototest-rotated-L",
                                         "phototest-rotated-R", "phototestrot", "trainingital",
                                         "trainingtimes"),
                         [](const testing::TestParamInfo<std::string>& info) {
                           std::string name = info.param;
                           for (char& c : name) {
                             if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name;
                         });

TEST(VisionOcr, MissingModuleBreaksOnlyRecognition) {
  // A helper installed without its modules: recognition fails clearly, the rest still works.
  char dir[] = "/tmp/tallowbrook-nomodule-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  std::string bin = std::string(dir) + "/bin";
  mkdir(bin.c_str(), 0755);
  std::string helper = bin + "/tallowbrook-helper";
  ASSERT_EQ(runProgram({"cp", HELPER_PATH, helper}).status, 0);

  auto run = runProgram({helper, "vision-ocr", kImages + "/paragraphs.png"});
  EXPECT_EQ(run.status, 1);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  std::string message = lines[0]["message"];
  EXPECT_EQ(message.rfind("could not load the ocr module: ", 0), 0u) << message;
  EXPECT_NE(message.find("tallowbrook-ocr.so"), std::string::npos) << message;

  auto selfTest = runProgram({helper, "vision-ocr", "--self-test"});
  EXPECT_EQ(selfTest.status, 0);
  EXPECT_EQ(runProgram({helper, "capabilities"}).status, 0);
  runProgram({"rm", "-rf", dir});
}

}  // namespace
