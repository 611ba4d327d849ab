// `answer` and the local-model members of `capabilities`, run as the application runs them:
// the built helper, its model runner (Node, node-llama-cpp's prebuilt llama.cpp) and tiny
// generated models whose weights script their replies (tests/fixtures/tiny_gguf.py).
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_helper.h"

namespace {

const std::string kModels = ANSWER_MODEL_DIR;
const std::string kReply = kModels + "/reply.gguf";
const std::string kLoop = kModels + "/loop.gguf";
const std::string kSilent = kModels + "/silent.gguf";
const std::string kTruncated = kModels + "/truncated.gguf";

// What the reply model answers, piece by piece as the runner reports it.
const std::string kArrow = "\xE2\x86\x92";
const std::string kAcute = "\xCC\x81";  // U+0301 COMBINING ACUTE ACCENT
const std::string kManana =
    " man\xCC\x83"
    "ana";                                                      // ñ written as n + U+0303
const std::string kWave = " \xF0\x9F\x91\x8B\xF0\x9F\x8F\xBD";  // waving hand, skin tone

RunOptions withModel(const std::string& model, const std::string& input) {
  RunOptions options;
  options.input = input;
  options.env = {{"TALLOWBROOK_MODEL", model}};
  options.unsetEnv = {"TALLOWBROOK_NODE"};
  options.timeoutMs = 120000;
  return options;
}

HelperRun answer(const std::string& model, const std::string& input) {
  return runHelper({"answer"}, withModel(model, input));
}

// The delta texts of a run that ended with a done line (checked), in order.
std::vector<std::string> deltasThenDone(const HelperRun& run) {
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  std::vector<std::string> texts;
  EXPECT_FALSE(lines.empty());
  if (lines.empty()) return texts;
  EXPECT_EQ(lines.back(), (nlohmann::json{{"type", "done"}})) << run.out;
  for (size_t i = 0; i + 1 < lines.size(); ++i) {
    EXPECT_EQ(lines[i].size(), 2u) << lines[i];
    EXPECT_EQ(lines[i]["type"], "delta") << lines[i];
    texts.push_back(lines[i]["text"].get<std::string>());
  }
  return texts;
}

std::string repeat(const std::string& piece, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += piece;
  return out;
}

std::string join(const std::vector<std::string>& pieces) {
  std::string out;
  for (const auto& p : pieces) out += p;
  return out;
}

// A folder with a stand-in for Node: a shell script that plays a runner.
class FakeNode {
 public:
  explicit FakeNode(const std::string& script) {
    char dir[] = "/tmp/tallowbrook-fake-node-XXXXXX";
    dir_ = mkdtemp(dir);
    std::ofstream(path()) << "#!/bin/sh\n" << script;
    chmod(path().c_str(), 0755);
  }
  ~FakeNode() { std::system(("rm -rf '" + dir_ + "'").c_str()); }
  std::string path() const { return dir_ + "/node"; }
  std::string dir() const { return dir_; }

 private:
  std::string dir_;
};

bool processGone(const std::string& pidFile) {
  std::ifstream in(pidFile);
  pid_t pid = 0;
  in >> pid;
  return pid > 0 && kill(pid, 0) != 0 && errno == ESRCH;
}

}  // namespace

TEST(Answer, StreamsTheScriptedReplyByCharacters) {
  auto run = answer(kReply, R"({"system":"Be brief.","user":"Say hello."})");
  // The arrow comes as three byte tokens and is sent whole; the accent arriving on its own
  // does not make a new character, so it is not sent; the next delta starts after "cafe".
  EXPECT_EQ(deltasThenDone(run), (std::vector<std::string>{"Hello,", " w\xC3\xB6rld", " ", kArrow,
                                                           " caf", "e", kManana, kWave, "."}));
}

TEST(Answer, ExtraKeysAreIgnored) {
  auto plain = answer(kReply, R"({"system":"s","user":"u"})");
  auto extra = answer(
      kReply, R"({"model":"other","system":"s","temperature":1.5,"user":"u","stream":false})");
  EXPECT_EQ(deltasThenDone(extra), deltasThenDone(plain));
  EXPECT_EQ(extra.out, plain.out);
}

TEST(Answer, FurtherArgumentsAreIgnored) {
  auto run = runHelper({"answer", "--model", "/elsewhere.gguf", "more"},
                       withModel(kSilent, R"({"system":"","user":"u"})"));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "{\"type\":\"done\"}\n");
}

