// UTF-8 checks: lines the bridge reads from the client become text, answers from the
// application are passed on only when they are text; a model's answer arrives in pieces that may
// end inside a character.
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

// The number of bytes at the end of `bytes` that begin a well-formed sequence which more bytes
// could still complete (0 to 3): what to hold back from text that is still arriving. Pure; any
// thread.
size_t incompleteUtf8Tail(std::string_view bytes);

}  // namespace tallowbrook
