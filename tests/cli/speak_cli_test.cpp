// speak run as the application runs it, against the real espeak-ng and a private PulseAudio
// server (../shared/tools/test-sound-server).
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "run_helper.h"
#include "silent_sound_server.h"

namespace {

using nlohmann::json;

const char* kUsage = "usage: render --out <path> [--voice id] [--rate f]";

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

uint32_t le32(const std::string& b, size_t at) {
  return uint32_t(uint8_t(b[at])) | uint32_t(uint8_t(b[at + 1])) << 8 |
         uint32_t(uint8_t(b[at + 2])) << 16 | uint32_t(uint8_t(b[at + 3])) << 24;
}

uint16_t le16(const std::string& b, size_t at) {
  return uint16_t(uint8_t(b[at]) | uint8_t(b[at + 1]) << 8);
}

// The UTF-16 code units of UTF-8 `text`.
std::u16string utf16(const std::string& text) {
  std::u16string out;
  for (size_t i = 0; i < text.size();) {
    auto c = uint8_t(text[i]);
    size_t n = c < 0x80 ? 1 : c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : 2;
    char32_t cp = n == 1 ? c : c & (0x7F >> n);
    for (size_t k = 1; k < n; ++k) cp = (cp << 6) | (uint8_t(text[i + k]) & 0x3F);
    if (cp >= 0x10000) {
      out.push_back(char16_t(0xD800 + ((cp - 0x10000) >> 10)));
      out.push_back(char16_t(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    } else {
      out.push_back(char16_t(cp));
    }
    i += n;
  }
  return out;
}

std::u16string slice(const std::u16string& text, const json& mark) {
  return text.substr(mark["loc"].get<size_t>(), mark["len"].get<size_t>());
}

class SpeakCli : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tallowbrook-speak-cli-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(dir); }

  HelperRun render(const std::string& text, std::vector<std::string> args) {
    RunOptions options;
    options.input = text;
    args.insert(args.begin(), {"speak", "render"});
    return runHelper(args, options);
  }

  // `espeak-ng -w` of `text`, with the voice given (or its default).
  std::string espeakWav(const std::string& text, const std::string& voice = "") {
    std::string path = dir + "/espeak.wav";
    std::vector<std::string> argv{"espeak-ng", "-w", path};
    if (!voice.empty()) argv.insert(argv.end(), {"-v", voice});
    argv.push_back(text);
    auto run = runProgram(argv);
    EXPECT_EQ(run.status, 0) << run.err;
    return readFile(path);
  }

  std::string dir;
};

TEST_F(SpeakCli, WithoutAnActionFailsWithTheUsage) {
  expectFailureDocument(runHelper({"speak"}), "usage: speak <voices|render|preview>");
  expectFailureDocument(runHelper({"speak", "say"}), "unknown speak command: say");
}

TEST_F(SpeakCli, TextThatNeverEndsIsRefusedWithoutAFile) {
  RunOptions options;
  options.timeoutMs = 20000;
  std::string out = dir + "/endless.wav";
  for (const char* action : {"render", "preview"}) {
    auto run = runHelperFedForever({"speak", action, "--out", out}, options);
    EXPECT_FALSE(run.timedOut) << action;
    expectFailureDocument(run, "there is more text than can be read (over 16 MiB)");
  }
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(SpeakCli, VoicesListsEveryEspeakVoiceThenDone) {
  auto run = runHelper({"speak", "voices"});
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  ASSERT_GT(lines.size(), 100u);
  EXPECT_EQ(lines.back(), (json{{"type", "done"}}));
  lines.pop_back();

  // The voice files that the espeak-ng command lists, in its own (sorted) order.
  auto listing = runProgram({"espeak-ng", "--voices"});
  std::multiset<std::string> files;
  std::istringstream in(listing.out);
  std::string row;
  std::getline(in, row);  // heading
  while (std::getline(in, row)) {
    std::istringstream fields(row);
    std::vector<std::string> words{std::istream_iterator<std::string>(fields), {}};
    if (words.size() >= 5) files.insert(words[4]);
  }
  std::multiset<std::string> ids;
  for (const auto& line : lines) {
    EXPECT_EQ(line.size(), 8u) << line;
    EXPECT_EQ(line["type"], "voice");
    EXPECT_TRUE(line["id"].is_string());
    EXPECT_TRUE(line["name"].is_string());
    EXPECT_TRUE(line["language"].is_string());
    EXPECT_FALSE(line["language"].get<std::string>().empty()) << line;
    EXPECT_EQ(line["quality"], 1);
    EXPECT_TRUE(line["gender"] == 0 || line["gender"] == 1 || line["gender"] == 2) << line;
    EXPECT_EQ(line["novelty"], false);
    EXPECT_EQ(line["personal"], false);
    ids.insert(line["id"].get<std::string>());
  }
  EXPECT_EQ(ids, files);
  auto english = std::find_if(lines.begin(), lines.end(),
                              [](const json& l) { return l["id"] == "gmw/en-US"; });
  ASSERT_NE(english, lines.end());
  EXPECT_EQ((*english)["language"], "en-US");
  EXPECT_EQ((*english)["name"], "English (America)");
}

TEST_F(SpeakCli, RenderMatchesTheEspeakCommandSampleForSample) {
  const std::string text = "The archive keeps every letter. It arrived during the winter, in 1987!";
  std::string out = dir + "/speech.wav";
  auto run = render(text, {"--out", out});
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  std::string ours = readFile(out);
  std::string theirs = espeakWav(text);
  ASSERT_GT(theirs.size(), 44u + 22050u);
  EXPECT_TRUE(ours == theirs) << "sizes " << ours.size() << " and " << theirs.size();

  // The header describes the file, and done agrees with it.
  ASSERT_GE(ours.size(), 44u);
  EXPECT_EQ(ours.substr(0, 4), "RIFF");
  EXPECT_EQ(ours.substr(8, 8), "WAVEfmt ");
  EXPECT_EQ(le32(ours, 4), ours.size() - 8);
  EXPECT_EQ(le32(ours, 16), 16u);
  EXPECT_EQ(le16(ours, 20), 1);
  EXPECT_EQ(le16(ours, 22), 1);
  EXPECT_EQ(le32(ours, 24), 22050u);
  EXPECT_EQ(le32(ours, 28), 44100u);
  EXPECT_EQ(le16(ours, 32), 2);
  EXPECT_EQ(le16(ours, 34), 16);
  EXPECT_EQ(ours.substr(36, 4), "data");
  EXPECT_EQ(le32(ours, 40), ours.size() - 44);
  auto lines = jsonLines(run.out);
  ASSERT_FALSE(lines.empty());
  const json& done = lines.back();
  int64_t frames = int64_t(ours.size() - 44) / 2;
  EXPECT_EQ(done, (json{{"type", "done"},
                        {"ms", frames * 1000 / 22050},
                        {"sampleRate", 22050},
                        {"frames", frames}}));
  EXPECT_EQ(done.size(), 4u);
}

TEST_F(SpeakCli, RenderAndVoicesNeverTalkToTheSoundServer) {
  // Writing a file needs no sound server: one that accepts and never answers must not hold
  // the job up (espeak-ng's own start-up used to wait 30 s on it).
  SilentSoundServer silent;
  ASSERT_TRUE(silent.ok());
  RunOptions options;
  options.env = {{"PULSE_SERVER", silent.pulseServer()}};
  options.timeoutMs = 20000;
  options.input = "The archive is open.";
  const std::string out = dir + "/silent.wav";
  auto run = runHelper({"speak", "render", "--out", out}, options);
  ASSERT_FALSE(run.timedOut) << "render waited for the sound server";
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(readFile(out) == espeakWav("The archive is open."));
  options.input.clear();
  auto voices = runHelper({"speak", "voices"}, options);
  ASSERT_FALSE(voices.timedOut) << "voices waited for the sound server";
  EXPECT_EQ(voices.status, 0) << voices.out;
}

TEST_F(SpeakCli, RenderWithAVoiceMatchesTheEspeakCommand) {
  const std::string text = "Die Rechnung kam im Winter.";
  std::string out = dir + "/de.wav";
  auto run = render(text, {"--voice", "gmw/de", "--out", out});
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(readFile(out) == espeakWav(text, "gmw/de"));
}

TEST_F(SpeakCli, MarksSliceTheTextAtTheirWords) {
  // ASCII, accented Latin, CJK, emoji (read as several words) and two sentences.
  const std::string text = "Héllo café, 日本 and 😀 smile 😀! Second sentence ends here.";
  std::string out = dir + "/marks.wav";
  auto run = render(text, {"--out", out});
  ASSERT_EQ(run.status, 0) << run.out;
  auto lines = jsonLines(run.out);
  ASSERT_GE(lines.size(), 2u);
  std::u16string units = utf16(text);
  std::vector<std::u16string> words;
  int64_t lastAt = 0;
  for (size_t i = 0; i + 1 < lines.size(); ++i) {
    const json& mark = lines[i];
    ASSERT_EQ(mark["type"], "mark") << mark;
    EXPECT_EQ(mark.size(), 4u);
    int64_t loc = mark["loc"], len = mark["len"], at = mark["atMs"];
    ASSERT_GE(loc, 0);
    ASSERT_GT(len, 0) << mark;
    ASSERT_LE(size_t(loc + len), units.size());
    EXPECT_GE(at, lastAt) << "atMs went back at mark " << i;
    lastAt = at;
    // Consecutive marks of one token (日本 and each emoji are read as two words) count once.
    std::u16string word = slice(units, mark);
    if (words.empty() || words.back() != word) words.push_back(word);
  }
  EXPECT_LT(lastAt, lines.back()["ms"].get<int64_t>());
  EXPECT_EQ(words, (std::vector<std::u16string>{u"Héllo", u"café", u"日本", u"and", u"😀", u"smile",
                                                u"😀", u"Second", u"sentence", u"ends", u"here"}));
}

TEST_F(SpeakCli, TheLastWordOfEachSentenceIsMarked) {
  const std::string text = "One. Two. Three.";
  auto run = render(text, {"--out", dir + "/s.wav"});
  ASSERT_EQ(run.status, 0) << run.out;
  auto lines = jsonLines(run.out);
  std::u16string units = utf16(text);
  std::vector<std::u16string> words;
  for (size_t i = 0; i + 1 < lines.size(); ++i) words.push_back(slice(units, lines[i]));
  EXPECT_EQ(words, (std::vector<std::u16string>{u"One", u"Two", u"Three"}));
}

TEST_F(SpeakCli, ATrailingVoiceRendersWithTheDefaultVoice) {
  const std::string text = "Good morning.";
  auto run = render(text, {"--voice", "gmw/de", "--out", dir + "/v.wav", "--voice"});
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(readFile(dir + "/v.wav") == espeakWav(text));
}

TEST_F(SpeakCli, AnUnparsableRateIsIgnored) {
  const std::string text = "Good morning.";
  auto run = render(text, {"--out", dir + "/r.wav", "--rate", "fast"});
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(readFile(dir + "/r.wav") == espeakWav(text));
}

TEST_F(SpeakCli, RateAndPitchChangeTheSpeech) {
  const std::string text = "The archive keeps every letter that arrived during the winter.";
  auto framesAt = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--out", dir + "/x.wav"});
    auto run = render(text, args);
    EXPECT_EQ(run.status, 0) << run.out;
    return jsonLines(run.out).back()["frames"].get<int64_t>();
  };
  int64_t normal = framesAt({});
  int64_t slow = framesAt({"--rate", "0"});
  int64_t fast = framesAt({"--rate", "1"});
  EXPECT_GT(slow, normal * 3 / 2);
  EXPECT_LT(fast, normal * 2 / 3);
  EXPECT_EQ(framesAt({"--rate", "0.5"}), normal);

  ASSERT_EQ(render(text, {"--out", dir + "/p1.wav"}).status, 0);
  ASSERT_EQ(render(text, {"--out", dir + "/p2.wav", "--pitch", "1.8"}).status, 0);
  EXPECT_FALSE(readFile(dir + "/p1.wav") == readFile(dir + "/p2.wav"));
  // espeak-ng's own pitch for the multiplier: 50 x 1.8 = 90.
  std::string path = dir + "/espeak-p.wav";
  ASSERT_EQ(runProgram({"espeak-ng", "-p", "90", "-w", path, text}).status, 0);
  EXPECT_TRUE(readFile(dir + "/p2.wav") == readFile(path));
}

TEST_F(SpeakCli, RenderFailures) {
  expectFailureDocument(render("Hello.", {}), kUsage);
  expectFailureDocument(render("Hello.", {"--voice", "gmw/en"}), kUsage);
  expectFailureDocument(render("Hello.", {"--out", dir + "/a.wav", "--out"}), kUsage);
  expectFailureDocument(render(" \n\t \r\n", {"--out", dir + "/a.wav"}),
                        "there is no text to read");
  expectFailureDocument(render("", {"--out", dir + "/a.wav"}), "there is no text to read");
  expectFailureDocument(render("Hello.", {"--out", dir + "/a.wav", "--voice", "klingon"}),
                        "no voice with identifier klingon is installed");
  std::string missing = dir + "/no/such/dir/a.wav";
  expectFailureDocument(render("Hello.", {"--out", missing}),
                        "could not open " + missing + " for writing");
  EXPECT_FALSE(std::filesystem::exists(dir + "/a.wav"));
}

TEST_F(SpeakCli, AWriteTheDiskRefusesFailsTheRenderWithTheReason) {
  // A file-size limit stands in for a full disk: the write past it fails with EFBIG. The
  // render fails with the reason; it never reports a recording event.
  const std::string out = dir + "/limited.wav";
  RunOptions options;
  options.input = "This sentence is long enough to need more than four kilobytes of audio.";
  auto run = runProgram({"prlimit", "--fsize=4096", HELPER_PATH, "speak", "render", "--out", out},
                        options);
  expectFailureDocument(run, "could not write to " + out + ": File too large");
  EXPECT_EQ(run.out.find("record-warning"), std::string::npos);
  EXPECT_LE(std::filesystem::file_size(out), 4096u);
}

// A private sound server for the preview tests, with its own directory.
class SoundServer {
 public:
  bool start() {
    char pattern[] = "/tmp/tallowbrook-sound-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return false;
    dir_ = pattern;
    auto run = runProgram({"bash", script(), "start", dir_});
    if (run.status != 0) {
      error_ = run.err;
      return false;
    }
    // export HOME=... XDG_RUNTIME_DIR=... PULSE_SERVER=...
    std::istringstream words(run.out);
    std::string word;
    while (words >> word) {
      auto equals = word.find('=');
      if (equals != std::string::npos)
        env_.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    }
    return env_.size() == 3;
  }
  void stop() {
    if (dir_.empty()) return;
    pid_t daemon = 0;
    std::ifstream(dir_ + "/xdg/pulse/pid") >> daemon;
    runProgram({"bash", script(), "stop", dir_});
    // `pulseaudio --kill` only asks: wait for the daemon to be gone before removing its files.
    for (int i = 0; i < 200 && daemon > 0 && kill(daemon, 0) == 0; ++i) usleep(25 * 1000);
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
    dir_.clear();
  }
  const std::vector<std::pair<std::string, std::string>>& env() const { return env_; }
  const std::string& error() const { return error_; }

