// pdf-text: one page's text as visual lines with boxes normalised to the page's crop box.
#pragma once

#include <cstdint>
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

// The request `args` make (pdf path, page number; further words ignored). Throws Error
// "usage: pdf-text <pdf-path> <page-number>" with fewer than two words, "pdf-text: page number
// must be 1 or more, got <word>" for a page number that does not parse or is below 1.
Request parse(const std::vector<std::string>& args);

// Opens the document, finds the page and its crop box, in that order, and returns
// {"type":"pdf-text","page","pages","lines":[line objects]}. Stops at the first failure,
// throwing Error with its message ("pdf-text: could not open <path> as a PDF", "pdf-text: this
// PDF has <n> pages, asked for <page>", "pdf-text: page <page> would not load", "pdf-text: page
// <page> has an empty crop box").
Json extract(const Request& request, Pdf::Library& library);

// The command: parse, load the PDF module, extract, then print the document (one line,
// flushed) or fail with the message (exit status 1).
void run(const std::vector<std::string>& args);

// As run(args), with the library given (tests).
void run(const std::vector<std::string>& args, Pdf::Library& library);

}  // namespace tallowbrook::PdfText
