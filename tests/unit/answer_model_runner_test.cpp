// The model runner client against stand-in runners: shell scripts in the runner's place, run by
// /bin/sh in Node's place. The real runner is exercised by the CLI tests.
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "answer/model_runner.h"

namespace {

using tallowbrook::ModelSetup;
using tallowbrook::Answer::ModelRunner;
using tallowbrook::Answer::Request;
using tallowbrook::Answer::StreamEvent;

class ModelRunnerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/tallowbrook-runner-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

  // A runner whose program is `script` (run by /bin/sh).
  ModelSetup runner(const std::string& script) {
    std::ofstream(dir_ + "/runner.mjs") << script;
    return ModelSetup{"/bin/sh", dir_, dir_ + "/model.gguf"};
  }

  std::string read(const std::string& name) {
    std::ifstream in(dir_ + "/" + name);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  std::string dir_;
};

bool gone(pid_t pid) {
  return kill(pid, 0) != 0 && errno == ESRCH;
}

// Gone, or dead and waiting for its parent (init, for an orphan) to collect it.
bool dead(pid_t pid) {
  if (gone(pid)) return true;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text(std::istreambuf_iterator<char>(stat), {});
  size_t close = text.rfind(')');
  return close != std::string::npos && close + 2 < text.size() && text[close + 2] == 'Z';
}

}  // namespace

TEST_F(ModelRunnerTest, HandsOverTheRequestAndStreamsSnapshots) {
  auto setup = runner(
      "cat > \"$(dirname \"$0\")/request.json\"\n"
      "echo '{\"type\":\"alive\"}'\n"
      "echo '{\"type\":\"ready\"}'\n"
      "echo '{\"type\":\"text\",\"text\":\"Hel\"}'\n"
      "echo '{\"type\":\"alive\"}'\n"
      "echo '{\"type\":\"text\",\"text\":\"lo \\u2192\"}'\n"
      "echo '{\"type\":\"done\"}'\n");
  auto started = ModelRunner::start(setup, Request{"sys \"q\"", "us/er", 7});
  ASSERT_TRUE(started.runner) << started.unavailableReason;
  auto e1 = started.runner->next();
  EXPECT_EQ(e1.kind, StreamEvent::Kind::snapshot);
  EXPECT_EQ(e1.text, "Hel");
  auto e2 = started.runner->next();
  EXPECT_EQ(e2.kind, StreamEvent::Kind::snapshot);
  EXPECT_EQ(e2.text, "Hello \xE2\x86\x92");
  EXPECT_EQ(started.runner->next().kind, StreamEvent::Kind::ended);
  auto request = nlohmann::json::parse(read("request.json"));
  EXPECT_EQ(request, (nlohmann::json{{"model", dir_ + "/model.gguf"},
                                     {"system", "sys \"q\""},
                                     {"user", "us/er"},
                                     {"maxTokens", 7}}));
}

TEST_F(ModelRunnerTest, ALargeRequestIsWrittenWhileTheRunnerReads) {
  auto setup = runner(
      "wc -c > \"$(dirname \"$0\")/size\"\n"
      "echo '{\"type\":\"ready\"}'\necho '{\"type\":\"done\"}'\n");
  std::string user(3 * 1024 * 1024, 'x');
  auto started = ModelRunner::start(setup, Request{"", user, -5});
  ASSERT_TRUE(started.runner);
  EXPECT_EQ(started.runner->next().kind, StreamEvent::Kind::ended);
  EXPECT_GT(std::stoul(read("size")), user.size());
}

TEST_F(ModelRunnerTest, UnavailableReasonsBeforeReady) {
  auto device = ModelRunner::start(
      runner(
          "echo '{\"type\":\"unavailable\",\"reason\":\"deviceNotEligible\",\"message\":\"x\"}'\n"),
      Request{});
  EXPECT_FALSE(device.runner);
  EXPECT_EQ(device.unavailableReason, "deviceNotEligible");
  auto model = ModelRunner::start(
      runner(
          "echo '{\"type\":\"unavailable\",\"reason\":\"modelNotReady\",\"message\":\"bad\"}'\n"),
      Request{});
  EXPECT_FALSE(model.runner);
  EXPECT_EQ(model.unavailableReason, "modelNotReady");
  // Dying while loading the model: the model did not load.
  auto died = ModelRunner::start(runner("echo '{\"type\":\"alive\"}'\nkill -SEGV $$\n"), Request{});
  EXPECT_FALSE(died.runner);
  EXPECT_EQ(died.unavailableReason, "modelNotReady");
  // No interpreter at all.
  auto setup = runner("");
  setup.node = dir_ + "/no-such-node";
  auto none = ModelRunner::start(setup, Request{});
  EXPECT_FALSE(none.runner);
  EXPECT_EQ(none.unavailableReason, "deviceNotEligible");
}