TEST(Answer, MaxTokensLimitsTheAnswer) {
  auto run = answer(kLoop, R"({"system":"","user":"Count.","maxTokens":5})");
  EXPECT_EQ(join(deltasThenDone(run)), repeat(" tick", 5));
}

TEST(Answer, WithoutMaxTokensOrWithNullTheLimitIs900) {
  auto absent = answer(kLoop, R"({"system":"","user":"Count."})");
  EXPECT_EQ(join(deltasThenDone(absent)), repeat(" tick", 900));
  auto null = answer(kLoop, R"({"system":"","user":"Count.","maxTokens":null})");
  EXPECT_EQ(join(deltasThenDone(null)), repeat(" tick", 900));
}

TEST(Answer, ConcatenatedDeltasAreTheAnswerWhenEverySnapshotExtendsTheLast) {
  auto run = answer(kLoop, R"({"system":"","user":"Count.","maxTokens":40})");
  auto deltas = deltasThenDone(run);
  EXPECT_EQ(deltas.size(), 40u);
  EXPECT_EQ(join(deltas), repeat(" tick", 40));
}

TEST(Answer, AnAnswerWithoutTextIsOnlyDone) {
  auto run = answer(kSilent, R"({"system":"","user":"Anything?"})");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "{\"type\":\"done\"}\n");
  EXPECT_EQ(run.err, "");
}

TEST(Answer, MultiByteCharactersArriveWhole) {
  auto run = answer(kReply, R"({"system":"","user":"\u00fc\u2192\ud83d\udc4b"})");
  for (const auto& text : deltasThenDone(run)) {
    // Each delta is valid UTF-8 on its own (the JSON reader would have refused it otherwise)
    // and holds no replacement character from a cut sequence.
    EXPECT_EQ(text.find("\xEF\xBF\xBD"), std::string::npos) << text;
  }
  EXPECT_NE(run.out.find(kArrow), std::string::npos);
}

TEST(Answer, ABadRequestFailsBeforeTheModel) {
  for (std::string input :
       {std::string(), std::string("{}"), std::string(R"({"system":"s"})"),
        std::string(R"({"system":"s","user":7})"),
        std::string(R"({"system":"s","user":"u","maxTokens":"many"})"), std::string("not json")}) {
    auto run = runHelper({"answer"}, withModel(kReply, input));
    expectFailureDocument(run, "could not parse the request on stdin");
  }
}

TEST(Answer, TheRequestIsReadBeforeTheModelIsChecked) {
  auto run = answer("/nonexistent/model.gguf", "{\"user\":\"u\"}");
  expectFailureDocument(run, "could not parse the request on stdin");
}

TEST(Answer, NoModelFileIsModelNotReady) {
  expectFailureDocument(answer("/nonexistent/model.gguf", R"({"system":"","user":"u"})"),
                        "the on-device model is unavailable: modelNotReady");
  // Not a GGUF file at all.
  expectFailureDocument(answer(kModels + "/../../../CMakeCache.txt", R"({"system":"","user":"u"})"),
                        "the on-device model is unavailable: modelNotReady");
}

TEST(Answer, AModelThatDoesNotLoadIsModelNotReady) {
  expectFailureDocument(answer(kTruncated, R"({"system":"","user":"u"})"),
                        "the on-device model is unavailable: modelNotReady");
}

TEST(Answer, NoNodeIsDeviceNotEligible) {
  auto options = withModel(kReply, R"({"system":"","user":"u"})");
  options.env.push_back({"PATH", "/nonexistent"});
  expectFailureDocument(runHelper({"answer"}, options),
                        "the on-device model is unavailable: deviceNotEligible");
  options = withModel(kReply, R"({"system":"","user":"u"})");
  options.env.push_back({"TALLOWBROOK_NODE", "/nonexistent/node"});
  options.unsetEnv.clear();
  expectFailureDocument(runHelper({"answer"}, options),
                        "the on-device model is unavailable: deviceNotEligible");
}

TEST(Answer, ARunnerThatDiesMidAnswerEndsWithAnErrorLineAndStatus0) {
  FakeNode node(
      "cat > /dev/null\n"
      "echo $$ > \"$(dirname \"$0\")/pid\"\n"
      "echo '{\"type\":\"ready\"}'\n"
      "echo '{\"type\":\"text\",\"text\":\"Partial\"}'\n"
      "echo 'GGML_ASSERT failed' >&2\n"
      "kill -SEGV $$\n");
  auto options = withModel(kReply, R"({"system":"","user":"u"})");
  options.env.push_back({"TALLOWBROOK_NODE", node.path()});
  options.unsetEnv.clear();
  auto run = runHelper({"answer"}, options);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 2u) << run.out;
  EXPECT_EQ(lines[0], (nlohmann::json{{"type", "delta"}, {"text", "Partial"}}));
  EXPECT_EQ(lines[1], (nlohmann::json{{"type", "error"},
                                      {"message",
                                       "the answer ended before it was complete: the model "
                                       "runner was ended by signal 11 (Segmentation fault): "
                                       "GGML_ASSERT failed"}}));
  EXPECT_TRUE(processGone(node.dir() + "/pid"));
}

