#include "documents/pdf_page.h"

#include "base/fail.h"
#include "documents/pdf_arguments.h"

namespace tallowbrook::PdfPage {
namespace {

Outcome failure(std::string message) {
  return Outcome{std::move(message), {}};
}

std::string sizeText(const Request& request) {
  return std::to_string(request.width) + "x" + std::to_string(request.height);
}

void finish(const Parsed& parsed, Pdf::Library* library) {
  if (parsed.failure) fail(*parsed.failure);
  Outcome outcome = render(parsed.request, library ? *library : Pdf::loadLibrary());
  if (outcome.failure) fail(*outcome.failure);
  writeJsonLine(outcome.summary);
}

}  // namespace

Parsed parse(const std::vector<std::string>& args) {
  Parsed parsed;
  if (args.size() < 3) {
    parsed.failure = "usage: pdf-page <pdf-path> <page-number> <out.png> [width] [height]";
    return parsed;
  }
  auto page = Pdf::parsePageNumber(args[1]);
  if (!page) {
    parsed.failure = "pdf-page: page number must be 1 or more, got " + args[1];
    return parsed;
  }
  Request& request = parsed.request;
  request.pdfPath = args[0];
  request.page = *page;
  request.outPath = args[2];
  if (args.size() > 3) request.width = Pdf::parseInteger(args[3]).value_or(kDefaultWidth);
  if (args.size() > 4) request.height = Pdf::parseInteger(args[4]).value_or(kDefaultHeight);
  return parsed;
}

Outcome render(const Request& request, Pdf::Library& library) {
  const std::string page = std::to_string(request.page);
  auto document = library.open(request.pdfPath);
  if (!document) return failure("pdf-page: could not open " + request.pdfPath + " as a PDF");
  int pages = document->pageCount();
  if (pages < request.page) {
    return failure("pdf-page: this PDF has " + std::to_string(pages) + " pages, asked for " + page);
  }
  if (!document->loadPage(int(request.page))) {
    return failure("pdf-page: page " + page + " would not load");
  }
  Pdf::Rect crop = document->cropBox();
  if (!(crop.width > 0) || !(crop.height > 0)) {
    return failure("pdf-page: page " + page + " has an empty crop box");
  }
  if (!Pdf::drawableSize(request.width) || !Pdf::drawableSize(request.height)) {
    return failure("pdf-page: " + sizeText(request) + " is not a drawable size");
  }
  switch (document->draw(crop, int(request.width), int(request.height))) {
    case Pdf::DrawResult::drawn:
      break;
    case Pdf::DrawResult::noContext:
      return failure("pdf-page: could not allocate a " + sizeText(request) + " context");
    case Pdf::DrawResult::noImage:
      return failure("pdf-page: the page drew but produced no image");
  }
  switch (document->writePng(request.outPath)) {
    case Pdf::WriteResult::written:
      break;
    case Pdf::WriteResult::cannotCreate:
      return failure("pdf-page: could not write to " + request.outPath);
    case Pdf::WriteResult::failed:
      return failure("pdf-page: writing " + request.outPath + " failed");
  }
  Outcome outcome;
  outcome.summary =
      Json{{"type", "pdf-page"},     {"page", request.page},     {"pages", pages},
           {"width", request.width}, {"height", request.height}, {"path", request.outPath}};
  return outcome;
}

void run(const std::vector<std::string>& args) {
  finish(parse(args), nullptr);
}

void run(const std::vector<std::string>& args, Pdf::Library& library) {
  finish(parse(args), &library);
}

}  // namespace tallowbrook::PdfPage
