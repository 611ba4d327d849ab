// Which way the lines of text on a page run, told from the page's content profiles alone, before
// any recognition: a cheap hint that a page lies turned by a quarter.
#pragma once

#include <vector>

namespace tallowbrook::VisionOCR {

enum class LineDirection {
  unknown,  // too little text, or no clear stripes either way (pictures, grids, one line)
  across,   // lines run from side to side: the page is upright or upside down
  down,     // lines run from top to bottom: the page lies turned by a quarter, one way or the other
};

// The direction of the text lines of a page whose content mask has `rows[y]` content pixels in
// row y and `columns[x]` in column x. Lines running across stripe the row profile with at least
// three runs of content between blank gaps, each run far shorter than the content is
// wide (a line's height against its length), while the column profile is mostly content (lines
// far apart are labels or headings, not a page of text); lines running down stripe the column
// profile in the same way. Lines are at least a few pixels high, and hold a fair share of the
// content: a large block beside a few lines (a dark panel) makes no stripes either way. A single
// line is no stripes at all, and the gaps between its words do not count since its words are wider
// than the line is high. `across` or `down` only when one profile is striped and the other not.
// Pure; any thread.
LineDirection lineDirection(const std::vector<int>& rows, const std::vector<int>& columns);

}  // namespace tallowbrook::VisionOCR
