#include "base/out.h"

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/fail.h"
#include "stdout_capture.h"

namespace tallowbrook {
namespace {

TEST(SerializeJson, IsCompactAndEscapesEverySlash) {
  Json doc{{"type", "x"}, {"path/key", "/a/b/"}, {"list", {1, "c/d"}}};
  EXPECT_EQ(serializeJson(doc), R"({"type":"x","path\/key":"\/a\/b\/","list":[1,"c\/d"]})");
}

TEST(SerializeJson, KeepsAlreadyEscapedBackslashesIntact) {
  EXPECT_EQ(serializeJson(Json{{"m", "a\\/b"}}), R"({"m":"a\\\/b"})");
}

TEST(SerializeJson, WritesUtf8AndEscapesControlCharacters) {
  EXPECT_EQ(serializeJson(Json{{"m", "Grüße\n\t\x01"}}), "{\"m\":\"Grüße\\n\\t\\u0001\"}");
}

TEST(SerializeJson, ReplacesInvalidUtf8) {
  EXPECT_EQ(serializeJson(Json{{"m", "a\xC3"}}), "{\"m\":\"a\xEF\xBF\xBD\"}");
}

TEST(SerializeJson, RefusesNonFiniteNumbers) {
  EXPECT_FALSE(serializeJson(Json{{"v", std::nan("")}}));
  EXPECT_FALSE(serializeJson(Json{{"a", {1.0, {{"b", std::numeric_limits<double>::infinity()}}}}}));
  EXPECT_EQ(serializeJson(Json{{"v", 0.1}, {"n", -3}, {"u", uint64_t{1} << 63}}),
            R"({"v":0.1,"n":-3,"u":9223372036854775808})");
}

TEST(WriteJsonLine, WritesOneLineFeedTerminatedLine) {
  StdoutCapture capture;
  EXPECT_TRUE(writeJsonLine(Json{{"type", "done"}}));
  EXPECT_TRUE(writeTextLine(R"({"jsonrpc":"2.0"})"));
  EXPECT_EQ(capture.text(), "{\"type\":\"done\"}\n{\"jsonrpc\":\"2.0\"}\n");
}

TEST(WriteJsonLine, PrintsNothingWhenSerialisationFails) {
  StdoutCapture capture;
  EXPECT_FALSE(writeJsonLine(Json{{"type", "level"}, {"rms", std::nan("")}}));
  EXPECT_EQ(capture.text(), "");
}

TEST(WriteJsonLine, LockedVariantWritesUnderTheHeldLock) {
  StdoutCapture capture;
  {
    std::lock_guard<std::mutex> held(Out::lock());
    EXPECT_TRUE(writeJsonLineLocked(Json{{"type", "a"}}, held));
  }
  EXPECT_EQ(capture.text(), "{\"type\":\"a\"}\n");
}

TEST(WriteJsonLine, ConcurrentWritersNeverInterleave) {
  StdoutCapture capture;
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        writeJsonLine(Json{{"type", "level"}, {"thread", t}, {"pad", std::string(300, 'x')}});
      }
    });
  }
  for (auto& w : writers) w.join();
  std::string text = capture.text();
  size_t lines = 0, start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    EXPECT_NO_THROW(Json::parse(text.substr(start, end - start)));
    ++lines;
  }
  EXPECT_EQ(lines, 800u);
  EXPECT_EQ(start, text.size());
}

TEST(OutLock, IsOneProcessWideMutex) {
  EXPECT_EQ(&Out::lock(), &Out::lock());
}

TEST(FailureDocument, HasExactlyTypeAndMessage) {
  EXPECT_EQ(failureDocument("could not read /x"),
            (Json{{"type", "error"}, {"message", "could not read /x"}}));
}

TEST(Fail, PrintsTheDocumentAndExitsWithStatusOne) {
  StdoutCapture capture;
  EXPECT_EXIT(fail("could not open /tmp/a b.pdf"), testing::ExitedWithCode(1), "");
  EXPECT_EQ(capture.text(), R"({"type":"error","message":"could not open \/tmp\/a b.pdf"})"
                            "\n");
}

}  // namespace
}  // namespace tallowbrook
