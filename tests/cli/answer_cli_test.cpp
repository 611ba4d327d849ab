// `answer` and the local-model members of `capabilities`, run as the application runs them:
// the built helper with llama.cpp's prebuilt libraries, on tiny generated models whose weights
// script their replies (tests/fixtures/tiny_gguf.py).
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "record_process.h"
#include "run_helper.h"

namespace {

const std::string kModels = ANSWER_MODEL_DIR;
const std::string kReply = kModels + "/reply.gguf";
const std::string kLoop = kModels + "/loop.gguf";
const std::string kSilent = kModels + "/silent.gguf";
const std::string kTruncated = kModels + "/truncated.gguf";
const std::string kAbort = kModels + "/abort.gguf";
const std::string kJinja = kModels + "/jinja.gguf";
const std::string kPlain = kModels + "/plain.gguf";
const std::string kSlow = kModels + "/slow.gguf";

// What the reply model answers, piece by piece as the library produces it.
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

// The pids of the running children of `parent`, from /proc.
std::vector<pid_t> childrenOf(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream stat(entry.path() / "stat");
    std::string line;
    std::getline(stat, line);
    // pid (comm) state ppid ...: comm may hold blanks and parentheses, so read after the last ')'.
    size_t close = line.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream rest(line.substr(close + 1));
    char state = 0;
    pid_t ppid = 0;
    rest >> state >> ppid;
    if (ppid == parent && state != 'Z') children.push_back(pid_t(std::stol(name)));
  }
  return children;
}

// Whether `pid` is gone: no such process, or a zombie waiting for whoever adopted it.
bool gone(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  size_t close = line.rfind(')');
  return close != std::string::npos && close + 2 < line.size() && line[close + 2] == 'Z';
}

