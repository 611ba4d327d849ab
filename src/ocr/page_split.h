// Where a page can be cut in two for reading the halves on two threads without changing what
// is read or its order.
#pragma once

#include <optional>

#include "ocr/dark_regions.h"

namespace tallowbrook::VisionOCR {

struct PageSplit {
  bool vertical = false;  // true: left and right of column `at`; false: above and below row `at`
  int at = 0;
};

// A cut of the page whose content mask is `mask` (nonzero = content) into two parts that each
// hold at least a quarter of the content, along a blank band that no text line crosses: first
// a blank column band in the middle 40% of the width running the whole height (a gutter
// between two columns of text, read left then right), else a blank row band in the middle 40%
// of the height nearest to half of the content, only when the page is not set in columns (more
// than a fifth of its bands of text having a gutter-wide gap in the middle with content on both
// sides): a cut across columns would change the reading order. Gutters are at least
// `minimumGutter` pixels wide, row bands at least `minimumGap` high. Nothing when there is no such
// cut. Pure.
std::optional<PageSplit> pageSplit(const GrayView& mask, int minimumGutter, int minimumGap);

}  // namespace tallowbrook::VisionOCR
