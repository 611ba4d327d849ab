// pdf-page: one page of a PDF drawn into a PNG image of a given pixel size, on white.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/out.h"
#include "documents/pdf_document.h"

namespace tallowbrook::PdfPage {

inline constexpr int64_t kDefaultWidth = 1404;
inline constexpr int64_t kDefaultHeight = 1872;

// What the command line asks for.
struct Request {
  std::string pdfPath;
  int64_t page = 1;
  std::string outPath;
  int64_t width = kDefaultWidth;
  int64_t height = kDefaultHeight;
};

// The request `args` make (pdf path, page number, output path, optional width and height;
// further words ignored). Throws Error "usage: pdf-page <pdf-path> <page-number> <out.png>
// [width] [height]" with fewer than three words, "pdf-page: page number must be 1 or more, got
// <word>" for a page number that does not parse or is below 1. A width or height that does not
// parse leaves its default without a message; its range is checked later, by render().
Request parse(const std::vector<std::string>& args);

// Opens the document, finds the page and its crop box, checks the size, draws and writes the
// PNG, in that order, and returns the summary {"type":"pdf-page","page","pages","width",
// "height","path"}. Stops at the first failure, throwing Error with its message ("pdf-page:
// could not open <path> as a PDF", "pdf-page: this PDF has <n> pages, asked for <page>",
// "pdf-page: page <page> would not load", "pdf-page: page <page> has an empty crop box",
// "pdf-page: <w>x<h> is not a drawable size", "pdf-page: could not allocate a <w>x<h> context",
// "pdf-page: the page drew but produced no image", "pdf-page: could not write to <out>",
// "pdf-page: writing <out> failed").
Json render(const Request& request, Pdf::Library& library);

// The command: parse, load the PDF module, render, then print the summary (one line, flushed)
// or fail with the message (exit status 1).
void run(const std::vector<std::string>& args);

// As run(args), with the library given (tests).
void run(const std::vector<std::string>& args, Pdf::Library& library);

}  // namespace tallowbrook::PdfPage
