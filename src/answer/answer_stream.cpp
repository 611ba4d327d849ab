#include "answer/answer_stream.h"

#include "answer/answer_delta.h"
#include "base/out.h"

namespace tallowbrook::Answer {

void streamAnswer(ResponseStream& stream, const Text::UserCharacters& characters) {
  DeltaCutter cutter(characters);
  for (;;) {
    StreamEvent event = stream.next();
    switch (event.kind) {
      case StreamEvent::Kind::snapshot:
        if (auto delta = cutter.next(event.text)) {
          writeJsonLine(Json{{"type", "delta"}, {"text", std::move(*delta)}});
        }
        break;
      case StreamEvent::Kind::ended:
        writeJsonLine(Json{{"type", "done"}});
        return;
      case StreamEvent::Kind::failed:
        writeJsonLine(Json{{"type", "error"}, {"message", std::move(event.text)}});
        return;
    }
  }
}

}  // namespace tallowbrook::Answer
