#include "ocr/reading_shape.h"

#include <cstdint>
#include <sstream>
#include <vector>

namespace tallowbrook::VisionOCR {
namespace {

// Character classes of one word: ASCII letters by case, digits, other letters (any byte of a
// multi-byte UTF-8 sequence stands for a part of one), and everything else.
enum class Kind { Lower, Upper, Digit, Caseless, Other };

Kind kindOf(unsigned char c) {
  if (c >= 'a' && c <= 'z') return Kind::Lower;
  if (c >= 'A' && c <= 'Z') return Kind::Upper;
  if (c >= '0' && c <= '9') return Kind::Digit;
  if (c >= 0x80) return Kind::Caseless;
  return Kind::Other;
}

bool isLetterOrDigit(unsigned char c) {
  return kindOf(c) != Kind::Other;
}

bool isLetter(Kind k) {
  return k == Kind::Lower || k == Kind::Upper || k == Kind::Caseless;
}

// One piece of a word between hyphens or apostrophes.
bool pieceIsWordShaped(const std::string& piece) {
  if (piece.empty()) return false;
  std::vector<Kind> kinds;
  for (unsigned char c : piece) kinds.push_back(kindOf(c));
  if (kinds[0] == Kind::Digit) {
    // A number: digits with inner separators, then optionally a lower-case suffix ("1st").
    size_t i = 0;
    while (i < piece.size() &&
           (kinds[i] == Kind::Digit ||
            ((piece[i] == '.' || piece[i] == ',' || piece[i] == ':' || piece[i] == '/') &&
             i + 1 < piece.size() && kinds[i + 1] == Kind::Digit))) {
      ++i;
    }
    while (i < piece.size() && kinds[i] == Kind::Lower) ++i;
    return i == piece.size();
  }
  bool allUpper = true, restLower = true;
  for (size_t i = 0; i < kinds.size(); ++i) {
    if (!isLetter(kinds[i])) return false;
    if (kinds[i] == Kind::Lower) allUpper = false;
    if (i > 0 && kinds[i] == Kind::Upper) restLower = false;
  }
  return allUpper || restLower;
}

bool wordIsWordShaped(const std::string& word) {
  size_t begin = 0, end = word.size();
  const std::string leading = "\"'([{*-", trailing = "\"')]}.,;:!?%*-";
  while (begin < end && leading.find(word[begin]) != std::string::npos) ++begin;
  while (end > begin && trailing.find(word[end - 1]) != std::string::npos) --end;
  if (begin == end) return false;
  std::string piece;
  for (size_t i = begin; i <= end; ++i) {
    if (i == end || word[i] == '-' || word[i] == '\'') {
      if (!pieceIsWordShaped(piece)) return false;
      piece.clear();
    } else {
      piece += word[i];
    }
  }
  return true;
}

}  // namespace

double wordShapeShare(const std::string& utf8) {
  // Typographic quotes and dashes (U+2000...U+207F, three bytes from E2 80 or E2 81) are
  // punctuation, not letters: stand a plain quote in for them.
  std::string text;
  for (size_t i = 0; i < utf8.size(); ++i) {
    if (uint8_t(utf8[i]) == 0xE2 && i + 2 < utf8.size() &&
        (uint8_t(utf8[i + 1]) == 0x80 || uint8_t(utf8[i + 1]) == 0x81)) {
      text += '"';
      i += 2;
    } else {
      text += utf8[i];
    }
  }
  std::istringstream words(text);
  std::string word;
  size_t shaped = 0, total = 0;
  while (words >> word) {
    size_t count = 0;
    for (unsigned char c : word) count += isLetterOrDigit(c) ? 1 : 0;
    total += count;
    if (count > 0 && wordIsWordShaped(word)) shaped += count;
  }
  return total == 0 ? 0.0 : double(shaped) / double(total);
}

}  // namespace tallowbrook::VisionOCR
