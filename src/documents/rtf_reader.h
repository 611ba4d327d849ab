// Reads the plain text of an RTF document.
#pragma once

#include <string>
#include <string_view>

namespace tallowbrook::rtf {

// True when `bytes` begin like an RTF document: "{\rtf" after an optional UTF-8 byte order
// mark and ASCII white space. Nothing else of the document is checked.
bool looksLikeRtf(std::string_view bytes);

// The document's text as UTF-8, for bytes that looksLikeRtf accepts (others are read the same
// way, as well as they go). Paragraph ends (\par, \sect, table cells and rows) become line
// feeds, \line becomes U+2028, \page a form feed, \tab a tab. Text comes from the document's
// body, field results, list labels and object results; fonts, colours, styles, document
// information, pictures, object data, headers, footers, footnotes, annotations, field
// instructions, hidden text and {\*...} destinations give none (\nesttableprops excepted:
// some writers put nested cells there). Reading ends where the outermost group closes. A footnote's
// anchor gives its number. Bytes are decoded in the code page of their font (\fcharsetN, \cpgN) or
// of the document (\ansicpgN, \mac, \pc, \pca), 1252 when none is given; \uN with its \ucN fallback
// skipped, surrogate pairs combined.
//
// Never fails and never reads outside `bytes`: unbalanced braces, input cut off anywhere,
// \bin lengths past the end and NUL bytes are all read as far as they go. Time is linear in
// the input; memory is the text plus a bounded group stack, however deep the groups nest.
std::string readText(std::string_view bytes);

}  // namespace tallowbrook::rtf
