#include "documents/text_typesetter.h"

#include "base/module.h"

namespace tallowbrook::TextPdf {

Typesetter& loadTypesetter() {
  static Typesetter* typesetter = [] {
    return moduleEntry<CreateTypesetter>("textpdf", kCreateTypesetterSymbol)();
  }();
  return *typesetter;
}

}  // namespace tallowbrook::TextPdf
