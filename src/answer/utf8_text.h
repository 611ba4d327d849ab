// UTF-8 checks for the bridge: lines read from the client become text, answers from the
// application are passed on only when they are text.
#pragma once

#include <string>
#include <string_view>

namespace tallowbrook {

// Whether `bytes` is well-formed UTF-8 (no overlong forms, no surrogates, nothing above
// U+10FFFF). Pure; any thread.
bool isValidUtf8(std::string_view bytes);

// `bytes` as well-formed UTF-8: each maximal ill-formed subsequence is replaced by U+FFFD, as a
// text line reader decodes it. Returns the input unchanged when it is already well-formed.
// Pure; any thread.
std::string repairUtf8(std::string_view bytes);

}  // namespace tallowbrook
