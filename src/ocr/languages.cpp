#include "ocr/languages.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace tallowbrook::VisionOCR {
namespace {

struct Language {
  std::string_view subtag;  // ISO 639-1 or 639-2 code
  std::string_view data;
  std::string_view script;
};

constexpr Language kLanguages[] = {
    {"en", "eng", "Latin"},    {"de", "deu", "Latin"},    {"fr", "fra", "Latin"},
    {"es", "spa", "Latin"},    {"it", "ita", "Latin"},    {"pt", "por", "Latin"},
    {"nl", "nld", "Latin"},    {"sv", "swe", "Latin"},    {"da", "dan", "Latin"},
    {"nb", "nor", "Latin"},    {"no", "nor", "Latin"},    {"nn", "nor", "Latin"},
    {"fi", "fin", "Latin"},    {"is", "isl", "Latin"},    {"pl", "pol", "Latin"},
    {"cs", "ces", "Latin"},    {"sk", "slk", "Latin"},    {"sl", "slv", "Latin"},
    {"hr", "hrv", "Latin"},    {"hu", "hun", "Latin"},    {"ro", "ron", "Latin"},
    {"tr", "tur", "Latin"},    {"lt", "lit", "Latin"},    {"lv", "lav", "Latin"},
    {"et", "est", "Latin"},    {"ca", "cat", "Latin"},    {"ga", "gle", "Latin"},
    {"id", "ind", "Latin"},    {"ms", "msa", "Latin"},    {"vi", "vie", "Latin"},
    {"la", "lat", "Latin"},    {"ru", "rus", "Cyrillic"}, {"uk", "ukr", "Cyrillic"},
    {"bg", "bul", "Cyrillic"}, {"sr", "srp", "Cyrillic"}, {"be", "bel", "Cyrillic"},
    {"mk", "mkd", "Cyrillic"}, {"el", "ell", "Greek"},    {"he", "heb", "Hebrew"},
    {"ar", "ara", "Arabic"},   {"fa", "fas", "Arabic"},   {"hi", "hin", "Devanagari"},
    {"th", "tha", "Thai"},     {"ja", "jpn", "Japanese"}, {"ko", "kor", "Hangul"},
    {"zh", "chi_sim", "Han"},
};

// Data reached only through a script or region subtag, or by its own name.
constexpr Language kOtherData[] = {
    {"", "chi_tra", "Han"},
    {"", "srp_latn", "Latin"},
};

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return char(std::tolower(c)); });
  return result;
}

}  // namespace

std::optional<std::string> languageDataName(const std::string& identifier) {
  // A data name as it stands.
  for (const auto& language : kLanguages) {
    if (identifier == language.data) return std::string(language.data);
  }
  for (const auto& data : kOtherData) {
    if (identifier == data.data) return std::string(data.data);
  }

  std::string normalized = lower(identifier);
  std::replace(normalized.begin(), normalized.end(), '_', '-');
  std::string subtag = normalized.substr(0, normalized.find('-'));
  std::string rest = subtag.size() < normalized.size() ? normalized.substr(subtag.size()) : "";
  auto has = [&rest](std::string_view part) {
    return rest.find("-" + std::string(part)) != std::string::npos;
  };
  if (subtag == "zh") {
    if (has("hant") || has("tw") || has("hk") || has("mo")) return "chi_tra";
    return "chi_sim";
  }
  if (subtag == "sr" && has("latn")) return "srp_latn";
  for (const auto& language : kLanguages) {
    if (subtag == language.subtag) return std::string(language.data);
  }
  return std::nullopt;
}

std::string languagePackage(const std::string& dataName) {
  std::string package = "tesseract-ocr-" + lower(dataName);
  std::replace(package.begin(), package.end(), '_', '-');
  return package;
}

std::string languageScript(const std::string& dataName) {
  for (const auto& language : kLanguages) {
    if (dataName == language.data) return std::string(language.script);
  }
  for (const auto& data : kOtherData) {
    if (dataName == data.data) return std::string(data.script);
  }
  return "";
}

}  // namespace tallowbrook::VisionOCR
