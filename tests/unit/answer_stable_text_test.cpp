// Settled text: snapshots of an answer arriving in byte pieces never hold a broken character
// and never end where a later piece could still join the last character.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "answer/answer_delta.h"
#include "answer/stable_text.h"
#include "answer_characters.h"

namespace {

using tallowbrook::Answer::DeltaCutter;
using tallowbrook::Answer::StableText;

const std::string kAcute = "\xCC\x81";
const std::string kWaveBrown = "\xF0\x9F\x91\x8B\xF0\x9F\x8F\xBD";

// Every delta the stream gives for `pieces`, through settled text and the delta rule.
std::vector<std::string> deltas(const std::vector<std::string>& pieces) {
  StableText text(icuCharacters());
  DeltaCutter cutter(icuCharacters());
  std::vector<std::string> out;
  for (const auto& piece : pieces) {
    if (auto snapshot = text.append(piece)) {
      if (auto delta = cutter.next(*snapshot)) out.push_back(*delta);
    }
  }
  if (auto last = text.finish()) {
    if (auto delta = cutter.next(*last)) out.push_back(*delta);
  }
  return out;
}

// Whether `delta` begins with a character that joins the one before it.
bool startsWithJoiner(const std::string& delta) {
  return delta.rfind(kAcute, 0) == 0 || delta.rfind("\xF0\x9F\x8F\xBD", 0) == 0;
}

std::string join(const std::vector<std::string>& parts) {
  std::string all;
  for (const auto& p : parts) all += p;
  return all;
}

}  // namespace

TEST(StableText, AMarkOnItsOwnPieceStaysWithItsLetter) {
  auto out = deltas({"caf", "e", kAcute, " ok"});
  EXPECT_EQ(join(out), "cafe" + kAcute + " ok");
  for (const auto& d : out) EXPECT_FALSE(startsWithJoiner(d)) << d;
}

TEST(StableText, ASkinToneOnItsOwnPieceStaysWithItsHand) {
  auto out = deltas({"hi ", "\xF0\x9F\x91\x8B", "\xF0\x9F\x8F\xBD", "!"});
  EXPECT_EQ(join(out), "hi " + kWaveBrown + "!");
  for (const auto& d : out) EXPECT_FALSE(startsWithJoiner(d)) << d;
}

TEST(StableText, EveryByteSplitGivesWholeCharactersAndLosesNothing) {
  const std::string answer =
      "Gr\xC3\xBC\xC3\x9F"
      "e \xE2\x86\x92 \xE6\x97\xA5\xE6\x9C\xAC caf"
      "e" +
      kAcute + " " + kWaveBrown + " \xED\x95\x9C\xEA\xB8\x80.";
  for (size_t size = 1; size <= 5; ++size) {
    std::vector<std::string> pieces;
    for (size_t at = 0; at < answer.size(); at += size) pieces.push_back(answer.substr(at, size));
    auto out = deltas(pieces);
    EXPECT_EQ(join(out), answer) << size;
    for (const auto& d : out) {
      EXPECT_EQ(d.find("\xEF\xBF\xBD"), std::string::npos) << d;
      EXPECT_FALSE(startsWithJoiner(d)) << d;
    }
  }
}

TEST(StableText, IllFormedBytesBecomeReplacementCharacters) {
  auto out = deltas({"a\xFF", "b"});
  EXPECT_EQ(join(out),
            "a\xEF\xBF\xBD"
            "b");
}

TEST(StableText, AnIncompleteSequenceAtTheEndIsLeftOut) {
  auto out = deltas({"ok \xE2\x86"});
  EXPECT_EQ(join(out), "ok ");
}

TEST(StableText, NothingArrivedIsNothing) {
  EXPECT_TRUE(deltas({}).empty());
  EXPECT_TRUE(deltas({"", ""}).empty());
}
