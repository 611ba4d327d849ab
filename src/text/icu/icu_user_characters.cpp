#include "text/icu/icu_user_characters.h"

#include <unicode/brkiter.h>
#include <unicode/utext.h>

#include <string>

#include "base/error.h"

namespace tallowbrook::Text {
namespace {

class IcuUserCharacters final : public UserCharacters {
 public:
  explicit IcuUserCharacters(std::unique_ptr<icu::BreakIterator> breaker)
      : breaker_(std::move(breaker)) {}

  size_t count(std::string_view text) const override {
    size_t characters = 0;
    walk(text, [&](size_t) {
      ++characters;
      return true;
    });
    return characters;
  }

  size_t prefixBytes(std::string_view text, size_t characters) const override {
    if (characters == 0) return 0;
    size_t seen = 0, end = text.size();
    walk(text, [&](size_t boundary) {
      if (++seen < characters) return true;
      end = boundary;
      return false;
    });
    return end;
  }

 private:
  // Calls `onBoundary` with the byte offset of the end of each character in turn, until it
  // returns false. The UTF-8 text is read in place (UText indexes are byte offsets).
  template <typename OnBoundary>
  void walk(std::string_view text, OnBoundary onBoundary) const {
    if (text.empty()) return;
    UErrorCode status = U_ZERO_ERROR;
    UText ut = UTEXT_INITIALIZER;
    utext_openUTF8(&ut, text.data(), int64_t(text.size()), &status);
    if (U_FAILURE(status)) return;
    breaker_->setText(&ut, status);
    if (U_SUCCESS(status)) {
      breaker_->first();
      for (int32_t at = breaker_->next(); at != icu::BreakIterator::DONE; at = breaker_->next()) {
        if (!onBoundary(size_t(at))) break;
      }
    }
    utext_close(&ut);
  }

  std::unique_ptr<icu::BreakIterator> breaker_;
};

}  // namespace

std::unique_ptr<UserCharacters> makeIcuUserCharacters() {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> breaker(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status) || !breaker) {
    throw Error(std::string("ICU character breaks are unavailable: ") + u_errorName(status));
  }
  return std::make_unique<IcuUserCharacters>(std::move(breaker));
}

}  // namespace tallowbrook::Text

extern "C" tallowbrook::Text::UserCharacters* tallowbrook_text_user_characters() {
  return tallowbrook::Text::makeIcuUserCharacters().release();
}