bool goneWithin(pid_t pid, std::chrono::milliseconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (!gone(pid)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// The helper answering from the slow model, stopped once it has sent its first delta: the
// generating child is found and frozen with SIGSTOP, so it neither finishes nor sends anything.
struct FrozenAnswer {
  std::unique_ptr<record_cli::LiveProcess> helper;
  pid_t child = -1;
};
FrozenAnswer answerThenFreezeTheModel() {
  FrozenAnswer frozen;
  frozen.helper = std::make_unique<record_cli::LiveProcess>(
      record_cli::helper({"answer"}), record_cli::Env{{"TALLOWBROOK_MODEL", kSlow}});
  frozen.helper->send(R"({"system":"","user":"Count.","maxTokens":2000})");
  frozen.helper->closeInput();
  if (!frozen.helper->waitForType("delta", 60000)) {
    ADD_FAILURE() << "no delta: " << frozen.helper->err();
    return frozen;
  }
  auto children = childrenOf(frozen.helper->pid());
  if (children.size() != 1) {
    ADD_FAILURE() << children.size() << " children while the slow model generates";
    return frozen;
  }
  frozen.child = children[0];
  kill(frozen.child, SIGSTOP);
  return frozen;
}

// A copy of the helper's installed layout in a scratch folder: the executable and every module,
// but none of llama.cpp's libraries and no llama module, as on a machine where they are missing.
class HelperWithoutLlama {
 public:
  HelperWithoutLlama() {
    char dir[] = "/tmp/tallowbrook-no-llama-XXXXXX";
    dir_ = mkdtemp(dir);
    namespace fs = std::filesystem;
    fs::path helper = fs::canonical(fs::path(record_cli::helper({})[0]));
    fs::path modules = helper.parent_path().parent_path() / "lib" / "tallowbrook-helper";
    fs::create_directories(fs::path(dir_) / "bin");
    fs::create_directories(fs::path(dir_) / "lib" / "tallowbrook-helper");
    fs::copy_file(helper, fs::path(dir_) / "bin" / "tallowbrook-helper");
    for (const auto& entry : fs::directory_iterator(modules)) {
      std::string name = entry.path().filename();
      if (entry.path().extension() != ".so" || name.starts_with("tallowbrook-llama")) continue;
      fs::create_symlink(entry.path(), fs::path(dir_) / "lib" / "tallowbrook-helper" / name);
    }
  }
  ~HelperWithoutLlama() { std::filesystem::remove_all(dir_); }
  std::string path() const { return dir_ + "/bin/tallowbrook-helper"; }

 private:
  std::string dir_;
};

}  // namespace

TEST(Answer, StreamsTheScriptedReplyByCharacters) {
  auto run = answer(kReply, R"({"system":"Be brief.","user":"Say hello."})");
  // Each piece's last character waits for the next piece, which may still add to it: the arrow
  // comes as three byte tokens and is sent whole; the accent arriving on its own piece joins its
  // "e" before that is sent; the last character comes with the end.
  EXPECT_EQ(deltasThenDone(run),
            (std::vector<std::string>{"Hello", ", w\xC3\xB6rl", "d", " ", kArrow + " ca", "f",
                                      "e" + kAcute +
                                          " man\xCC\x83"
                                          "an",
                                      "a ", kWave.substr(1), "."}));
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
  // " tic", then "k tic" as each piece settles the one before, then the last "k".
  EXPECT_EQ(deltas.size(), 41u);
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

TEST(Answer, InputThatNeverEndsIsNotARequest) {
  RunOptions options = withModel(kReply, "");
  options.timeoutMs = 20000;
  auto run = runHelperFedForever({"answer"}, options);
  EXPECT_FALSE(run.timedOut);
  expectFailureDocument(run, "could not parse the request on stdin");
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

TEST(Answer, WithoutTheLibraryTheDeviceIsNotEligible) {
  HelperWithoutLlama helper;
  auto run =
      runProgram({helper.path(), "answer"}, withModel(kReply, R"({"system":"","user":"u"})"));
  expectFailureDocument(run, "the on-device model is unavailable: deviceNotEligible");
  auto capabilities = runProgram({helper.path(), "capabilities"}, withModel(kReply, ""));
  EXPECT_EQ(capabilities.status, 0);
  auto lines = jsonLines(capabilities.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["localModel"], false);
  EXPECT_EQ(lines[0]["localModelReason"], "deviceNotEligible");
}

TEST(Answer, AnAbortInsideTheLibraryEndsWithAnErrorLineAndStatus0) {
  // The model loads and the prompt is accepted; the first computation aborts (GGML_ABORT).
  auto run = answer(kAbort, R"({"system":"","user":"u"})");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u) << run.out;
  EXPECT_EQ(lines[0]["type"], "error");
  std::string message = lines[0]["message"];
  EXPECT_TRUE(
      message.starts_with("the answer ended before it was complete: the model's process "
                          "was ended by signal 6 (Aborted): "))
      << message;
  // The library's own words, without the folders of the machine that built it.
  EXPECT_NE(message.find("unsupported types"), std::string::npos) << message;
  EXPECT_EQ(message.find('/'), std::string::npos) << message;
}

TEST(Answer, AModelStoppedMidAnswerGivesTheTextSoFarThenAnErrorLine) {
  // A frozen model sends nothing more; after the no-progress limit the helper kills it, ends
  // the answer with an error line after what it had sent, and exits with status 0.
  auto frozen = answerThenFreezeTheModel();
  ASSERT_GT(frozen.child, 0);
  auto status = frozen.helper->wait(90000);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 0);
  auto lines = frozen.helper->jsonLines();
  ASSERT_GE(lines.size(), 2u);
  for (size_t i = 0; i + 1 < lines.size(); ++i) EXPECT_EQ(lines[i]["type"], "delta") << lines[i];
  EXPECT_EQ(lines.back(), (nlohmann::json{{"type", "error"},
                                          {"message",
                                           "the model stopped responding: nothing came from it "
                                           "for 30 seconds"}}));
  EXPECT_TRUE(gone(frozen.child));
}

TEST(Answer, AKilledHelperLeavesNoModelBehind) {
  auto frozen = answerThenFreezeTheModel();
  ASSERT_GT(frozen.child, 0);
  frozen.helper->signal(SIGKILL);
  EXPECT_TRUE(goneWithin(frozen.child, std::chrono::milliseconds(1000)));
  if (!gone(frozen.child)) kill(frozen.child, SIGKILL);
}

TEST(Answer, APromptLongerThanTheContextFailsBeforeStreaming) {
  // The tiny model was trained on 2048 tokens; every byte of this prompt is a token of its own.
  std::string user(3000, 'q');
  auto run = answer(kReply, R"({"system":"","user":")" + user + "\"}");
  expectFailureDocument(run,
                        "the prompt does not fit the model's context: 3019 tokens, at most 2047");
}

TEST(Answer, ATemplateOnlyJinjaKnowsIsRendered) {
  // The jinja model answers only after its own template's opening of the answer.
  auto run = answer(kJinja, R"({"system":"Be brief.","user":"Say hello."})");
  EXPECT_EQ(join(deltasThenDone(run)),
            "Hello, w\xC3\xB6rld " + kArrow + " cafe" + kAcute + kManana + kWave + ".");
}

TEST(Answer, AModelWithoutATemplateIsPromptedInChatML) {
  auto run = answer(kPlain, R"({"system":"Be brief.","user":"Say hello."})");
  EXPECT_EQ(join(deltasThenDone(run)),
            "Hello, w\xC3\xB6rld " + kArrow + " cafe" + kAcute + kManana + kWave + ".");
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
  options.unsetEnv = {"TALLOWBROOK_MODEL"};
  options.timeoutMs = 120000;
  auto run = runHelper({"answer"}, options);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out, "{\"type\":\"done\"}\n");
  std::system(("rm -rf '" + data + "'").c_str());
}