 private:
  static std::string script() { return std::string(SHARED_TOOLS_DIR) + "/test-sound-server"; }
  std::string dir_;
  std::string error_;
  std::vector<std::pair<std::string, std::string>> env_;
};

// parec on the speaker sink's monitor, writing raw s16 mono samples into a file until stopped.
class MonitorRecording {
 public:
  MonitorRecording(const std::vector<std::pair<std::string, std::string>>& env, std::string path)
      : path_(std::move(path)) {
    pid_ = fork();
    if (pid_ == 0) {
      int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(fd, 1);
      for (const auto& [name, value] : env) setenv(name.c_str(), value.c_str(), 1);
      execlp("parec", "parec", "-d", "speaker.monitor", "--raw", "--format=s16le", "--rate=22050",
             "--channels=1", nullptr);
      _exit(127);
    }
    // Playback must not start before parec listens: wait for its record stream to exist.
    RunOptions options;
    options.env = env;
    for (int i = 0; i < 200; ++i) {
      auto streams = runProgram({"pactl", "list", "short", "source-outputs"}, options);
      if (!streams.out.empty()) {
        listening_ = true;
        break;
      }
      usleep(25 * 1000);
    }
  }
  bool listening() const { return listening_; }
  // Stops parec and returns the largest magnitude it heard and the samples it got.
  std::pair<int, size_t> stop() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
      pid_ = -1;
    }
    std::string bytes = readFile(path_);
    int peak = 0;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
      int s = int16_t(le16(bytes, i));
      peak = std::max(peak, std::abs(s));
    }
    return {peak, bytes.size() / 2};
  }
  ~MonitorRecording() { stop(); }

 private:
  std::string path_;
  pid_t pid_ = -1;
  bool listening_ = false;
};

