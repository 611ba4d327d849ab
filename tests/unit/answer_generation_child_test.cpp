// The generating child, with scripted bodies in place of the language model: what reaches the
// helper when the child answers, refuses, dies, aborts mid-answer or hangs.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "answer/generation_child.h"
#include "answer_characters.h"

namespace {

using namespace std::chrono_literals;
using tallowbrook::Answer::GenerationChild;
using tallowbrook::Answer::GenerationSink;
using tallowbrook::Answer::StreamEvent;

// The events of a started child up to and including its end, as "snapshot:<text>",
// "ended", "failed:<message>".
std::vector<std::string> events(GenerationChild& child) {
  std::vector<std::string> out;
  for (;;) {
    StreamEvent e = child.next();
    switch (e.kind) {
      case StreamEvent::Kind::snapshot:
        out.push_back("snapshot:" + e.text);
        break;
      case StreamEvent::Kind::ended:
        out.push_back("ended");
        return out;
      case StreamEvent::Kind::failed:
        out.push_back("failed:" + e.text);
        return out;
    }
  }
}

GenerationChild::Started start(const GenerationChild::Body& body,
                               std::chrono::milliseconds limit = 10s) {
  return GenerationChild::start(body, icuCharacters(), limit);
}

bool gone(pid_t pid) {
  return kill(pid, 0) != 0 && errno == ESRCH;
}

}  // namespace

TEST(GenerationChild, StreamsSettledTextThenEnds) {
  auto started = start([](GenerationSink& sink) {
    sink.alive();
    sink.ready();
    for (const char* piece : {"Hel", "lo ", "caf", "e", "\xCC\x81", "!"}) sink.piece(piece);
    sink.done();
  });
  ASSERT_TRUE(started.child);
  auto got = events(*started.child);
  ASSERT_GE(got.size(), 2u);
  EXPECT_EQ(got.back(), "ended");
  EXPECT_EQ(got[got.size() - 2], "snapshot:Hello cafe\xCC\x81!");
  for (const auto& e : got) EXPECT_NE(e, "snapshot:Hello cafe") << "the accent was cut off";
}

TEST(GenerationChild, ReasonsBeforeReady) {
  auto device = start([](GenerationSink& sink) { sink.unavailable("deviceNotEligible", "x"); });
  EXPECT_FALSE(device.child);
  EXPECT_EQ(device.unavailableReason, "deviceNotEligible");
  auto model = start([](GenerationSink& sink) { sink.unavailable("modelNotReady", ""); });
  EXPECT_EQ(model.unavailableReason, "modelNotReady");
  auto other = start([](GenerationSink& sink) { sink.unavailable("somethingElse", ""); });
  EXPECT_EQ(other.unavailableReason, "modelNotReady");
  auto refused = start([](GenerationSink& sink) { sink.refused("too long: 9 tokens, at most 4"); });
  EXPECT_FALSE(refused.child);
  EXPECT_EQ(refused.refusal, "too long: 9 tokens, at most 4");
}

TEST(GenerationChild, DyingOrEndingBeforeReadyIsModelNotReady) {
  auto silent = start([](GenerationSink&) {});
  EXPECT_FALSE(silent.child);
  EXPECT_EQ(silent.unavailableReason, "modelNotReady");
  auto aborted = start([](GenerationSink&) { std::abort(); });
  EXPECT_EQ(aborted.unavailableReason, "modelNotReady");
  auto piecesFirst = start([](GenerationSink& sink) { sink.piece("early"); });
  EXPECT_EQ(piecesFirst.unavailableReason, "modelNotReady");
}

TEST(GenerationChild, AnAbortMidAnswerGivesTheTextSoFarThenTheReason) {
  auto started = start([](GenerationSink& sink) {
    sink.ready();
    sink.piece("Partial ");
    sink.piece("answer");
    std::fprintf(stderr, "loading\nops.cpp:3620: GGML_ASSERT(eps >= 0.0f) failed\n");
    std::fflush(stderr);
    std::abort();
  });
  ASSERT_TRUE(started.child);
  auto got = events(*started.child);
  ASSERT_GE(got.size(), 2u);
  EXPECT_EQ(got[got.size() - 2], "snapshot:Partial answer");
  EXPECT_EQ(got.back(),
            "failed:the answer ended before it was complete: the model's process was ended by "
            "signal 6 (Aborted): ops.cpp:3620: GGML_ASSERT(eps >= 0.0f) failed");
}

TEST(GenerationChild, AFailureReportIsTheMessage) {
  auto started = start([](GenerationSink& sink) {
    sink.ready();
    sink.piece("Half an ");
    sink.failed("the model stopped while writing the answer");
  });
  ASSERT_TRUE(started.child);
  auto got = events(*started.child);
  // The last character waits for the next piece (a mark may still join it); the end settles it.
  EXPECT_EQ(got, (std::vector<std::string>{"snapshot:Half an", "snapshot:Half an ",
                                           "failed:the model stopped while writing the answer"}));
}

TEST(GenerationChild, AHungChildIsKilledAfterTheLimit) {
  auto started = start(
      [](GenerationSink& sink) {
        sink.ready();
        sink.piece(std::to_string(getpid()) + " ");
        pause();
      },
      700ms);
  ASSERT_TRUE(started.child);
  auto got = events(*started.child);
  ASSERT_GE(got.size(), 2u);
  EXPECT_EQ(got.back(),
            "failed:the model stopped responding: nothing came from it for 0.7 seconds");
  pid_t pid = std::stoi(got[0].substr(std::string("snapshot:").size()));
  EXPECT_TRUE(gone(pid));
}

TEST(GenerationChild, SignsOfLifeKeepASlowChildGoing) {
  auto started = start(
      [](GenerationSink& sink) {
        sink.ready();
        for (int i = 0; i < 30; ++i) {
          sink.alive();
          std::this_thread::sleep_for(100ms);
        }
        sink.piece("late");
        sink.done();
      },
      1500ms);
  ASSERT_TRUE(started.child);
  EXPECT_EQ(events(*started.child),
            (std::vector<std::string>{"snapshot:lat", "snapshot:late", "ended"}));
}

TEST(GenerationChild, DestroyingTheObjectEndsTheChild) {
  pid_t pid = 0;
  {
    auto started = start([](GenerationSink& sink) {
      sink.ready();
      sink.piece(std::to_string(getpid()) + " x");
      pause();
    });
    ASSERT_TRUE(started.child);
    StreamEvent first = started.child->next();
    ASSERT_EQ(first.kind, StreamEvent::Kind::snapshot);
    pid = std::stoi(first.text);
  }
  EXPECT_TRUE(gone(pid));
}

TEST(GenerationChild, TheChildWritesNothingOnTheHelpersOutput) {
  // The child's standard output is /dev/null: a stray write there would corrupt the JSON lines.
  int saved = dup(STDOUT_FILENO);
  int pipes[2];
  ASSERT_EQ(pipe(pipes), 0);
  dup2(pipes[1], STDOUT_FILENO);
  auto started = start([](GenerationSink& sink) {
    std::printf("stray\n");
    std::fflush(stdout);
    sink.ready();
    sink.done();
  });
  dup2(saved, STDOUT_FILENO);
  close(saved);
  close(pipes[1]);
  ASSERT_TRUE(started.child);
  EXPECT_EQ(events(*started.child), (std::vector<std::string>{"ended"}));
  started.child.reset();
  char buffer[16];
  EXPECT_EQ(read(pipes[0], buffer, sizeof buffer), 0);
  close(pipes[0]);
}
