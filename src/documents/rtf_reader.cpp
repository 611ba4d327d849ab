#include "documents/rtf_reader.h"

#include <map>

#include "documents/rtf_code_pages.h"
#include "documents/rtf_control_words.h"
#include "documents/rtf_group_state.h"
#include "documents/rtf_text_sink.h"
#include "documents/rtf_tokenizer.h"

namespace tallowbrook::rtf {
namespace {

// One pass over the tokens, keeping the document-wide facts that groups do not scope.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : tokens_(bytes) {}

  std::string run() {
    // The document ends where its outermost group closes; anything after it is not read.
    for (Token token = tokens_.next(); token.kind != TokenKind::End && !finished_;
         token = tokens_.next()) {
      handle(token);
    }
    return sink_.take();
  }

 private:
  void handle(const Token& token) {
    switch (token.kind) {
      case TokenKind::GroupOpen:
        groups_.open();
        fallbackLeft_ = 0;
        starred_ = false;
        return;
      case TokenKind::GroupClose:
        groups_.close();
        if (groups_.depth() == 0) finished_ = true;
        fallbackLeft_ = 0;
        starred_ = false;
        return;
      case TokenKind::ControlWord:
        if (starred_) {
          // {\*\word ...}: a destination that readers may ignore; not text unless known to be.
          starred_ = false;
          if (lookupControlWord(token.text).action != WordAction::TextGroup) {
            groups_.top().destination = Destination::Skip;
            return;
          }
        }
        if (fallbackLeft_ > 0) {
          --fallbackLeft_;
          return;
        }
        return controlWord(token);
      case TokenKind::ControlSymbol:
        if (token.symbol == '*') {
          starred_ = true;
          return;
        }
        if (fallbackLeft_ > 0) {
          --fallbackLeft_;
          return;
        }
        return controlSymbol(token.symbol);
      case TokenKind::HexByte:
        if (fallbackLeft_ > 0) {
          --fallbackLeft_;
          return;
        }
        if (emitting()) sink_.addByte(token.byte, codePage());
        return;
      case TokenKind::Text: {
        std::string_view text = token.text;
        if (fallbackLeft_ > 0) {
          const size_t skipped = text.size() < fallbackLeft_ ? text.size() : fallbackLeft_;
          fallbackLeft_ -= skipped;
          text.remove_prefix(skipped);
        }
        if (!text.empty() && emitting()) sink_.addBytes(text, codePage());
        return;
      }
      case TokenKind::Binary:
        if (fallbackLeft_ > 0) --fallbackLeft_;
        return;
      case TokenKind::End:
        return;
    }
  }

  bool emitting() const {
    const GroupState& state = groups_.top();
    return state.destination == Destination::Text && !state.hidden;
  }

