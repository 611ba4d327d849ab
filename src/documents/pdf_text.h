// pdf-text: one page's text as visual lines with boxes normalised to the page's crop box.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/out.h"
#include "documents/pdf_document.h"

namespace tallowbrook::PdfText {

// What the command line asks for.
struct Request {
  std::string pdfPath;
  int64_t page = 1;
};

// The request `args` make (pdf path, page number; further words ignored), or the failure:
// "usage: pdf-text <pdf-path> <page-number>" with fewer than two words, "pdf-text: page number
// must be 1 or more, got <word>" for a page number that does not parse or is below 1.
struct Parsed {
  std::optional<std::string> failure;
  Request request;
};
Parsed parse(const std::vector<std::string>& args);

// A run's end: the failure message, or the document to print.
struct Outcome {
  std::optional<std::string> failure;
  Json result;
};

// Opens the document, finds the page and its crop box, in that order, stopping at the first
// failure ("pdf-text: could not open <path> as a PDF", "pdf-text: this PDF has <n> pages,
// asked for <page>", "pdf-text: page <page> would not load", "pdf-text: page <page> has an
// empty crop box"); else {"type":"pdf-text","page","pages","lines":[line objects]}.
Outcome extract(const Request& request, Pdf::Library& library);

// The command: parse, load the PDF module, extract, then print the document (one line,
// flushed) or fail with the message (exit status 1).
void run(const std::vector<std::string>& args);

// As run(args), with the library given (tests).
void run(const std::vector<std::string>& args, Pdf::Library& library);

}  // namespace tallowbrook::PdfText
