// Splits RTF bytes into tokens: group braces, control words and symbols, \'hh bytes, runs of
// plain text and the data of \bin. Streaming and allocation-free: tokens point into the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tallowbrook::rtf {

enum class TokenKind : uint8_t {
  End,            // no more input
  GroupOpen,      // {
  GroupClose,     // }
  ControlWord,    // \letters with an optional signed parameter
  ControlSymbol,  // \ followed by one character that is not a letter
  HexByte,        // \'hh
  Text,           // a run of plain bytes (never contains \ { } CR or LF)
  Binary,         // the data bytes that follow \binN
};

struct Token {
  TokenKind kind = TokenKind::End;
  // ControlWord: the letters; Text: the run; Binary: the data (shorter than N when the input
  // ends first). Points into the tokenizer's input.
  std::string_view text;
  bool hasParameter = false;
  // The parameter, saturated to [kMinParameter, kMaxParameter] when it has too many digits.
  int32_t parameter = 0;
  char symbol = 0;   // ControlSymbol
  uint8_t byte = 0;  // HexByte
};

inline constexpr int32_t kMaxParameter = 0x7fffffff;
inline constexpr int32_t kMinParameter = -0x7fffffff;

class Tokenizer {
 public:
  // `input` must outlive the tokenizer and every token it returns.
  explicit Tokenizer(std::string_view input) : input_(input) {}

  // The next token; End once the input is used up, and End again on every later call.
  // Never reads past the input: a control word, \'hh or \bin cut off by the end of the
  // input yields what is there (a \' without two hex digits becomes the symbol '\'').
  // Carriage returns and line feeds between tokens are skipped; a backslash followed by one
  // of them is the control symbol '\n' (a paragraph end).
  Token next();

  // Bytes consumed so far.
  size_t offset() const { return pos_; }

 private:
  Token controlWord();
  std::string_view input_;
  size_t pos_ = 0;
};

}  // namespace tallowbrook::rtf
