#include "documents/pdf_page.h"

#include "base/fail.h"
#include "documents/pdf_arguments.h"

namespace tallowbrook::PdfPage {
namespace {

std::string sizeText(const Request& request) {
  return std::to_string(request.width) + "x" + std::to_string(request.height);
}

// The message for a failure of the library, in the command's words.
std::string messageFor(Pdf::DocumentError::Kind kind, const Request& request) {
  using Kind = Pdf::DocumentError::Kind;
  switch (kind) {
    case Kind::cannotOpen:
      return "pdf-page: could not open " + request.pdfPath + " as a PDF";
    case Kind::pageNotLoaded:
      return "pdf-page: page " + std::to_string(request.page) + " would not load";
    case Kind::noContext:
      return "pdf-page: could not allocate a " + sizeText(request) + " context";
    case Kind::noImage:
      return "pdf-page: the page drew but produced no image";
    case Kind::cannotCreate:
      return "pdf-page: could not write to " + request.outPath;
    case Kind::writeFailed:
      break;
  }
  return "pdf-page: writing " + request.outPath + " failed";
}

Json renderPage(const Request& request, Pdf::Library& library) {
  const std::string page = std::to_string(request.page);
  auto document = library.open(request.pdfPath);
  int pages = document->pageCount();
  if (pages < request.page) {
    throw Error("pdf-page: this PDF has " + std::to_string(pages) + " pages, asked for " + page);
  }
  document->loadPage(int(request.page));
  Pdf::Rect crop = document->cropBox();
  if (!(crop.width > 0) || !(crop.height > 0)) {
    throw Error("pdf-page: page " + page + " has an empty crop box");
  }
  if (!Pdf::drawableSize(request.width) || !Pdf::drawableSize(request.height)) {
    throw Error("pdf-page: " + sizeText(request) + " is not a drawable size");
  }
  document->draw(crop, int(request.width), int(request.height));
  document->writePng(request.outPath);
  return Json{{"type", "pdf-page"},     {"page", request.page},     {"pages", pages},
              {"width", request.width}, {"height", request.height}, {"path", request.outPath}};
}

void finish(const std::vector<std::string>& args, Pdf::Library* library) {
  try {
    Request request = parse(args);
    writeJsonLine(render(request, library ? *library : Pdf::loadLibrary()));
  } catch (const Error& error) {
    fail(error.message());
  }
}

}  // namespace

Request parse(const std::vector<std::string>& args) {
  if (args.size() < 3) {
    throw Error("usage: pdf-page <pdf-path> <page-number> <out.png> [width] [height]");
  }
  auto page = Pdf::parsePageNumber(args[1]);
  if (!page) throw Error("pdf-page: page number must be 1 or more, got " + args[1]);
  Request request;
  request.pdfPath = args[0];
  request.page = *page;
  request.outPath = args[2];
  if (args.size() > 3) request.width = Pdf::parseInteger(args[3]).value_or(kDefaultWidth);
  if (args.size() > 4) request.height = Pdf::parseInteger(args[4]).value_or(kDefaultHeight);
  return request;
}

Json render(const Request& request, Pdf::Library& library) {
  try {
    return renderPage(request, library);
  } catch (const Pdf::DocumentError& error) {
    throw Error(messageFor(error.kind(), request));
  }
}

void run(const std::vector<std::string>& args) {
  finish(args, nullptr);
}

void run(const std::vector<std::string>& args, Pdf::Library& library) {
  finish(args, &library);
}

}  // namespace tallowbrook::PdfPage
