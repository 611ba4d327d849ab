// Which way the lines of text on a page run, told from the page's content profiles alone, before
// any recognition: cheap hints that a page lies turned.
#pragma once

#include <optional>
#include <vector>

namespace tallowbrook::VisionOCR {

enum class LineDirection {
  unknown,  // too little text, or no clear stripes either way (pictures, grids, one line)
  across,   // lines run from side to side: the page is upright or upside down
  down,     // lines run from top to bottom: the page lies turned by a quarter, one way or the other
};

// The direction of the text lines of a page whose content mask has `rows[y]` content pixels in
// row y and `columns[x]` in column x. Lines running across stripe the row profile with at least
// three runs of content between gaps (rows blank, or holding little more than the least row
// does: a border along the page adds to every row), each run far shorter than the content is
// wide (a line's height against its length), while the column profile is mostly content (lines
// far apart are labels or headings, not a page of text); lines running down stripe the column
// profile in the same way. Lines are at least a few pixels high, and hold a fair share of the
// content: a large block beside a few lines (a dark panel) makes no stripes either way. A
// single line is no stripes at all, and the gaps between its words do not count since its
// words are wider than the line is high. `across` or `down` only when one profile is striped
// and the other not. Pure; any thread.
LineDirection lineDirection(const std::vector<int>& rows, const std::vector<int>& columns);

// Which side of its lines the ascenders of a page's text lie on, as far as their shapes tell,
// from the profile across the lines (`profile[i]` content pixels in row or column i): each line
// has a core of rows (columns) holding at least half its fullest one's content, the height of
// its small letters, and in Latin, Cyrillic and Greek text more strokes reach out of the core
// on the side of the ascenders (capitals, ascenders, accents) than on the other (descenders).
// True when, over at least three lines, the strokes before the cores (lower indexes) outweigh
// those after them by half as much again: rows of upright lines, columns of lines turned a
// quarter counterclockwise. False when those after outweigh those before so: rows of lines
// upside down, columns of lines turned a quarter clockwise. Nothing for fewer lines and where
// it is unclear. Pure; any thread.
std::optional<bool> ascendersFirst(const std::vector<int>& profile);

}  // namespace tallowbrook::VisionOCR
