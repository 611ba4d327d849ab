#include <gtest/gtest.h>

#include "ocr/languages.h"

namespace tallowbrook::VisionOCR {
namespace {

TEST(LanguageDataName, MapsLocaleIdentifiers) {
  EXPECT_EQ(languageDataName("en-US"), "eng");
  EXPECT_EQ(languageDataName("en"), "eng");
  EXPECT_EQ(languageDataName("de-DE"), "deu");
  EXPECT_EQ(languageDataName("de_AT"), "deu");
  EXPECT_EQ(languageDataName("FR"), "fra");
  EXPECT_EQ(languageDataName("pt-BR"), "por");
  EXPECT_EQ(languageDataName("ru-RU"), "rus");
  EXPECT_EQ(languageDataName("ja-JP"), "jpn");
  EXPECT_EQ(languageDataName("ko-KR"), "kor");
}

TEST(LanguageDataName, ChineseFollowsScriptAndRegion) {
  EXPECT_EQ(languageDataName("zh-Hans"), "chi_sim");
  EXPECT_EQ(languageDataName("zh-CN"), "chi_sim");
  EXPECT_EQ(languageDataName("zh"), "chi_sim");
  EXPECT_EQ(languageDataName("zh-Hant"), "chi_tra");
  EXPECT_EQ(languageDataName("zh-Hant-HK"), "chi_tra");
  EXPECT_EQ(languageDataName("zh-TW"), "chi_tra");
  EXPECT_EQ(languageDataName("sr-Latn-RS"), "srp_latn");
  EXPECT_EQ(languageDataName("sr"), "srp");
}

TEST(LanguageDataName, AcceptsDataNamesAndRejectsTheUnknown) {
  EXPECT_EQ(languageDataName("eng"), "eng");
  EXPECT_EQ(languageDataName("chi_sim"), "chi_sim");
  EXPECT_FALSE(languageDataName("xx-YY"));
  EXPECT_FALSE(languageDataName(""));
  EXPECT_FALSE(languageDataName("-US"));
  EXPECT_FALSE(languageDataName("osd"));
  EXPECT_FALSE(languageDataName("english"));
}

TEST(LanguagePackage, NamesTheDebianPackage) {
  EXPECT_EQ(languagePackage("fra"), "tesseract-ocr-fra");
  EXPECT_EQ(languagePackage("chi_sim"), "tesseract-ocr-chi-sim");
}

TEST(LanguageScript, NamesTheWritingSystem) {
  EXPECT_EQ(languageScript("eng"), "Latin");
  EXPECT_EQ(languageScript("rus"), "Cyrillic");
  EXPECT_EQ(languageScript("chi_tra"), "Han");
  EXPECT_EQ(languageScript("nope"), "");
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
