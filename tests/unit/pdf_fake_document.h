// A PDF library for tests of pdf-page and pdf-text: documents kept in memory by path.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "documents/pdf_document.h"

namespace tallowbrook::Pdf {

struct FakePage {
  bool loads = true;
  Rect crop{0, 0, 612, 792};
  PageText text;
};

struct FakeFile {
  std::vector<FakePage> pages;
  std::optional<DocumentError::Kind> drawFails;   // what draw() throws, if anything
  std::optional<DocumentError::Kind> writeFails;  // what writePng() throws, if anything
};

// What the commands asked of the library.
struct FakeLog {
  std::vector<std::string> opened;
  int loadedPage = 0;
  Rect drawnCrop;
  int drawnWidth = 0;
  int drawnHeight = 0;
  std::string writtenPath;
};

class FakeDocument : public Document {
 public:
  FakeDocument(const FakeFile& file, FakeLog& log) : file_(file), log_(log) {}
  int pageCount() const override { return int(file_.pages.size()); }
  void loadPage(int number) override {
    log_.loadedPage = number;
    page_ = &file_.pages.at(size_t(number - 1));
    if (!page_->loads) throw DocumentError(DocumentError::Kind::pageNotLoaded, "fake: no load");
  }
  Rect cropBox() const override { return page_->crop; }
  void draw(const Rect& crop, int width, int height) override {
    log_.drawnCrop = crop;
    log_.drawnWidth = width;
    log_.drawnHeight = height;
    if (file_.drawFails) throw DocumentError(*file_.drawFails, "fake: no drawing");
  }
  void writePng(const std::string& path) override {
    log_.writtenPath = path;
    if (file_.writeFails) throw DocumentError(*file_.writeFails, "fake: no writing");
  }
  PageText text() override { return page_->text; }

 private:
  const FakeFile& file_;
  FakeLog& log_;
  const FakePage* page_ = nullptr;
};

class FakeLibrary : public Library {
 public:
  std::map<std::string, FakeFile> files;
  FakeLog log;
  std::unique_ptr<Document> open(const std::string& path) override {
    log.opened.push_back(path);
    auto found = files.find(path);
    if (found == files.end()) throw DocumentError(DocumentError::Kind::cannotOpen, "fake: no file");
    return std::make_unique<FakeDocument>(found->second, log);
  }
};

}  // namespace tallowbrook::Pdf
