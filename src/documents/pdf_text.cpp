#include "documents/pdf_text.h"

#include "base/fail.h"
#include "documents/pdf_arguments.h"
#include "documents/pdf_lines.h"

namespace tallowbrook::PdfText {
namespace {

Outcome failure(std::string message) {
  return Outcome{std::move(message), {}};
}

void finish(const Parsed& parsed, Pdf::Library* library) {
  if (parsed.failure) fail(*parsed.failure);
  Outcome outcome = extract(parsed.request, library ? *library : Pdf::loadLibrary());
  if (outcome.failure) fail(*outcome.failure);
  writeJsonLine(outcome.result);
}

}  // namespace

Parsed parse(const std::vector<std::string>& args) {
  Parsed parsed;
  if (args.size() < 2) {
    parsed.failure = "usage: pdf-text <pdf-path> <page-number>";
    return parsed;
  }
  auto page = Pdf::parsePageNumber(args[1]);
  if (!page) {
    parsed.failure = "pdf-text: page number must be 1 or more, got " + args[1];
    return parsed;
  }
  parsed.request = Request{args[0], *page};
  return parsed;
}

Outcome extract(const Request& request, Pdf::Library& library) {
  const std::string page = std::to_string(request.page);
  auto document = library.open(request.pdfPath);
  if (!document) return failure("pdf-text: could not open " + request.pdfPath + " as a PDF");
  int pages = document->pageCount();
  if (pages < request.page) {
    return failure("pdf-text: this PDF has " + std::to_string(pages) + " pages, asked for " + page);
  }
  if (!document->loadPage(int(request.page))) {
    return failure("pdf-text: page " + page + " would not load");
  }
  Pdf::Rect crop = document->cropBox();
  if (!(crop.width > 0) || !(crop.height > 0)) {
    return failure("pdf-text: page " + page + " has an empty crop box");
  }
  Outcome outcome;
  outcome.result = Json{{"type", "pdf-text"}, {"page", request.page}, {"pages", pages}};
  // Filled in place: a page of small print has thousands of lines, too many to copy.
  Json& lines = outcome.result["lines"] = Json::array();
  for (const Line& line : buildLines(document->text())) lines.push_back(lineObject(line, crop));
  return outcome;
}

void run(const std::vector<std::string>& args) {
  finish(parse(args), nullptr);
}

void run(const std::vector<std::string>& args, Pdf::Library& library) {
  finish(parse(args), &library);
}

}  // namespace tallowbrook::PdfText
