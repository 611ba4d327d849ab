// text-pdf: a titled list of optionally labelled paragraphs, read as JSON on standard input,
// typeset into a paginated PDF with fixed page size and typography.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/out.h"
#include "documents/text_typesetter.h"

namespace tallowbrook::TextPdf {

// One entry of the request's "lines".
struct Line {
  std::optional<std::string> label;
  std::string text;
};

// The request: "title" (string, required), "subtitle" (string, absent or null allowed),
// "lines" (array of {"label": string, absent or null allowed; "text": string, required},
// required). Other keys are ignored.
struct Request {
  std::string title;
  std::optional<std::string> subtitle;
  std::vector<Line> lines;
};

// Page geometry in PDF user space (points, origin bottom left).
inline constexpr double kPageWidth = 447;
inline constexpr double kPageHeight = 596;
inline constexpr Rect kTextFrame{34, 154, 379, 408};
inline constexpr double kFooterX = 34;
inline constexpr double kFooterY = 16;

// Typography of each element.
inline constexpr Style kTitleStyle{Face::serifBold, 17, 0, 4, 0, 1.25};
inline constexpr Style kSubtitleStyle{Face::mono, 8, 0.35, 14, 0, 1.25};
inline constexpr Style kLabelStyle{Face::mono, 8, 0.35, 1, 6, 1.25};
inline constexpr Style kTextStyle{Face::serif, 11.5, 0, 4, 0, 1.25};
inline constexpr Style kFooterStyle{Face::mono, 7, 0.55, 0, 0, 1.25};

inline constexpr std::string_view kCreator = "Tallowbrook";
inline constexpr std::string_view kUsage = "usage: text-pdf <out.pdf>";
inline constexpr std::string_view kParseFailure = "could not parse the request on stdin";

// The request in `input`, or nothing when `input` is not JSON, not an object, lacks "title" or
// "lines", or has a value of the wrong type. Pure.
std::optional<Request> decode(std::string_view input);

// The styled text: the title run (always), the subtitle run (when present and not empty), then
// for each line its label run (when present and not empty) and its text run (always, even
// empty). Every run's text ends with "\n". Pure.
Attributed attributed(const Request& request);

// "Tallowbrook · <page>". Pure.
std::string footerText(int page);

// Draws the footer of the current page of `document`: footerText(page) in the footer style
// with its baseline at (34, 16).
void footer(Document& document, int page);

// Typesets `request` into a PDF at `path`: opens it (throwing the typesetter's Error "cannot
// write <path>" or "cannot create a PDF context"), then pages until the text is placed: each
// page gets the frame filled from the current position and its footer (number = pages counted
// + 1); a page on which nothing fits ends the loop and is kept in the file without being
// counted. Closes the file; when writing failed the incomplete file is removed and the Error
// "cannot write <path>" is thrown. Returns the summary {"type":"done","pages":max(count,1),
// "bytes":<the file's size, 0 if unreadable>}.
Json write(const std::string& path, const Request& request, Typesetter& typesetter);

// The command: the first word is the output path (others ignored; none fails with the usage
// line); reads standard input to its end, decodes, loads the textpdf module, writes, then
// prints the summary (one line, flushed) or fails (exit status 1).
void run(const std::vector<std::string>& args);

// As run(args), with the input and typesetter given (tests).
void run(const std::vector<std::string>& args, std::string_view input, Typesetter& typesetter);

}  // namespace tallowbrook::TextPdf
