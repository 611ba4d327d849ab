#include "documents/rtf_code_pages.h"

#include <iconv.h>

#include <cerrno>

namespace tallowbrook::rtf {
namespace {

const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);

// glibc's name for a code page; nullptr where it has none.
const char* iconvName(int codePage) {
  switch (codePage) {
    case 437:
      return "IBM437";
    case 850:
      return "IBM850";
    case 852:
      return "IBM852";
    case 860:
      return "IBM860";
    case 862:
      return "IBM862";
    case 863:
      return "IBM863";
    case 865:
      return "IBM865";
    case 866:
      return "IBM866";
    case 874:
      return "CP874";
    case 932:
      return "CP932";
    case 936:
      return "CP936";
    case 949:
      return "CP949";
    case 950:
      return "BIG5";
    case 1250:
      return "CP1250";
    case 1251:
      return "CP1251";
    case 1252:
      return "CP1252";
    case 1253:
      return "CP1253";
    case 1254:
      return "CP1254";
    case 1255:
      return "CP1255";
    case 1256:
      return "CP1256";
    case 1257:
      return "CP1257";
    case 1258:
      return "CP1258";
    case 1361:
      return "JOHAB";
    case 10000:
      return "MACINTOSH";
    case 10001:
      return "CP932";  // Mac Japanese: Shift JIS
    case 10002:
      return "BIG5";  // Mac traditional Chinese
    case 10003:
      return "CP949";  // Mac Korean
    case 10007:
      return "MAC-CYRILLIC";
    case 10008:
      return "CP936";  // Mac simplified Chinese
    case 10017:
      return "MACUKRAINIAN";
    case 10029:
      return "MAC-CENTRALEUROPE";
    case 10079:
      return "MAC-IS";
    case 20127:
      return "ASCII";
    case 28591:
      return "ISO-8859-1";
    case 28592:
      return "ISO-8859-2";
    case 28595:
      return "ISO-8859-5";
    case 28597:
      return "ISO-8859-7";
    case 28605:
      return "ISO-8859-15";
    case 65001:
      return "UTF-8";
    default:
      return nullptr;
  }
}

// Windows 1252 from 0x80 to 0x9f (0 where undefined); from 0xa0 on it is Latin-1. Built in
// because nearly every document uses it: reading it costs no converter loading at start-up.
constexpr char32_t k1252Controls[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,
};

// The Symbol font's upper half, as Unicode (Adobe's Symbol encoding).
constexpr char32_t kSymbolUpper[128] = {
    0,      0,      0,      0,      0,      0,      0,      0,
    0,      0,      0,      0,      0,      0,      0,      0,  // 0x80
    0,      0,      0,      0,      0,      0,      0,      0,
    0,      0,      0,      0,      0,      0,      0,      0,       // 0x90
    0x20AC, 0x03D2, 0x2032, 0x2264, 0x2044, 0x221E, 0x0192, 0x2663,  // 0xa0
    0x2666, 0x2665, 0x2660, 0x2194, 0x2190, 0x2191, 0x2192, 0x2193,
    0x00B0, 0x00B1, 0x2033, 0x2265, 0x00D7, 0x221D, 0x2202, 0x2022,  // 0xb0
    0x00F7, 0x2260, 0x2261, 0x2248, 0x2026, 0x23D0, 0x23AF, 0x21B5,
    0x2135, 0x2111, 0x211C, 0x2118, 0x2297, 0x2295, 0x2205, 0x2229,  // 0xc0
    0x222A, 0x2283, 0x2287, 0x2284, 0x2282, 0x2286, 0x2208, 0x2209,
    0x2220, 0x2207, 0x00AE, 0x00A9, 0x2122, 0x220F, 0x221A, 0x22C5,  // 0xd0
    0x00AC, 0x2227, 0x2228, 0x21D4, 0x21D0, 0x21D1, 0x21D2, 0x21D3,
    0x25CA, 0x2329, 0x00AE, 0x00A9, 0x2122, 0x2211, 0x239B, 0x239C,  // 0xe0
    0x239D, 0x23A1, 0x23A2, 0x23A3, 0x23A7, 0x23A8, 0x23A9, 0x23AA,
    0,      0x232A, 0x222B, 0x2320, 0x23AE, 0x2321, 0x239E, 0x239F,  // 0xf0
    0x23A0, 0x23A4, 0x23A5, 0x23A6, 0x23AB, 0x23AC, 0x23AD, 0,
};

// The Symbol font's lower half where it differs from ASCII: Greek letters and math signs.
char32_t symbolLower(uint8_t byte) {
  static constexpr char32_t kGreekUpper[26] = {
      0x0391, 0x0392, 0x03A7, 0x0394, 0x0395, 0x03A6, 0x0393, 0x0397, 0x0399,
      0x03D1, 0x039A, 0x039B, 0x039C, 0x039D, 0x039F, 0x03A0, 0x0398, 0x03A1,
      0x03A3, 0x03A4, 0x03A5, 0x03C2, 0x03A9, 0x039E, 0x03A8, 0x0396};
  static constexpr char32_t kGreekLower[26] = {
      0x03B1, 0x03B2, 0x03C7, 0x03B4, 0x03B5, 0x03C6, 0x03B3, 0x03B7, 0x03B9,
      0x03D5, 0x03BA, 0x03BB, 0x03BC, 0x03BD, 0x03BF, 0x03C0, 0x03B8, 0x03C1,
      0x03C3, 0x03C4, 0x03C5, 0x03D6, 0x03C9, 0x03BE, 0x03C8, 0x03B6};
  if (byte >= 'A' && byte <= 'Z') return kGreekUpper[byte - 'A'];
  if (byte >= 'a' && byte <= 'z') return kGreekLower[byte - 'a'];
  switch (byte) {
    case 0x22:
      return 0x2200;
    case 0x24:
      return 0x2203;
    case 0x27:
      return 0x220D;
    case 0x2A:
      return 0x2217;
    case 0x2D:
      return 0x2212;
    case 0x40:
      return 0x2245;
    case 0x5C:
      return 0x2234;
    case 0x5E:
      return 0x22A5;
    case 0x60:
      return 0xF8E5;
    case 0x7E:
      return 0x223C;
    default:
      return byte;
  }
}

// Fills `upper` with what glibc's converter `name` makes of each byte from 0x80 on (0 where it
// defines none). False when glibc has no such converter.
bool fillFromIconv(const char* name, std::array<char32_t, 128>& upper) {
  iconv_t converter = iconv_open("UTF-32LE", name);
  if (converter == kNoConverter) return false;
  for (int i = 0; i < 128; ++i) {
    char in = char(0x80 + i);
    uint8_t out[8] = {};
    char* inPtr = &in;
    size_t inLeft = 1;
    char* outPtr = reinterpret_cast<char*>(out);
    size_t outLeft = sizeof out;
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    // 1255 and 1258 hold a character back in case a combining mark follows: flush it.
    if (iconv(converter, &inPtr, &inLeft, &outPtr, &outLeft) != size_t(-1) &&
        iconv(converter, nullptr, nullptr, &outPtr, &outLeft) != size_t(-1) && outLeft == 4) {
      upper[i] = char32_t(out[0]) | char32_t(out[1]) << 8 | char32_t(out[2]) << 16 |
                 char32_t(out[3]) << 24;
    }
  }
  iconv_close(converter);
  return true;
}

}  // namespace