TEST(Answer, AnErrorFromTheModelMidAnswerIsTheErrorLine) {
  FakeNode node(
      "cat > /dev/null\n"
      "echo '{\"type\":\"ready\"}'\n"
      "echo '{\"type\":\"text\",\"text\":\"Half an \"}'\n"
      "echo '{\"type\":\"error\",\"message\":\"Failed to evaluate the prompt\"}'\n");
  auto options = withModel(kReply, R"({"system":"","user":"u"})");
  options.env.push_back({"TALLOWBROOK_NODE", node.path()});
  options.unsetEnv.clear();
  auto run = runHelper({"answer"}, options);
  EXPECT_EQ(run.status, 0);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 2u) << run.out;
  EXPECT_EQ(lines[0]["text"], "Half an ");
  EXPECT_EQ(lines[1],
            (nlohmann::json{{"type", "error"}, {"message", "Failed to evaluate the prompt"}}));
}

TEST(Answer, AHungRunnerIsKilledAndTheAnswerEndsWithAnErrorLine) {
  FakeNode node(
      "cat > /dev/null\n"
      "echo $$ > \"$(dirname \"$0\")/pid\"\n"
      "echo '{\"type\":\"ready\"}'\n"
      "echo '{\"type\":\"text\",\"text\":\"Stuck\"}'\n"
      "exec sleep 600\n");
  auto options = withModel(kReply, R"({"system":"","user":"u"})");
  options.env.push_back({"TALLOWBROOK_NODE", node.path()});
  options.unsetEnv.clear();
  options.timeoutMs = 90000;
  auto run = runHelper({"answer"}, options);
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(run.status, 0);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 2u) << run.out;
  EXPECT_EQ(lines[0]["text"], "Stuck");
  EXPECT_EQ(lines[1], (nlohmann::json{{"type", "error"},
                                      {"message",
                                       "the model runner stopped responding: nothing came from "
                                       "it for 30 seconds"}}));
  EXPECT_TRUE(processGone(node.dir() + "/pid"));
}

TEST(Answer, CapabilitiesReportsTheModel) {
  auto report = [](const RunOptions& options) {
    auto run = runHelper({"capabilities"}, options);
    EXPECT_EQ(run.status, 0);
    auto lines = jsonLines(run.out);
    EXPECT_EQ(lines.size(), 1u);
    return lines.empty() ? nlohmann::json() : lines[0];
  };
  auto ready = report(withModel(kReply, ""));
  EXPECT_EQ(ready["localModel"], true);
  EXPECT_EQ(ready["localModelReason"], "");
  // The check is cheap: a file that starts like a model counts, loading it is answer's job.
  EXPECT_EQ(report(withModel(kTruncated, ""))["localModel"], true);

  auto missing = report(withModel("/nonexistent/model.gguf", ""));
  EXPECT_EQ(missing["localModel"], false);
  EXPECT_EQ(missing["localModelReason"], "modelNotReady");

  auto options = withModel(kReply, "");
  options.env.push_back({"TALLOWBROOK_NODE", "/nonexistent/node"});
  options.unsetEnv.clear();
  auto noNode = report(options);
  EXPECT_EQ(noNode["localModel"], false);
  EXPECT_EQ(noNode["localModelReason"], "deviceNotEligible");
}

TEST(Answer, TheModelIsFoundInTheUsersDataFolder) {
  char dir[] = "/tmp/tallowbrook-data-XXXXXX";
  std::string data = mkdtemp(dir);
  std::system(("mkdir -p '" + data + "/tallowbrook' && cp '" + kSilent + "' '" + data +
               "/tallowbrook/model.gguf'")
                  .c_str());
  RunOptions options;
  options.input = R"({"system":"","user":"u"})";
  options.env = {{"XDG_DATA_HOME", data}};
  options.unsetEnv = {"TALLOWBROOK_MODEL", "TALLOWBROOK_NODE"};
  options.timeoutMs = 120000;
  auto run = runHelper({"answer"}, options);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out, "{\"type\":\"done\"}\n");
  std::system(("rm -rf '" + data + "'").c_str());
}