class SpeakPreview : public SpeakCli {
 protected:
  static void SetUpTestSuite() {
    server = new SoundServer;
    started = server->start();
  }
  static void TearDownTestSuite() {
    server->stop();
    delete server;
    server = nullptr;
  }
  void SetUp() override {
    SpeakCli::SetUp();
    ASSERT_TRUE(started) << "the test sound server did not start: " << server->error();
  }
  HelperRun preview(const std::string& text, std::vector<std::string> args = {}) {
    RunOptions options;
    options.input = text;
    options.env = server->env();
    options.timeoutMs = 60000;
    args.insert(args.begin(), {"speak", "preview"});
    return runHelper(args, options);
  }

  static SoundServer* server;
  static bool started;
};
SoundServer* SpeakPreview::server = nullptr;
bool SpeakPreview::started = false;

TEST_F(SpeakPreview, PlaysThroughTheDefaultSinkAndEndsWithDone) {
  MonitorRecording monitor(server->env(), dir + "/monitor.raw");
  ASSERT_TRUE(monitor.listening());
  auto run = preview("Hello from the preview.");
  usleep(200 * 1000);
  auto [peak, samples] = monitor.stop();
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(jsonLines(run.out), (std::vector<json>{json{{"type", "done"}}}));
  EXPECT_GT(samples, 22050u / 2);
  EXPECT_GT(peak, 2000) << "the monitor heard only silence";
}

