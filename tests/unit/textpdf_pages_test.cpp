// text-pdf's page loop, stop rule, failures and summary, over a fake typesetter.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "documents/text_pdf.h"

namespace tallowbrook::TextPdf {
namespace {

// Records every call; places up to `capacity` bytes per frame (or the next entry of `plan`).
struct Calls {
  std::vector<std::string> events;
  std::vector<std::size_t> positions;
  std::vector<std::string> footers;
  std::string path;
  double width = 0;
  double height = 0;
  Info info;
  Attributed text;
};

class FakeDocument final : public Document {
 public:
  FakeDocument(Calls& calls, std::vector<std::size_t> plan, bool finishes, std::size_t length)
      : calls_(calls), plan_(std::move(plan)), finishes_(finishes), length_(length) {}

  void beginPage() override { calls_.events.push_back("begin"); }
  std::size_t fillFrame(const Rect& frame, std::size_t position) override {
    EXPECT_EQ(frame.x, 34);
    EXPECT_EQ(frame.y, 154);
    EXPECT_EQ(frame.width, 379);
    EXPECT_EQ(frame.height, 408);
    calls_.events.push_back("fill");
    calls_.positions.push_back(position);
    std::size_t wanted = next_ < plan_.size() ? plan_[next_++] : 0;
    return std::min(wanted, length_ - position);
  }
  void drawLine(const std::string& text, const Style& style, double x, double y) override {
    calls_.events.push_back("footer");
    calls_.footers.push_back(text);
    EXPECT_EQ(style.face, Face::mono);
    EXPECT_EQ(style.size, 7);
    EXPECT_EQ(style.grey, 0.55);
    EXPECT_EQ(x, 34);
    EXPECT_EQ(y, 16);
  }
  void endPage() override { calls_.events.push_back("end"); }
  void finish() override {
    calls_.events.push_back("finish");
    std::ofstream(calls_.path) << std::string(1234, 'x');
    if (!finishes_) throw Error("cannot write " + calls_.path);
  }

 private:
  Calls& calls_;
  std::vector<std::size_t> plan_;
  std::size_t next_ = 0;
  bool finishes_;
  std::size_t length_;
};

class FakeTypesetter final : public Typesetter {
 public:
  std::optional<std::string> openFailure;  // the Error open() throws, if any
  std::vector<std::size_t> plan;
  bool finishes = true;
  Calls calls;

  std::unique_ptr<Document> open(const std::string& path, double width, double height,
                                 const Info& info, const Attributed& text) override {
    calls.path = path;
    calls.width = width;
    calls.height = height;
    calls.info = info;
    calls.text = text;
    if (openFailure) throw Error(*openFailure);
    std::size_t length = 0;
    for (const Run& run : text) length += run.text.size();
    return std::make_unique<FakeDocument>(calls, plan, finishes, length);
  }
};

// The message of the Error that write() throws.
std::string failureOf(const std::string& path, const Request& request, Typesetter& typesetter) {
  try {
    write(path, request, typesetter);
  } catch (const Error& error) {
    return error.message();
  }
  return "(no failure)";
}

std::string scratchPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("textpdf-unit-" + std::to_string(::getpid()) + "-" + name))
      .string();
}

TEST(TextPdfWrite, EmptyLinesGiveOnePageWithTheTitle) {
  FakeTypesetter typesetter;
  typesetter.plan = {100};
  std::string path = scratchPath("empty.pdf");
  Json summary = write(path, {"Title", "Sub", {}}, typesetter);
  EXPECT_EQ(summary["pages"], 1);
  EXPECT_EQ(typesetter.calls.events,
            (std::vector<std::string>{"begin", "fill", "footer", "end", "finish"}));
  ASSERT_EQ(typesetter.calls.text.size(), 2u);
  EXPECT_EQ(typesetter.calls.width, 447);
  EXPECT_EQ(typesetter.calls.height, 596);
  EXPECT_EQ(typesetter.calls.info.title, "Title");
  EXPECT_EQ(typesetter.calls.info.creator, "Tallowbrook");
  std::filesystem::remove(path);
}

