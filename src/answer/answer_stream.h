// The streaming loop of `answer`: snapshots in, delta lines and one final line out.
#pragma once

#include "answer/language_model.h"
#include "text/user_characters.h"

namespace tallowbrook::Answer {

// Reads `stream` to its end, printing a {"type":"delta","text":...} line for each snapshot
// that adds characters (the delta rule of DeltaCutter), then exactly one {"type":"done"} line
// when the stream ends or {"type":"error","message":...} when it fails. Every line is flushed
// as it is written, through writeJsonLine (takes Out::lock()). A line that cannot be written
// (closed standard output) does not stop the loop. Called by the one streaming thread.
void streamAnswer(ResponseStream& stream, const Text::UserCharacters& characters);

}  // namespace tallowbrook::Answer