int codePageOfCharset(int charset) {
  switch (charset) {
    case 2:
      return kSymbolCodePage;
    case 77:
      return 10000;
    case 78:
      return 10001;
    case 79:
      return 10003;
    case 80:
      return 10008;
    case 81:
      return 10002;
    case 89:
      return 10007;
    case 128:
      return 932;
    case 129:
      return 949;
    case 130:
      return 1361;
    case 134:
      return 936;
    case 136:
      return 950;
    case 161:
      return 1253;
    case 162:
      return 1254;
    case 163:
      return 1258;
    case 177:
      return 1255;
    case 178:
      return 1256;
    case 186:
      return 1257;
    case 204:
      return 1251;
    case 222:
      return 874;
    case 238:
      return 1250;
    case 254:
      return 437;
    case 255:
      return 850;
    default:
      return 0;
  }
}

bool isMultiByteCodePage(int codePage) {
  switch (codePage) {
    case 932:
    case 936:
    case 949:
    case 950:
    case 1361:
    case 10001:
    case 10002:
    case 10003:
    case 10008:
    case 65001:
      return true;
    default:
      return false;
  }
}

void appendUtf8(char32_t cp, std::string& out) {
  if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = 0xFFFD;
  if (cp < 0x80) {
    out += char(cp);
  } else if (cp < 0x800) {
    out += char(0xC0 | (cp >> 6));
    out += char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += char(0xE0 | (cp >> 12));
    out += char(0x80 | ((cp >> 6) & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  } else {
    out += char(0xF0 | (cp >> 18));
    out += char(0x80 | ((cp >> 12) & 0x3F));
    out += char(0x80 | ((cp >> 6) & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  }
}

CodePageDecoder::CodePageDecoder() = default;

CodePageDecoder::~CodePageDecoder() {
  for (auto& [page, converter] : converters_) {
    if (converter != kNoConverter) iconv_close(iconv_t(converter));
  }
}

const CodePageDecoder::SingleByteTable& CodePageDecoder::table(int codePage) {
  auto found = tables_.find(codePage);
  if (found != tables_.end()) return *found->second;
  auto built = std::make_unique<SingleByteTable>();
  const char* name = iconvName(codePage);
  if (codePage == kSymbolCodePage) {
    for (int i = 0; i < 128; ++i) built->upper[i] = kSymbolUpper[i];
  } else if (codePage == 1252 || !name || !fillFromIconv(name, built->upper)) {
    // 1252 itself, and the stand-in for code pages glibc cannot convert.
    for (int i = 0; i < 128; ++i) built->upper[i] = i < 32 ? k1252Controls[i] : char32_t(0x80 + i);
  }
  return *tables_.emplace(codePage, std::move(built)).first->second;
}

void CodePageDecoder::decode(std::string_view bytes, int codePage, std::string& out) {
  if (isMultiByteCodePage(codePage)) {
    bool ascii = true;
    for (char c : bytes) ascii = ascii && uint8_t(c) < 0x80;
    if (!ascii) return decodeMultiByte(bytes, codePage, out);
  }
  const SingleByteTable* upper = nullptr;
  for (char c : bytes) {
    const uint8_t byte = uint8_t(c);
    if (codePage == kSymbolCodePage && byte < 0x80) {
      appendUtf8(symbolLower(byte), out);
    } else if (byte < 0x80) {
      out += c;
    } else {
      if (!upper) upper = &table(codePage);
      if (char32_t cp = upper->upper[byte - 0x80]) appendUtf8(cp, out);
    }
  }
}

void CodePageDecoder::decodeMultiByte(std::string_view bytes, int codePage, std::string& out) {
  auto found = converters_.find(codePage);
  if (found == converters_.end()) {
    iconv_t converter = iconv_open("UTF-8", iconvName(codePage));
    found = converters_.emplace(codePage, reinterpret_cast<void*>(converter)).first;
  }
  iconv_t converter = iconv_t(found->second);
  if (converter == kNoConverter) return decode(bytes, kDefaultCodePage, out);

  iconv(converter, nullptr, nullptr, nullptr, nullptr);
  char* in = const_cast<char*>(bytes.data());
  size_t inLeft = bytes.size();
  char buffer[4096];
  while (inLeft > 0) {
    char* outPtr = buffer;
    size_t outLeft = sizeof buffer;
    const size_t result = iconv(converter, &in, &inLeft, &outPtr, &outLeft);
    out.append(buffer, size_t(outPtr - buffer));
    if (result != size_t(-1)) break;
    if (errno == E2BIG) continue;
    if (errno == EILSEQ) {
      // A byte the code page does not define: drop it and go on.
      ++in;
      --inLeft;
      continue;
    }
    break;  // EINVAL: a lead byte without its trail byte at the end
  }
}

}  // namespace tallowbrook::rtf
