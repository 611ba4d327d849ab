#include "documents/rtf_control_words.h"

#include <array>
#include <cstddef>
#include <iterator>

namespace tallowbrook::rtf {
namespace {

struct Entry {
  std::string_view word;
  WordAction action;
  char32_t character;
};

using A = WordAction;

// Found through a hash table built at compile time, so lookups cost one hash and usually one
// comparison, with nothing to set up at start.
constexpr Entry kWords[] = {
    {"annotation", A::SkipDestination, 0},
    {"ansi", A::CharacterSet, 1252},
    {"ansicpg", A::AnsiCodePage, 0},
    {"atnauthor", A::SkipDestination, 0},
    {"atndate", A::SkipDestination, 0},
    {"atnicn", A::SkipDestination, 0},
    {"atnid", A::SkipDestination, 0},
    {"atnparent", A::SkipDestination, 0},
    {"atnref", A::SkipDestination, 0},
    {"atntime", A::SkipDestination, 0},
    {"atrfend", A::SkipDestination, 0},
    {"atrfstart", A::SkipDestination, 0},
    {"author", A::SkipDestination, 0},
    {"background", A::SkipDestination, 0},
    {"bkmkend", A::SkipDestination, 0},
    {"bkmkstart", A::SkipDestination, 0},
    {"blipuid", A::SkipDestination, 0},
    {"bullet", A::Character, 0x2022},
    {"buptim", A::SkipDestination, 0},
    {"category", A::SkipDestination, 0},
    {"cell", A::Paragraph, 0},
    {"chftn", A::FootnoteAnchor, 0},
    {"colorschememapping", A::SkipDestination, 0},
    {"colortbl", A::SkipDestination, 0},
    {"comment", A::SkipDestination, 0},
    {"company", A::SkipDestination, 0},
    {"cpg", A::FontCodePage, 0},
    {"creatim", A::SkipDestination, 0},
    {"datafield", A::SkipDestination, 0},
    {"datastore", A::SkipDestination, 0},
    {"defchp", A::SkipDestination, 0},
    {"deff", A::DefaultFont, 0},
    {"defpap", A::SkipDestination, 0},
    {"do", A::SkipDestination, 0},
    {"doccomm", A::SkipDestination, 0},
    {"docvar", A::SkipDestination, 0},
    {"dptxbxtext", A::SkipDestination, 0},
    {"emdash", A::Character, 0x2014},
    {"emspace", A::Character, 0x2003},
    {"endash", A::Character, 0x2013},
    {"enspace", A::Character, 0x2002},
    {"f", A::Font, 0},
    {"fcharset", A::FontCharset, 0},
    {"ffdeftext", A::SkipDestination, 0},
    {"ffentrymcr", A::SkipDestination, 0},
    {"ffexitmcr", A::SkipDestination, 0},
    {"ffformat", A::SkipDestination, 0},
    {"ffhelptext", A::SkipDestination, 0},
    {"ffl", A::SkipDestination, 0},
    {"ffname", A::SkipDestination, 0},
    {"ffstattext", A::SkipDestination, 0},
    {"filetbl", A::SkipDestination, 0},
    {"fldinst", A::SkipDestination, 0},
    {"fldtype", A::SkipDestination, 0},
    {"fonttbl", A::FontTable, 0},
    {"footer", A::SkipDestination, 0},
    {"footerf", A::SkipDestination, 0},
    {"footerl", A::SkipDestination, 0},
    {"footerr", A::SkipDestination, 0},
    {"footnote", A::SkipDestination, 0},
    {"formfield", A::SkipDestination, 0},
    {"ftncn", A::SkipDestination, 0},
    {"ftnsep", A::SkipDestination, 0},
    {"ftnsepc", A::SkipDestination, 0},
    {"generator", A::SkipDestination, 0},
    {"header", A::SkipDestination, 0},
    {"headerf", A::SkipDestination, 0},
    {"headerl", A::SkipDestination, 0},
    {"headerr", A::SkipDestination, 0},
    {"hlinkbase", A::SkipDestination, 0},
    {"info", A::SkipDestination, 0},
    {"keywords", A::SkipDestination, 0},
    {"latentstyles", A::SkipDestination, 0},
    {"lbr", A::LineBreak, 0},
    {"ldblquote", A::Character, 0x201C},
    {"line", A::LineBreak, 0},
    {"listoverridetable", A::SkipDestination, 0},
    {"listpicture", A::SkipDestination, 0},
    {"listtable", A::SkipDestination, 0},
    {"lquote", A::Character, 0x2018},
    {"ltrmark", A::Character, 0x200E},
    {"mac", A::CharacterSet, 10000},
    {"manager", A::SkipDestination, 0},
    {"mmathPr", A::SkipDestination, 0},
    {"nestcell", A::Paragraph, 0},
    {"nestrow", A::Paragraph, 0},
    {"nesttableprops", A::TextGroup, 0},
    {"nonesttables", A::SkipDestination, 0},
    {"nonshppict", A::SkipDestination, 0},
    {"objalias", A::SkipDestination, 0},
    {"objclass", A::SkipDestination, 0},
    {"objdata", A::SkipDestination, 0},
    {"objname", A::SkipDestination, 0},
    {"objsect", A::SkipDestination, 0},
    {"objtime", A::SkipDestination, 0},
    {"operator", A::SkipDestination, 0},
    {"page", A::PageBreak, 0},
    {"par", A::Paragraph, 0},
    {"pc", A::CharacterSet, 437},
    {"pca", A::CharacterSet, 850},
    {"pgdsctbl", A::SkipDestination, 0},
    {"pict", A::SkipDestination, 0},
    {"plain", A::Plain, 0},
    {"pn", A::SkipDestination, 0},
    {"pnseclvl", A::SkipDestination, 0},
    {"pntxta", A::SkipDestination, 0},
    {"pntxtb", A::SkipDestination, 0},
    {"printim", A::SkipDestination, 0},
    {"private", A::SkipDestination, 0},
    {"propname", A::SkipDestination, 0},
    {"protusertbl", A::SkipDestination, 0},
    {"qmspace", A::Character, 0x2005},
    {"rdblquote", A::Character, 0x201D},
    {"revtbl", A::SkipDestination, 0},
    {"revtim", A::SkipDestination, 0},
    {"row", A::Paragraph, 0},
    {"rquote", A::Character, 0x2019},
    {"rsidtbl", A::SkipDestination, 0},
    {"rtlmark", A::Character, 0x200F},
    {"sect", A::Paragraph, 0},
    {"shpinst", A::SkipDestination, 0},
    {"shprslt", A::SkipDestination, 0},
    {"sp", A::SkipDestination, 0},
    {"staticval", A::SkipDestination, 0},
    {"stylesheet", A::SkipDestination, 0},
    {"subject", A::SkipDestination, 0},
    {"tab", A::Character, '\t'},
    {"tc", A::SkipDestination, 0},
    {"template", A::SkipDestination, 0},
    {"themedata", A::SkipDestination, 0},
    {"title", A::SkipDestination, 0},
    {"txe", A::SkipDestination, 0},
    {"u", A::Unicode, 0},
    {"uc", A::UnicodeSkip, 0},
    {"userprops", A::SkipDestination, 0},
    {"v", A::Hidden, 0},
    {"wgrffmtfilter", A::SkipDestination, 0},
    {"writereservation", A::SkipDestination, 0},
    {"xe", A::SkipDestination, 0},
    {"xmlnstbl", A::SkipDestination, 0},
    {"zwj", A::Character, 0x200D},
    {"zwnj", A::Character, 0x200C},
};

constexpr uint32_t hashOf(std::string_view word) {
  uint32_t hash = 2166136261u;  // FNV-1a
  for (char c : word) {
    hash ^= uint8_t(c);
    hash *= 16777619u;
  }
  return hash;
}

constexpr size_t kSlotCount = 512;  // a power of two, well over twice the number of words
static_assert(std::size(kWords) * 2 < kSlotCount);

// Slot -> index into kWords, or -1; open addressing with linear probing.
constexpr std::array<int16_t, kSlotCount> buildSlots() {
  std::array<int16_t, kSlotCount> slots{};
  for (auto& slot : slots) slot = -1;
  for (size_t entry = 0; entry < std::size(kWords); ++entry) {
    size_t slot = hashOf(kWords[entry].word) & (kSlotCount - 1);
    while (slots[slot] >= 0) slot = (slot + 1) & (kSlotCount - 1);
    slots[slot] = int16_t(entry);
  }
  return slots;
}

constexpr std::array<int16_t, kSlotCount> kSlots = buildSlots();

}  // namespace

bool controlWordTableIsConsistent() {
  for (size_t entry = 0; entry < std::size(kWords); ++entry) {
    for (size_t other = 0; other < entry; ++other) {
      if (kWords[other].word == kWords[entry].word) return false;  // a word listed twice
    }
    const WordInfo info = lookupControlWord(kWords[entry].word);
    if (info.action != kWords[entry].action || info.character != kWords[entry].character) {
      return false;
    }
  }
  return true;
}

WordInfo lookupControlWord(std::string_view word) {
  size_t slot = hashOf(word) & (kSlotCount - 1);
  while (kSlots[slot] >= 0) {
    const Entry& entry = kWords[kSlots[slot]];
    if (entry.word == word) return {entry.action, entry.character};
    slot = (slot + 1) & (kSlotCount - 1);
  }
  return {};
}

}  // namespace tallowbrook::rtf
