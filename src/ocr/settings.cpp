#include "ocr/settings.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace tallowbrook::VisionOCR {
namespace {

std::optional<std::string> value(const std::vector<std::string>& arguments,
                                 const std::string& name) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == name) {
      if (i + 1 < arguments.size()) return arguments[i + 1];
      return std::nullopt;
    }
  }
  return std::nullopt;
}

bool isOn(const std::optional<std::string>& text) {
  if (!text) return false;
  std::string lower;
  for (char c : *text) lower.push_back(c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c);
  return lower == "on" || lower == "true" || lower == "yes" || lower == "1";
}

// A 32-bit float from the whole of `text`: decimal or hexadecimal, optional sign, "inf",
// "infinity" or "nan"; no surrounding blanks.
std::optional<float> parseFloat(const std::string& text) {
  if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return std::nullopt;
  const char* begin = text.c_str();
  char* end = nullptr;
  float parsed = std::strtof(begin, &end);
  if (end != begin + text.size()) return std::nullopt;
  return parsed;
}

}  // namespace

Settings Settings::fromArguments(const std::vector<std::string>& arguments) {
  Settings settings;
  settings.useLanguageCorrection = isOn(value(arguments, "--language-correction"));
  settings.automaticallyDetectLanguage = isOn(value(arguments, "--auto-language"));
  if (auto list = value(arguments, "--languages")) {
    settings.languages.clear();
    size_t start = 0;
    while (start <= list->size()) {
      size_t comma = list->find(',', start);
      if (comma == std::string::npos) comma = list->size();
      if (comma > start) settings.languages.push_back(list->substr(start, comma - start));
      start = comma + 1;
    }
  }
  if (auto text = value(arguments, "--min-text-height")) {
    settings.minimumTextHeightFraction = parseFloat(*text).value_or(0.0f);
  }
  return settings;
}

std::map<std::string, std::string> Settings::echo() const {
  std::string joined;
  for (size_t i = 0; i < languages.size(); ++i) {
    if (i > 0) joined += ',';
    joined += languages[i];
  }
  return {{"useLanguageCorrection", useLanguageCorrection ? "true" : "false"},
          {"automaticallyDetectLanguage", automaticallyDetectLanguage ? "true" : "false"},
          {"languages", joined},
          {"minimumTextHeightFraction", shortestFloatText(minimumTextHeightFraction)}};
}

std::string shortestFloatText(float value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  if (value == 0) return std::signbit(value) ? "-0.0" : "0.0";

  // Shortest round-trip digits and their decimal exponent: value = 0.DIGITS x 10^exponent.
  char buffer[32];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value),
                              std::chars_format::scientific);
  std::string scientific(buffer, result.ptr);  // d.ddde[+-]XX
  size_t e = scientific.find('e');
  std::string digits = scientific.substr(0, 1) + (e > 2 ? scientific.substr(2, e - 2) : "");
  int exponent10 = std::atoi(scientific.c_str() + e + 1);  // value = d.ddd x 10^exponent10
  int decimalExponent = exponent10 + 1;

  std::string text = std::signbit(value) ? "-" : "";
  if (decimalExponent < -3 || std::fabs(value) > 16777216.0f) {
    text += digits.substr(0, 1);
    if (digits.size() > 1) text += "." + digits.substr(1);
    char exponent[16];
    std::snprintf(exponent, sizeof exponent, "e%c%02d", exponent10 < 0 ? '-' : '+',
                  std::abs(exponent10));
    return text + exponent;
  }
  if (decimalExponent <= 0) {
    return text + "0." + std::string(size_t(-decimalExponent), '0') + digits;
  }
  if (size_t(decimalExponent) >= digits.size()) {
    return text + digits + std::string(size_t(decimalExponent) - digits.size(), '0') + ".0";
  }
  return text + digits.substr(0, size_t(decimalExponent)) + "." +
         digits.substr(size_t(decimalExponent));
}

}  // namespace tallowbrook::VisionOCR
