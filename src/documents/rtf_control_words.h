// What each RTF control word that the reader acts on means for the text.
#pragma once

#include <cstdint>
#include <string_view>

namespace tallowbrook::rtf {

enum class WordAction : uint8_t {
  Ignore,           // formatting and everything else the text does not depend on
  SkipDestination,  // starts a group whose content is not text (pictures, headers, ...)
  FontTable,        // \fonttbl
  TextGroup,        // a destination whose content is text even after \* (\nesttableprops,
                    // where some writers put a nested table's cells)
  Character,        // stands for one character (see WordInfo::character)
  Paragraph,        // \par, \sect, \cell, \row, ...: a line feed
  LineBreak,        // \line, \lbrN: U+2028
  PageBreak,        // \page: a form feed
  Unicode,          // \uN
  UnicodeSkip,      // \ucN
  Font,             // \fN
  FontCharset,      // \fcharsetN
  FontCodePage,     // \cpgN
  Plain,            // \plain: character formatting back to the defaults
  Hidden,           // \v, \vN
  AnsiCodePage,     // \ansicpgN
  CharacterSet,     // \ansi, \mac, \pc, \pca: the document's code page
  DefaultFont,      // \deffN
  FootnoteAnchor,   // \chftn: the footnote's number
};

struct WordInfo {
  WordAction action = WordAction::Ignore;
  // Character: the character; CharacterSet: the code page.
  char32_t character = 0;
};

// The meaning of the control word `word` (its letters, without backslash or parameter);
// Ignore for words the reader does not act on.
WordInfo lookupControlWord(std::string_view word);

// True when every word of the table behind lookupControlWord is listed once and found with its
// own meaning.
bool controlWordTableIsConsistent();

}  // namespace tallowbrook::rtf
