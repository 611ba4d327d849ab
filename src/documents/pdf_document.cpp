#include "documents/pdf_document.h"

#include <algorithm>

#include "base/module.h"

namespace tallowbrook::Pdf {

Rect unionOf(const Rect& a, const Rect& b) {
  double minX = std::min(a.minX(), b.minX());
  double minY = std::min(a.minY(), b.minY());
  double maxX = std::max(a.maxX(), b.maxX());
  double maxY = std::max(a.maxY(), b.maxY());
  return {minX, minY, maxX - minX, maxY - minY};
}

Library& loadLibrary() {
  static Library* library = [] {
    return moduleEntry<CreateLibrary>("pdf", kCreateLibrarySymbol)();
  }();
  return *library;
}

}  // namespace tallowbrook::Pdf
