// Windows and Mac code pages of RTF text, decoded to UTF-8 through glibc's iconv.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace tallowbrook::rtf {

// The code page RTF text falls back to: Windows Latin 1.
inline constexpr int kDefaultCodePage = 1252;
// Not a Windows code page: the Symbol font's own encoding (\fcharset2).
inline constexpr int kSymbolCodePage = 42;

// The code page of an \fcharsetN value; 0 for ANSI (0) and default (1), which mean "the
// document's \ansicpg", and for values that name no code page.
int codePageOfCharset(int charset);

// True for the code pages whose characters may take several bytes: the East Asian ones (932,
// 936, 949, 950, 1361 and their Mac counterparts) and UTF-8 (65001).
bool isMultiByteCodePage(int codePage);

// Decodes bytes of one code page into UTF-8. Unknown code pages are read as 1252. Bytes that
// the code page does not define are dropped. 1252 and the Symbol font are built in; for the
// others a converter is opened once, on first use, and only when a byte above 0x7f needs it
// (plain ASCII never loads one).
class CodePageDecoder {
 public:
  CodePageDecoder();
  ~CodePageDecoder();
  CodePageDecoder(const CodePageDecoder&) = delete;
  CodePageDecoder& operator=(const CodePageDecoder&) = delete;

  // Appends the UTF-8 text of `bytes`, read in `codePage`, to `out`. For a double-byte code
  // page, `bytes` should hold whole characters; a lead byte left at the end is dropped.
  void decode(std::string_view bytes, int codePage, std::string& out);

 private:
  struct SingleByteTable {
    std::array<char32_t, 128> upper{};  // 0 where the byte is undefined
  };
  const SingleByteTable& table(int codePage);
  void decodeMultiByte(std::string_view bytes, int codePage, std::string& out);

  std::map<int, std::unique_ptr<SingleByteTable>> tables_;
  std::map<int, void*> converters_;  // iconv_t per double-byte code page; (void*)-1 if none
};

// Appends the UTF-8 form of `codePoint` to `out`; surrogates and values past U+10FFFF become
// U+FFFD.
void appendUtf8(char32_t codePoint, std::string& out);

}  // namespace tallowbrook::rtf
