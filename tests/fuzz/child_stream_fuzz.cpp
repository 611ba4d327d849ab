// Fuzzes what the helper reads from a generating child: the input is a byte stream cut into
// frames, fed to the reader in pieces whose sizes come from the input itself; the pieces of the
// answer go through the settled text and the delta rule as `answer` streams them. The reader
// never returns a frame after it is broken, every frame is one a child could have written, and
// every settled snapshot is well-formed UTF-8 that extends the one before and the deltas add up
// to the last snapshot.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "answer/answer_delta.h"
#include "answer/child_frames.h"
#include "answer/stable_text.h"
#include "fuzz_check.h"
#include "text/icu/icu_user_characters.h"
#include "text/utf8_text.h"

namespace {

using tallowbrook::Answer::FrameKind;

bool knownKind(FrameKind kind) {
  return kind >= FrameKind::unavailable && kind <= FrameKind::failed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static std::unique_ptr<tallowbrook::Text::UserCharacters> characters =
      tallowbrook::Text::makeIcuUserCharacters();
  fuzz::check(characters != nullptr);

  // The first byte sets the size of the reads (1 to 256 bytes).
  size_t step = size_t(data[0]) + 1;
  std::string_view stream(reinterpret_cast<const char*>(data) + 1, size - 1);

  tallowbrook::Answer::FrameReader reader;
  tallowbrook::Answer::StableText text(*characters);
  tallowbrook::Answer::DeltaCutter cutter(*characters);
  std::string settled, sent;
  auto take = [&](const std::optional<std::string>& snapshot) {
    if (!snapshot) return;
    fuzz::check(tallowbrook::repairUtf8(*snapshot) == *snapshot);
    fuzz::check(snapshot->size() > settled.size());
    fuzz::check(snapshot->compare(0, settled.size(), settled) == 0);
    settled = *snapshot;
    if (auto delta = cutter.next(settled)) sent += *delta;
  };
  for (size_t at = 0; at < stream.size(); at += step) {
    reader.append(stream.substr(at, step));
    while (auto frame = reader.next()) {
      fuzz::check(!reader.broken());
      fuzz::check(knownKind(frame->kind));
      fuzz::check(frame->payload.size() <= tallowbrook::Answer::kMaxFramePayload);
      if (frame->kind == FrameKind::piece) take(text.append(frame->payload));
    }
    if (reader.broken()) fuzz::check(!reader.next());
  }
  take(text.finish());
  fuzz::check(sent == settled);
  return 0;
}
