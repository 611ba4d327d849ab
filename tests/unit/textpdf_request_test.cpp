// text-pdf's request decoding and the styled text built from it.
#include <gtest/gtest.h>

#include "documents/text_pdf.h"

namespace tallowbrook::TextPdf {
namespace {

TEST(TextPdfDecode, ReadsEveryFieldAndIgnoresUnknownKeys) {
  auto request =
      decode(R"({"title":"T","subtitle":"S","extra":[1,2],"lines":[{"label":"L","text":"a","x":1},)"
             R"({"text":"b"}]})");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->title, "T");
  EXPECT_EQ(request->subtitle, "S");
  ASSERT_EQ(request->lines.size(), 2u);
  EXPECT_EQ(request->lines[0].label, "L");
  EXPECT_EQ(request->lines[0].text, "a");
  EXPECT_FALSE(request->lines[1].label);
  EXPECT_EQ(request->lines[1].text, "b");
}

TEST(TextPdfDecode, NullSubtitleAndLabelAreAbsent) {
  auto request = decode(R"({"title":"T","subtitle":null,"lines":[{"label":null,"text":""}]})");
  ASSERT_TRUE(request);
  EXPECT_FALSE(request->subtitle);
  EXPECT_FALSE(request->lines[0].label);
  EXPECT_EQ(request->lines[0].text, "");
}

TEST(TextPdfDecode, RejectsWhatIsNotARequest) {
  for (const char* input : {
           "",
           "not json",
           "[1,2]",
           "\"title\"",
           R"({"lines":[]})",
           R"({"title":"T"})",
           R"({"title":null,"lines":[]})",
           R"({"title":3,"lines":[]})",
           R"({"title":"T","lines":{}})",
           R"({"title":"T","lines":"a"})",
           R"({"title":"T","subtitle":5,"lines":[]})",
           R"({"title":"T","lines":[{"label":"L"}]})",
           R"({"title":"T","lines":[{"text":null}]})",
           R"({"title":"T","lines":[{"text":1}]})",
           R"({"title":"T","lines":[{"label":2,"text":"a"}]})",
           R"({"title":"T","lines":["a"]})",
           R"({"title":"T","lines":[]} trailing)",
           "{\"title\":\"\xff\",\"lines\":[]}",
       }) {
    EXPECT_FALSE(decode(input)) << input;
  }
}

TEST(TextPdfAttributed, RunsInOrderWithTheirStyles) {
  Request request{"Title", "Sub", {{"Label", "Text"}, {std::nullopt, "Plain"}}};
  Attributed text = attributed(request);
  ASSERT_EQ(text.size(), 5u);
  EXPECT_EQ(text[0].text, "Title\n");
  EXPECT_EQ(text[1].text, "Sub\n");
  EXPECT_EQ(text[2].text, "Label\n");
  EXPECT_EQ(text[3].text, "Text\n");
  EXPECT_EQ(text[4].text, "Plain\n");

  EXPECT_EQ(text[0].style.face, Face::serifBold);
  EXPECT_EQ(text[0].style.size, 17);
  EXPECT_EQ(text[0].style.grey, 0);
  EXPECT_EQ(text[0].style.spacingAfter, 4);
  EXPECT_EQ(text[1].style.face, Face::mono);
  EXPECT_EQ(text[1].style.size, 8);
  EXPECT_EQ(text[1].style.grey, 0.35);
  EXPECT_EQ(text[1].style.spacingAfter, 14);
  EXPECT_EQ(text[2].style.face, Face::mono);
  EXPECT_EQ(text[2].style.size, 8);
  EXPECT_EQ(text[2].style.grey, 0.35);
  EXPECT_EQ(text[2].style.spacingAfter, 1);
  EXPECT_EQ(text[2].style.spacingBefore, 6);
  EXPECT_EQ(text[3].style.face, Face::serif);
  EXPECT_EQ(text[3].style.size, 11.5);
  EXPECT_EQ(text[3].style.spacingAfter, 4);
  EXPECT_EQ(text[3].style.spacingBefore, 0);
  for (const TextPdf::Run& run : text) EXPECT_EQ(run.style.lineHeight, 1.25);
}

TEST(TextPdfAttributed, EmptyTitleKeptEmptySubtitleSkipped) {
  Attributed text = attributed({"", "", {}});
  ASSERT_EQ(text.size(), 1u);
  EXPECT_EQ(text[0].text, "\n");
}

TEST(TextPdfAttributed, EmptyLabelSkippedEmptyTextKept) {
  Attributed text = attributed({"T", std::nullopt, {{"", ""}, {"L", ""}}});
  ASSERT_EQ(text.size(), 4u);
  EXPECT_EQ(text[1].text, "\n");
  EXPECT_EQ(text[1].style.face, Face::serif);
  EXPECT_EQ(text[2].text, "L\n");
  EXPECT_EQ(text[3].text, "\n");
}

TEST(TextPdfFooter, TextIsNameMiddleDotNumber) {
  EXPECT_EQ(footerText(1), "Tallowbrook \xC2\xB7 1");
  EXPECT_EQ(footerText(12), "Tallowbrook \xC2\xB7 12");
}

}  // namespace
}  // namespace tallowbrook::TextPdf