TEST_F(SpeakPreview, BlankInputSpeaksTheSampleSentence) {
  MonitorRecording monitor(server->env(), dir + "/monitor.raw");
  ASSERT_TRUE(monitor.listening());
  auto run = preview("  \n\n");
  auto [peak, samples] = monitor.stop();
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(jsonLines(run.out), (std::vector<json>{json{{"type", "done"}}}));
  // The sample sentence lasts about three seconds at the default rate.
  EXPECT_GT(samples, size_t(22050 * 2));
  EXPECT_GT(peak, 2000);
}

TEST_F(SpeakPreview, AnUnknownVoiceIsNamed) {
  expectFailureDocument(preview("Hi.", {"--voice", "nobody"}),
                        "no voice with identifier nobody is installed");
}

TEST_F(SpeakPreview, WithoutASoundServerFailsInsteadOfHanging) {
  RunOptions options;
  options.input = "Hello.";
  options.env = {
      {"PULSE_SERVER", "unix:" + dir + "/no-such-socket"}, {"HOME", dir}, {"XDG_RUNTIME_DIR", dir}};
  options.timeoutMs = 60000;
  auto run = runHelper({"speak", "preview"}, options);
  EXPECT_FALSE(run.timedOut);
  expectFailureDocument(run, "the voice did not finish speaking");
  EXPECT_EQ(run.err, "");
}

}  // namespace