  void controlWord(const Token& token) {
    GroupState& state = groups_.top();
    if (state.destination == Destination::Skip) return;
    const WordInfo info = lookupControlWord(token.text);
    const int32_t parameter = token.parameter;

    if (state.destination == Destination::FontTable) {
      switch (info.action) {
        case WordAction::Font:
          state.definedFont = parameter;
          return;
        case WordAction::FontCharset:
          fonts_[state.definedFont].charsetCodePage = codePageOfCharset(parameter);
          fontsChanged();
          return;
        case WordAction::FontCodePage:
          fonts_[state.definedFont].codePage = parameter;
          fontsChanged();
          return;
        case WordAction::SkipDestination:
          state.destination = Destination::Skip;
          return;
        default:
          return;
      }
    }

    switch (info.action) {
      case WordAction::Ignore:
      case WordAction::TextGroup:
        return;
      case WordAction::SkipDestination:
        state.destination = Destination::Skip;
        return;
      case WordAction::FontTable:
        state.destination = Destination::FontTable;
        return;
      case WordAction::Character:
        if (emitting()) sink_.addCodePoint(info.character);
        return;
      case WordAction::Paragraph:
        if (emitting()) sink_.addCodePoint('\n');
        return;
      case WordAction::LineBreak:
        if (emitting()) sink_.addCodePoint(0x2028);
        return;
      case WordAction::PageBreak:
        if (emitting()) sink_.addCodePoint('\f');
        return;
      case WordAction::Unicode:
        if (token.hasParameter) {
          if (emitting()) sink_.addUtf16(uint16_t(parameter));
          fallbackLeft_ = state.unicodeSkip;
        }
        return;
      case WordAction::UnicodeSkip:
        if (token.hasParameter) {
          state.unicodeSkip = uint16_t(parameter < 0 ? 0 : parameter > 255 ? 255 : parameter);
        }
        return;
      case WordAction::Font:
        if (token.hasParameter) state.font = parameter;
        return;
      case WordAction::Plain:
        state.font = -1;
        state.hidden = false;
        return;
      case WordAction::Hidden:
        state.hidden = !token.hasParameter || parameter != 0;
        return;
      case WordAction::AnsiCodePage:
        if (parameter > 0) {
          documentCodePage_ = parameter;
          fontsChanged();
        }
        return;
      case WordAction::CharacterSet:
        documentCodePage_ = int(info.character);
        fontsChanged();
        return;
      case WordAction::DefaultFont:
        if (token.hasParameter) {
          defaultFont_ = parameter;
          fontsChanged();
        }
        return;
      case WordAction::FootnoteAnchor:
        if (emitting()) {
          for (char digit : std::to_string(++footnotes_)) sink_.addCodePoint(char32_t(digit));
        }
        return;
      case WordAction::FontCharset:
      case WordAction::FontCodePage:
        return;
    }
  }

  void controlSymbol(char symbol) {
    if (!emitting()) return;
    switch (symbol) {
      case '~':
        sink_.addCodePoint(0x00A0);
        return;
      case '_':
        sink_.addCodePoint(0x2011);
        return;
      case '\n':
        sink_.addCodePoint('\n');
        return;
      case '{':
      case '}':
      case '\\':
        sink_.addCodePoint(char32_t(symbol));
        return;
      default:
        return;  // \- (optional hyphen), \| and \: (formula and index marks), unknown symbols
    }
  }

  // The code page of the current group's font.
  int codePage() {
    const int32_t font = groups_.top().font < 0 ? defaultFont_ : groups_.top().font;
    if (font == cachedFont_) return cachedCodePage_;
    int page = 0;
    auto found = fonts_.find(font);
    if (found != fonts_.end()) {
      page = found->second.codePage > 0 ? found->second.codePage : found->second.charsetCodePage;
    }
    cachedFont_ = font;
    cachedCodePage_ = page > 0 ? page : documentCodePage_;
    return cachedCodePage_;
  }

  void fontsChanged() { cachedFont_ = kNoFont; }

  struct Font {
    int charsetCodePage = 0;  // from \fcharsetN; 0: the document's code page
    int codePage = 0;         // from \cpgN, which wins over the charset
  };
  static constexpr int32_t kNoFont = -2;

  Tokenizer tokens_;
  GroupStack groups_;
  TextSink sink_;
  std::map<int32_t, Font> fonts_;
  int documentCodePage_ = kDefaultCodePage;
  int32_t defaultFont_ = -1;
  int32_t cachedFont_ = kNoFont;
  int cachedCodePage_ = kDefaultCodePage;
  size_t fallbackLeft_ = 0;
  bool starred_ = false;
  bool finished_ = false;
  int footnotes_ = 0;
};

}  // namespace

bool looksLikeRtf(std::string_view bytes) {
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  size_t start = 0;
  while (start < bytes.size() && (bytes[start] == ' ' || bytes[start] == '\t' ||
                                  bytes[start] == '\r' || bytes[start] == '\n')) {
    ++start;
  }
  return bytes.substr(start, 5) == "{\\rtf";
}

std::string readText(std::string_view bytes) {
  return Reader(bytes).run();
}

}  // namespace tallowbrook::rtf
