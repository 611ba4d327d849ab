#include "documents/pdf_text.h"

#include "base/fail.h"
#include "documents/pdf_arguments.h"
#include "documents/pdf_lines.h"

namespace tallowbrook::PdfText {
namespace {

Json extractPage(const Request& request, Pdf::Library& library) {
  const std::string page = std::to_string(request.page);
  auto document = library.open(request.pdfPath);
  int pages = document->pageCount();
  if (pages < request.page) {
    throw Error("pdf-text: this PDF has " + std::to_string(pages) + " pages, asked for " + page);
  }
  document->loadPage(int(request.page));
  Pdf::Rect crop = document->cropBox();
  if (!(crop.width > 0) || !(crop.height > 0)) {
    throw Error("pdf-text: page " + page + " has an empty crop box");
  }
  Json result = Json{{"type", "pdf-text"}, {"page", request.page}, {"pages", pages}};
  // Filled in place: a page of small print has thousands of lines, too many to copy.
  Json& lines = result["lines"] = Json::array();
  for (const Line& line : buildLines(document->text())) lines.push_back(lineObject(line, crop));
  return result;
}

void finish(const std::vector<std::string>& args, Pdf::Library* library) {
  try {
    Request request = parse(args);
    writeJsonLine(extract(request, library ? *library : Pdf::loadLibrary()));
  } catch (const Error& error) {
    fail(error.message());
  }
}

}  // namespace

Request parse(const std::vector<std::string>& args) {
  if (args.size() < 2) throw Error("usage: pdf-text <pdf-path> <page-number>");
  auto page = Pdf::parsePageNumber(args[1]);
  if (!page) throw Error("pdf-text: page number must be 1 or more, got " + args[1]);
  return Request{args[0], *page};
}

Json extract(const Request& request, Pdf::Library& library) {
  try {
    return extractPage(request, library);
  } catch (const Pdf::DocumentError& error) {
    switch (error.kind()) {
      case Pdf::DocumentError::Kind::cannotOpen:
        throw Error("pdf-text: could not open " + request.pdfPath + " as a PDF");
      case Pdf::DocumentError::Kind::pageNotLoaded:
        throw Error("pdf-text: page " + std::to_string(request.page) + " would not load");
      default:
        throw;  // nothing else of the library's is used here
    }
  }
}

void run(const std::vector<std::string>& args) {
  finish(args, nullptr);
}

void run(const std::vector<std::string>& args, Pdf::Library& library) {
  finish(args, &library);
}

}  // namespace tallowbrook::PdfText