TEST_F(ModelRunnerTest, ARunnerThatDiesMidAnswerIsAFailureAndIsReaped) {
  auto setup = runner(
      "echo $$ > \"$(dirname \"$0\")/pid\"\n"
      "echo '{\"type\":\"ready\"}'\n"
      "echo '{\"type\":\"text\",\"text\":\"Part\"}'\n"
      "echo 'llama.cpp: out of memory' >&2\n"
      "kill -KILL $$\n");
  auto started = ModelRunner::start(setup, Request{});
  ASSERT_TRUE(started.runner);
  EXPECT_EQ(started.runner->next().text, "Part");
  auto end = started.runner->next();
  EXPECT_EQ(end.kind, StreamEvent::Kind::failed);
  EXPECT_EQ(end.text,
            "the answer ended before it was complete: the model runner was ended by signal 9 "
            "(Killed): llama.cpp: out of memory");
  pid_t pid = std::stoi(read("pid"));
  EXPECT_TRUE(gone(pid)) << "the runner was not reaped";
}

TEST_F(ModelRunnerTest, AnExitWithoutDoneIsAFailure) {
  auto started = ModelRunner::start(runner("echo '{\"type\":\"ready\"}'\nexit 3\n"), Request{});
  ASSERT_TRUE(started.runner);
  auto end = started.runner->next();
  EXPECT_EQ(end.kind, StreamEvent::Kind::failed);
  EXPECT_EQ(end.text,
            "the answer ended before it was complete: the model runner exited with status 3");
}

TEST_F(ModelRunnerTest, TheRunnersOwnErrorIsPassedOn) {
  auto started = ModelRunner::start(
      runner("echo '{\"type\":\"ready\"}'\n"
             "echo '{\"type\":\"error\",\"message\":\"The context size is too small\"}'\n"),
      Request{});
  ASSERT_TRUE(started.runner);
  auto end = started.runner->next();
  EXPECT_EQ(end.kind, StreamEvent::Kind::failed);
  EXPECT_EQ(end.text, "The context size is too small");
}

TEST_F(ModelRunnerTest, ALineThatIsNotTheRunnersIsAFailure) {
  auto started = ModelRunner::start(runner("echo '{\"type\":\"ready\"}'\necho 'hello'\nsleep 60\n"),
                                    Request{});
  ASSERT_TRUE(started.runner);
  auto end = started.runner->next();
  EXPECT_EQ(end.kind, StreamEvent::Kind::failed);
  EXPECT_EQ(end.text, "the model runner sent a line this helper does not read");
}

TEST_F(ModelRunnerTest, AHungRunnerIsKilledAfterTheNoProgressLimit) {
  auto setup = runner(
      "echo $$ > \"$(dirname \"$0\")/pid\"\n"
      "echo '{\"type\":\"ready\"}'\n"
      "echo '{\"type\":\"text\",\"text\":\"Half\"}'\n"
      "sleep 60 & echo $! > \"$(dirname \"$0\")/child\"\nwait\n");
  auto started = ModelRunner::start(setup, Request{}, std::chrono::milliseconds(700));
  ASSERT_TRUE(started.runner);
  EXPECT_EQ(started.runner->next().text, "Half");
  auto t0 = std::chrono::steady_clock::now();
  auto end = started.runner->next();
  auto waited = std::chrono::steady_clock::now() - t0;
  EXPECT_EQ(end.kind, StreamEvent::Kind::failed);
  EXPECT_EQ(end.text, "the model runner stopped responding: nothing came from it for 0.7 seconds");
  EXPECT_GE(waited, std::chrono::milliseconds(600));
  EXPECT_TRUE(gone(std::stoi(read("pid"))));
  // The process the runner started went with it (same process group).
  pid_t child = std::stoi(read("child"));
  for (int i = 0; i < 100 && !dead(child); ++i) usleep(10000);
  EXPECT_TRUE(dead(child));
}

TEST_F(ModelRunnerTest, HeartbeatsKeepASlowRunnerAlive) {
  auto started = ModelRunner::start(
      runner("echo '{\"type\":\"ready\"}'\n"
             "for i in 1 2 3 4 5; do sleep 0.2; echo '{\"type\":\"alive\"}'; done\n"
             "echo '{\"type\":\"text\",\"text\":\"late\"}'\necho '{\"type\":\"done\"}'\n"),
      Request{}, std::chrono::milliseconds(600));
  ASSERT_TRUE(started.runner);
  EXPECT_EQ(started.runner->next().text, "late");
  EXPECT_EQ(started.runner->next().kind, StreamEvent::Kind::ended);
}

TEST_F(ModelRunnerTest, AHangWhileLoadingIsModelNotReady) {
  auto started =
      ModelRunner::start(runner("sleep 60\n"), Request{}, std::chrono::milliseconds(300));
  EXPECT_FALSE(started.runner);
  EXPECT_EQ(started.unavailableReason, "modelNotReady");
}

TEST_F(ModelRunnerTest, DroppingARunnerKillsAndReapsIt) {
  auto setup =
      runner("echo $$ > \"$(dirname \"$0\")/pid\"\necho '{\"type\":\"ready\"}'\nsleep 60\n");
  {
    auto started = ModelRunner::start(setup, Request{});
    ASSERT_TRUE(started.runner);
  }
  EXPECT_TRUE(gone(std::stoi(read("pid"))));
}
