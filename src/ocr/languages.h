// Locale identifiers (en-US, de-DE, zh-Hans) to the recogniser's language data names (eng,
// deu, chi_sim).
#pragma once

#include <optional>
#include <string>

namespace tallowbrook::VisionOCR {

// The language data name for a locale identifier: the language subtag (any case, '-' or '_'
// separated) and, for Chinese, the script or region (zh-Hans, zh-CN → chi_sim; zh-Hant,
// zh-TW, zh-HK → chi_tra; Serbian in Latin script → srp_latn). A data name itself ("eng",
// "chi_sim") is accepted as it stands. Nothing for an identifier that names no known language.
// Pure.
std::optional<std::string> languageDataName(const std::string& identifier);

// The Debian package that installs the data `dataName`: tesseract-ocr-chi-sim for chi_sim.
// Pure.
std::string languagePackage(const std::string& dataName);

// The writing script (as orientation detection names it: "Latin", "Cyrillic", "Han", ...) of
// the language data `dataName`, or "" when unknown. Pure.
std::string languageScript(const std::string& dataName);

}  // namespace tallowbrook::VisionOCR
