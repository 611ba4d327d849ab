// The delta rule through ICU's user-perceived characters, and the streaming loop over a
// scripted stream.
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "answer/answer_delta.h"
#include "answer/answer_stream.h"
#include "answer_characters.h"
#include "stdout_capture.h"

namespace {

using tallowbrook::Answer::DeltaCutter;
using tallowbrook::Answer::ResponseStream;
using tallowbrook::Answer::StreamEvent;
using tallowbrook::Text::UserCharacters;

const UserCharacters& characters() {
  return icuCharacters();
}

// The deltas the rule gives for `snapshots`, one entry per snapshot ("" for none).
std::vector<std::string> cut(const std::vector<std::string>& snapshots) {
  DeltaCutter cutter(characters());
  std::vector<std::string> out;
  for (const auto& s : snapshots) out.push_back(cutter.next(s).value_or("<none>"));
  return out;
}

class ScriptedStream : public ResponseStream {
 public:
  explicit ScriptedStream(std::deque<StreamEvent> events) : events_(std::move(events)) {}
  StreamEvent next() override {
    EXPECT_FALSE(events_.empty()) << "read past the end of the stream";
    if (events_.empty()) return {StreamEvent::Kind::failed, "past the end"};
    StreamEvent e = events_.front();
    events_.pop_front();
    return e;
  }
  bool drained() const { return events_.empty(); }

 private:
  std::deque<StreamEvent> events_;
};

StreamEvent snapshot(std::string text) {
  return {StreamEvent::Kind::snapshot, std::move(text)};
}

std::vector<nlohmann::json> lines(const std::string& out) {
  std::vector<nlohmann::json> parsed;
  size_t start = 0;
  while (start < out.size()) {
    size_t end = out.find('\n', start);
    EXPECT_NE(end, std::string::npos) << "unterminated line";
    if (end == std::string::npos) break;
    parsed.push_back(nlohmann::json::parse(out.substr(start, end - start)));
    start = end + 1;
  }
  return parsed;
}

}  // namespace

TEST(UserCharacters, CountsGraphemeClusters) {
  const auto& c = characters();
  EXPECT_EQ(c.count(""), 0u);
  EXPECT_EQ(c.count("abc"), 3u);
  EXPECT_EQ(c.count("w\xC3\xB6rld"), 5u);                      // precomposed ö
  EXPECT_EQ(c.count("cafe\xCC\x81"), 4u);                      // e + combining acute
  EXPECT_EQ(c.count("\xF0\x9F\x91\x8B\xF0\x9F\x8F\xBD"), 1u);  // waving hand + skin tone
  EXPECT_EQ(c.count("\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB"), 1u);  // ZWJ sequence
  EXPECT_EQ(c.count("\r\n"), 1u);
  EXPECT_EQ(c.prefixBytes("cafe\xCC\x81!", 4), 6u);
  EXPECT_EQ(c.prefixBytes("cafe\xCC\x81!", 3), 3u);
  EXPECT_EQ(c.prefixBytes("ab", 5), 2u);
  EXPECT_EQ(c.prefixBytes("ab", 0), 0u);
}

TEST(UserCharacters, InvalidUtf8IsCountedNotCrashedOn) {
  const auto& c = characters();
  EXPECT_EQ(c.count("a\xFF"
                    "b"),
            3u);
  EXPECT_GE(c.count("\xE2\x86"), 1u);  // a cut-off sequence
  EXPECT_EQ(c.prefixBytes("\xE2\x86", 99), 2u);
}

TEST(AnswerDelta, GrowingSnapshotsGiveTheNewText) {
  EXPECT_EQ(cut({"Hel", "Hello", "Hello, world"}),
            (std::vector<std::string>{"Hel", "lo", ", world"}));
}

TEST(AnswerDelta, ASnapshotNoLongerThanTheLastGivesNothing) {
  EXPECT_EQ(cut({"Hello", "Hello", "Help", "He", "Hello!"}),
            (std::vector<std::string>{"Hello", "<none>", "<none>", "<none>", "!"}));
}

TEST(AnswerDelta, RevisionsAreCutByCountNotResent) {
  // The model rewrote "cat" as "dog": only what lies past the old length is sent.
  EXPECT_EQ(cut({"a cat", "a dog sat"}), (std::vector<std::string>{"a cat", " sat"}));
  // A shrink then a regrowth counts from the last snapshot that gave a delta.
  EXPECT_EQ(cut({"abcdef", "abc", "abcdefgh"}),
            (std::vector<std::string>{"abcdef", "<none>", "gh"}));
}

TEST(AnswerDelta, MultiByteCharactersAreNeverSplit) {
  auto d = cut(
      {"\xE2\x86\x92", "\xE2\x86\x92 w\xC3\xB6rld", "\xE2\x86\x92 w\xC3\xB6rld \xF0\x9F\x91\x8B"});
  EXPECT_EQ(d, (std::vector<std::string>{"\xE2\x86\x92", " w\xC3\xB6rld", " \xF0\x9F\x91\x8B"}));
}

