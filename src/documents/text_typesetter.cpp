#include "documents/text_typesetter.h"

#include "cli/module.h"

namespace tallowbrook::TextPdf {

Typesetter& loadTypesetter() {
  static Typesetter* typesetter = [] {
    void* module = loadModule("textpdf");
    auto create = reinterpret_cast<CreateTypesetter>(
        moduleSymbol(module, "textpdf", kCreateTypesetterSymbol));
    return create();
  }();
  return *typesetter;
}

}  // namespace tallowbrook::TextPdf
