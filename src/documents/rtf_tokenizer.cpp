#include "documents/rtf_tokenizer.h"

namespace tallowbrook::rtf {
namespace {

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

Token Tokenizer::next() {
  Token token;
  const size_t size = input_.size();
  while (pos_ < size && (input_[pos_] == '\r' || input_[pos_] == '\n')) ++pos_;
  if (pos_ >= size) return token;

  const char c = input_[pos_];
  if (c == '{') {
    ++pos_;
    token.kind = TokenKind::GroupOpen;
    return token;
  }
  if (c == '}') {
    ++pos_;
    token.kind = TokenKind::GroupClose;
    return token;
  }
  if (c != '\\') {
    const size_t start = pos_;
    while (pos_ < size) {
      const char d = input_[pos_];
      if (d == '\\' || d == '{' || d == '}' || d == '\r' || d == '\n') break;
      ++pos_;
    }
    token.kind = TokenKind::Text;
    token.text = input_.substr(start, pos_ - start);
    return token;
  }

  // A backslash.
  ++pos_;
  if (pos_ >= size) return token;  // a lone backslash at the very end: nothing
  const char s = input_[pos_];
  if (isLetter(s)) return controlWord();
  ++pos_;
  if (s == '\'') {
    int high = pos_ < size ? hexValue(input_[pos_]) : -1;
    int low = pos_ + 1 < size ? hexValue(input_[pos_ + 1]) : -1;
    if (high >= 0 && low >= 0) {
      pos_ += 2;
      token.kind = TokenKind::HexByte;
      token.byte = uint8_t(high * 16 + low);
      return token;
    }
  }
  token.kind = TokenKind::ControlSymbol;
  token.symbol = (s == '\r') ? '\n' : s;
  return token;
}

Token Tokenizer::controlWord() {
  Token token;
  token.kind = TokenKind::ControlWord;
  const size_t size = input_.size();
  const size_t start = pos_;
  while (pos_ < size && isLetter(input_[pos_])) ++pos_;
  token.text = input_.substr(start, pos_ - start);

  bool negative = false;
  if (pos_ + 1 < size && input_[pos_] == '-' && isDigit(input_[pos_ + 1])) {
    negative = true;
    ++pos_;
  }
  if (pos_ < size && isDigit(input_[pos_])) {
    int64_t value = 0;
    while (pos_ < size && isDigit(input_[pos_])) {
      if (value <= kMaxParameter) value = value * 10 + (input_[pos_] - '0');
      ++pos_;
    }
    if (value > kMaxParameter) value = kMaxParameter;
    token.hasParameter = true;
    token.parameter = int32_t(negative ? -value : value);
  }
  if (pos_ < size && input_[pos_] == ' ') ++pos_;

  if (token.text == "bin" && token.hasParameter) {
    // The data follows at once; a length past the end of the input takes what is there.
    const size_t wanted = token.parameter > 0 ? size_t(token.parameter) : 0;
    const size_t length = wanted < size - pos_ ? wanted : size - pos_;
    Token data;
    data.kind = TokenKind::Binary;
    data.text = input_.substr(pos_, length);
    pos_ += length;
    return data;
  }
  return token;
}

}  // namespace tallowbrook::rtf