TEST(AnswerDelta, ACombiningMarkJoinsTheCharacterBeforeIt) {
  // "cafe" then the acute accent: still four characters, so no line; the accent is never sent.
  EXPECT_EQ(cut({"cafe", "cafe\xCC\x81", "cafe\xCC\x81 ok"}),
            (std::vector<std::string>{"cafe", "<none>", " ok"}));
  // A base with its mark in one piece is one character in the delta.
  EXPECT_EQ(cut({"ma",
                 "man\xCC\x83"
                 "ana"}),
            (std::vector<std::string>{"ma",
                                      "n\xCC\x83"
                                      "ana"}));
  // An emoji modifier arriving after its emoji is not a new character either.
  EXPECT_EQ(cut({"\xF0\x9F\x91\x8B", "\xF0\x9F\x91\x8B\xF0\x9F\x8F\xBD",
                 "\xF0\x9F\x91\x8B\xF0\x9F\x8F\xBD!"}),
            (std::vector<std::string>{"\xF0\x9F\x91\x8B", "<none>", "!"}));
}

TEST(AnswerStream, DeltasThenDone) {
  ScriptedStream stream({snapshot("Hi"),
                         snapshot("Hi"),
                         snapshot("Hi th"),
                         snapshot("Hi there"),
                         {StreamEvent::Kind::ended, ""}});
  StdoutCapture capture;
  tallowbrook::Answer::streamAnswer(stream, characters());
  std::string out = capture.text();
  EXPECT_EQ(out,
            "{\"type\":\"delta\",\"text\":\"Hi\"}\n{\"type\":\"delta\",\"text\":\" th\"}\n"
            "{\"type\":\"delta\",\"text\":\"ere\"}\n{\"type\":\"done\"}\n");
  EXPECT_TRUE(stream.drained());
}

TEST(AnswerStream, NoTextAtAllIsOnlyDone) {
  ScriptedStream stream({{StreamEvent::Kind::ended, ""}});
  StdoutCapture capture;
  tallowbrook::Answer::streamAnswer(stream, characters());
  EXPECT_EQ(capture.text(), "{\"type\":\"done\"}\n");
}

TEST(AnswerStream, EmptySnapshotsGiveNoLines) {
  ScriptedStream stream({snapshot(""), snapshot(""), {StreamEvent::Kind::ended, ""}});
  StdoutCapture capture;
  tallowbrook::Answer::streamAnswer(stream, characters());
  EXPECT_EQ(capture.text(), "{\"type\":\"done\"}\n");
}

TEST(AnswerStream, AFailureAfterTextEndsWithOneErrorLine) {
  ScriptedStream stream({snapshot("Part"),
                         snapshot("Partial / answer"),
                         {StreamEvent::Kind::failed, "the model's process exited with status 3"}});
  StdoutCapture capture;
  tallowbrook::Answer::streamAnswer(stream, characters());
  auto out = lines(capture.text());
  ASSERT_EQ(out.size(), 3u);
  EXPECT_EQ(out[0], (nlohmann::json{{"type", "delta"}, {"text", "Part"}}));
  EXPECT_EQ(out[1], (nlohmann::json{{"type", "delta"}, {"text", "ial / answer"}}));
  EXPECT_EQ(out[2], (nlohmann::json{{"type", "error"},
                                    {"message", "the model's process exited with status 3"}}));
  EXPECT_TRUE(stream.drained());
}

TEST(AnswerStream, ConcatenatedDeltasAreTheAnswerWhenEverySnapshotExtendsTheLast) {
  std::vector<std::string> pieces = {"Da", "s ",         "Ar",       "chiv", " \xE2\x86\x92",
                                     " ",  "gr\xC3\xBC", "\xC3\x9F", "e ",   "\xF0\x9F\x93\x9A",
                                     "."};
  std::deque<StreamEvent> events;
  std::string whole;
  for (const auto& p : pieces) events.push_back(snapshot(whole += p));
  events.push_back({StreamEvent::Kind::ended, ""});
  ScriptedStream stream(events);
  StdoutCapture capture;
  tallowbrook::Answer::streamAnswer(stream, characters());
  auto out = lines(capture.text());
  ASSERT_EQ(out.size(), pieces.size() + 1);
  std::string joined;
  for (size_t i = 0; i + 1 < out.size(); ++i) {
    EXPECT_EQ(out[i]["type"], "delta");
    joined += out[i]["text"].get<std::string>();
  }
  EXPECT_EQ(joined, whole);
  EXPECT_EQ(out.back(), (nlohmann::json{{"type", "done"}}));
}
