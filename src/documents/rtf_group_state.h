// The state that RTF groups inherit from their enclosing group, and the stack of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tallowbrook::rtf {

// Where the characters of a group go.
enum class Destination : uint8_t {
  Text,       // the document's text
  FontTable,  // font definitions: names are not text, \fN and \fcharsetN define fonts
  Skip,       // anything else that is not text (pictures, headers, field instructions, ...)
};

struct GroupState {
  Destination destination = Destination::Text;
  bool hidden = false;       // \v: hidden text
  uint16_t unicodeSkip = 1;  // \ucN: fallback characters after each \uN
  int32_t font = -1;         // \fN in the text; -1 is the document's default font
  int32_t definedFont = -1;  // \fN inside the font table: the font being defined
};

// The groups open at the current point of the input. Memory stays bounded however deep the
// input nests: past kMaxDepth levels, deeper groups share the innermost stored state (changes
// made there last until the stored level closes). Closing more groups than were opened is
// ignored.
class GroupStack {
 public:
  static constexpr size_t kMaxDepth = 4096;

  GroupStack() : states_(1) {}

  // The innermost group's state.
  GroupState& top() { return states_.back(); }
  const GroupState& top() const { return states_.back(); }

  // Opens a group that starts with its parent's state.
  void open() {
    if (states_.size() < kMaxDepth) {
      states_.push_back(states_.back());
    } else {
      ++unstored_;
    }
  }

  // Closes the innermost group, restoring the state of its parent.
  void close() {
    if (unstored_ > 0) {
      --unstored_;
    } else if (states_.size() > 1) {
      states_.pop_back();
    }
  }

  // Groups open now, the outermost (document) level not counted.
  size_t depth() const { return states_.size() - 1 + unstored_; }

 private:
  std::vector<GroupState> states_;
  size_t unstored_ = 0;
};

}  // namespace tallowbrook::rtf