TEST(TextPdfWrite, PagesAdvanceThePositionAndNumberTheFooters) {
  FakeTypesetter typesetter;
  // "T\n" + 3 x "0123456789\n" = 35 bytes, placed 10, 10, 10, 5.
  typesetter.plan = {10, 10, 10, 10};
  std::string path = scratchPath("pages.pdf");
  Json summary =
      write(path, {"T", std::nullopt, {{{}, "0123456789"}, {{}, "0123456789"}, {{}, "0123456789"}}},
            typesetter);
  EXPECT_EQ(summary["type"], "done");
  EXPECT_EQ(summary["pages"], 4);
  EXPECT_EQ(typesetter.calls.positions, (std::vector<std::size_t>{0, 10, 20, 30}));
  EXPECT_EQ(typesetter.calls.footers,
            (std::vector<std::string>{"Tallowbrook \xC2\xB7 1", "Tallowbrook \xC2\xB7 2",
                                      "Tallowbrook \xC2\xB7 3", "Tallowbrook \xC2\xB7 4"}));
  std::filesystem::remove(path);
}

TEST(TextPdfWrite, APageShowingNothingEndsTheLoopUncounted) {
  FakeTypesetter typesetter;
  typesetter.plan = {5, 0, 7};
  std::string path = scratchPath("stop.pdf");
  Json summary = write(path, {"Title", std::nullopt, {{"L", "a long text"}}}, typesetter);
  EXPECT_EQ(summary["pages"], 1);
  // The second page was begun, drawn with footer 2 and ended, then the loop stopped.
  EXPECT_EQ(typesetter.calls.footers.size(), 2u);
  EXPECT_EQ(typesetter.calls.positions, (std::vector<std::size_t>{0, 5}));
  EXPECT_EQ(typesetter.calls.events.back(), "finish");
  std::filesystem::remove(path);
}

TEST(TextPdfWrite, NothingFitsAtAllStillReportsOnePage) {
  FakeTypesetter typesetter;
  typesetter.plan = {0};
  std::string path = scratchPath("nothing.pdf");
  Json summary = write(path, {"Title", std::nullopt, {}}, typesetter);
  EXPECT_EQ(summary["pages"], 1);
  EXPECT_EQ(typesetter.calls.footers.size(), 1u);
  std::filesystem::remove(path);
}

TEST(TextPdfWrite, BytesIsTheWrittenFilesSize) {
  FakeTypesetter typesetter;
  typesetter.plan = {100};
  std::string path = scratchPath("bytes.pdf");
  Json summary = write(path, {"Title", std::nullopt, {}}, typesetter);
  EXPECT_EQ(summary["bytes"], 1234);
  std::filesystem::remove(path);
}

TEST(TextPdfWrite, OpenFailuresHaveTheirMessages) {
  FakeTypesetter typesetter;
  typesetter.openFailure = "cannot write /x/out.pdf";
  EXPECT_EQ(failureOf("/x/out.pdf", {"T", std::nullopt, {}}, typesetter),
            "cannot write /x/out.pdf");
  typesetter.openFailure = std::string(kNoContext);
  EXPECT_EQ(failureOf("/x/out.pdf", {"T", std::nullopt, {}}, typesetter),
            "cannot create a PDF context");
  // Nothing was drawn or finished after the failed open.
  EXPECT_TRUE(typesetter.calls.events.empty());
}

TEST(TextPdfWrite, AFailedFinishRemovesTheIncompleteFile) {
  FakeTypesetter typesetter;
  typesetter.plan = {100};
  typesetter.finishes = false;
  std::string path = scratchPath("full.pdf");
  EXPECT_EQ(failureOf(path, {"T", std::nullopt, {}}, typesetter), "cannot write " + path);
  EXPECT_FALSE(std::filesystem::exists(path));
}

using TextPdfRunDeathTest = ::testing::Test;

TEST_F(TextPdfRunDeathTest, NoPathPrintsTheUsage) {
  FakeTypesetter typesetter;
  EXPECT_EXIT(run({}, "{}", typesetter), ::testing::ExitedWithCode(1), "");
}

TEST_F(TextPdfRunDeathTest, BadRequestFails) {
  FakeTypesetter typesetter;
  EXPECT_EXIT(run({"/tmp/x.pdf"}, "nope", typesetter), ::testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace tallowbrook::TextPdf
