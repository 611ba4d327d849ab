// record permissions, devices and start, run as the application runs them, against a private
// sound server per test: PulseAudio, or PipeWire with TALLOWBROOK_TEST_SOUND_SERVER=pipewire.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "record_process.h"
#include "run_helper.h"

namespace {

using namespace record_cli;
using nlohmann::json;

const char* const kStartUsage =
    "usage: record start --out <path.wav> [--input mic|system|both] [--device <uid>]";
const char* const kInputChoice = "--input must be one of mic, system, both";

RunOptions withEnv(const Env& env) {
  RunOptions options;
  options.env = env;
  return options;
}

std::vector<json> ofType(const std::vector<json>& lines, const std::string& type) {
  std::vector<json> found;
  for (const auto& line : lines) {
    if (line.value("type", "") == type) found.push_back(line);
  }
  return found;
}

// Checks that "record-stopped" agrees with the file it names.
void expectStoppedMatchesFile(const json& stopped, const std::string& path) {
  for (const char* key : {"path", "frames", "bytes", "elapsedMs", "sampleRate", "channels"}) {
    if (!stopped.contains(key)) {
      ADD_FAILURE() << "record-stopped without " << key << ": " << stopped.dump();
      return;
    }
  }
  const auto frames = stopped["frames"].get<int64_t>();
  EXPECT_EQ(stopped["path"], path);
  EXPECT_EQ(stopped["bytes"].get<int64_t>(), frames * 2 + 44);
  EXPECT_EQ(stopped["elapsedMs"].get<int64_t>(), frames * 1000 / 48000);
  EXPECT_EQ(stopped["sampleRate"], 48000);
  EXPECT_EQ(stopped["channels"], 1);
  EXPECT_EQ(int64_t(std::filesystem::file_size(path)), frames * 2 + 44);
  const std::vector<int16_t> samples = wavSamples(path);
  EXPECT_EQ(int64_t(samples.size()), frames);
  std::ifstream in(path, std::ios::binary);
  char header[44];
  in.read(header, 44);
  uint32_t dataBytes, riffBytes;
  std::memcpy(&riffBytes, header + 4, 4);
  std::memcpy(&dataBytes, header + 40, 4);
  EXPECT_EQ(int64_t(dataBytes), frames * 2);
  EXPECT_EQ(int64_t(riffBytes), frames * 2 + 36);
}

// Plays `file` into `sink` and waits until it has been played.
void play(SoundServer& server, const std::string& sink, const std::string& file) {
  int status = -1;
  server.run({"paplay", "-d", sink, file}, &status);
  EXPECT_EQ(status, 0);
}

TEST(RecordCommand, StartOptionsAreChecked) {
  expectFailureDocument(runHelper({"record", "start", "--input", "both"}), kStartUsage);
  expectFailureDocument(runHelper({"record", "start", "--out", "/tmp/x.wav", "--input"}),
                        kInputChoice);
  expectFailureDocument(runHelper({"record", "start", "--out", "/tmp/x.wav", "--out"}),
                        kStartUsage);
  expectFailureDocument(runHelper({"record", "start", "--input", "Mic", "--out", "/tmp/x.wav"}),
                        kInputChoice);
  expectFailureDocument(runHelper({"record", "start", "--verbose"}), "unknown option: --verbose");
  expectFailureDocument(runHelper({"record", "list"}), "unknown record subcommand: list");
  EXPECT_FALSE(std::filesystem::exists("/tmp/x.wav"));
}

TEST(RecordCommand, DevicesListsTheInputsWithTheDefaultMarked) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  auto run = runHelper({"record", "devices", "ignored"}, withEnv(server.env()));
  EXPECT_EQ(run.status, 0) << run.out;
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0],
            (json{{"type", "record-devices"},
                  {"devices",
                   {{{"uid", "mic"}, {"name", "Test Microphone"}, {"default", true}},
                    {{"uid", "mic2"}, {"name", "Second Microphone"}, {"default", false}}}}}));
  // A monitor as the default source: no input is the default.
  server.run({"pactl", "set-default-source", "speaker.monitor"});
  run = runHelper({"record", "devices"}, withEnv(server.env()));
  lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  ASSERT_EQ(lines[0]["devices"].size(), 2u);
  for (const auto& device : lines[0]["devices"]) EXPECT_EQ(device["default"], false);
}

TEST(RecordCommand, PermissionsWithAndWithoutASoundServer) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  auto run = runHelper({"record", "permissions"}, withEnv(server.env()));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(jsonLines(run.out), (std::vector<json>{{{"type", "record-permissions"},
                                                    {"microphone", "authorized"},
                                                    {"screenRecording", true}}}));
  run = runHelper({"record", "request-microphone"}, withEnv(server.env()));
  EXPECT_EQ(jsonLines(run.out), (std::vector<json>{{{"type", "record-permissions"},
                                                    {"microphone", "authorized"},
                                                    {"screenRecording", true},
                                                    {"prompted", false}}}));

  Env nowhere = server.env();
  for (auto& [key, value] : nowhere) {
    if (key == "PULSE_SERVER") value = "unix:" + server.file("no-such-socket");
  }
  run = runHelper({"record", "permissions"}, withEnv(nowhere));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(jsonLines(run.out), (std::vector<json>{{{"type", "record-permissions"},
                                                    {"microphone", "denied"},
                                                    {"screenRecording", false}}}));
  expectFailureDocument(runHelper({"record", "devices"}, withEnv(nowhere)),
                        "No sound server is running, so no input device can be listed. Start "
                        "PulseAudio or PipeWire (with pipewire-pulse), then try again.");
  for (const char* input : {"mic", "system", "both"}) {
    expectFailureDocument(
        runHelper({"record", "start", "--out", server.file("x.wav"), "--input", input},
                  withEnv(nowhere)),
        "No sound server is running, so nothing can be recorded. Start PulseAudio or PipeWire "
        "(with pipewire-pulse), then try again.");
  }
}

TEST(RecordCommand, AFileThatCannotBeCreatedFailsTheStart) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  expectFailureDocument(
      runHelper({"record", "start", "--out", "/no/such/folder/x.wav"}, withEnv(server.env())),
      "could not create /no/such/folder/x.wav");
  expectFailureDocument(runHelper({"record", "start", "--out", ""}, withEnv(server.env())),
                        "could not create ");
}

TEST(RecordCommand, MicrophoneToneComesOutAtOneKilohertz) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string tone = server.file("tone.wav");
  writeTone(tone, 1000, 1.5, 48000, 1, 0.5);
  const std::string out = server.file("mic.wav");
  auto recording = startRecording(server, {"--out", out, "--input", "mic"});
  play(server, "micfeed", tone);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const json stopped = stopRecording(*recording);
  expectStoppedMatchesFile(stopped, out);
  const auto heard = audible(wavSamples(out), 2000);
  ASSERT_GT(heard.size(), 48000u) << "less than a second of the tone was recorded";
  EXPECT_NEAR(zeroCrossingFrequency(heard), 1000.0, 5.0);
  EXPECT_NEAR(rms(heard), 0.5 / std::sqrt(2.0), 0.02);
  // The level lines saw it too.
  double loudest = 0;
  for (const auto& level : ofType(recording->jsonLines(), "level")) {
    loudest = std::max(loudest, level["peak"].get<double>());
  }
  EXPECT_NEAR(loudest, 0.5, 0.03);
  EXPECT_TRUE(recording->err().empty()) << recording->err();
}

TEST(RecordCommand, SystemAudioToneIsRecorded) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string tone = server.file("tone.wav");
  writeTone(tone, 440, 1.5, 48000, 2, 0.4);
  const std::string out = server.file("system.wav");
  auto recording = startRecording(server, {"--out", out, "--input", "system"});
  play(server, "speaker", tone);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const json stopped = stopRecording(*recording);
  expectStoppedMatchesFile(stopped, out);
  const auto heard = audible(wavSamples(out), 2000);
  ASSERT_GT(heard.size(), 48000u);
  EXPECT_NEAR(zeroCrossingFrequency(heard), 440.0, 5.0);
  EXPECT_NEAR(rms(heard), 0.4 / std::sqrt(2.0), 0.02);
}

TEST(RecordCommand, BothInputsAreMixed) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string micTone = server.file("mic-tone.wav");
  const std::string systemTone = server.file("system-tone.wav");
  writeTone(micTone, 1000, 4.0, 48000, 1, 0.3);
  writeTone(systemTone, 440, 4.0, 48000, 2, 0.3);
  const std::string out = server.file("both.wav");
  auto recording = startRecording(server, {"--out", out, "--input", "both"});
  LiveProcess micPlayer({"paplay", "-d", "micfeed", micTone}, server.env());
  LiveProcess systemPlayer({"paplay", "-d", "speaker", systemTone}, server.env());
  EXPECT_EQ(micPlayer.wait(10000), 0);
  EXPECT_EQ(systemPlayer.wait(10000), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const json stopped = stopRecording(*recording);
  expectStoppedMatchesFile(stopped, out);
  const auto samples = wavSamples(out);
  const auto heard = audible(samples, 2000);
  ASSERT_GT(heard.size(), 48000u);
  // Both tones play together for a while, each at its own level (amplitude 0.3: power 0.0225)
  // and nothing between them. The two players start apart by however long the server takes to
  // open each stream, and on a busy machine a starved source may miss a moment, so the file is
  // judged in 100 ms windows (whole periods of both tones): at least a second's worth must hold
  // both, and those windows must hold each at its level.
  std::vector<double> mic, system, between, loudness;
  for (size_t start = 0; start + 4800 <= heard.size(); start += 4800) {
    const std::vector<int16_t> window(heard.begin() + long(start),
                                      heard.begin() + long(start) + 4800);
    const double high = goertzel(window, 1000), low = goertzel(window, 440);
    if (high < 0.0135 || low < 0.0135) continue;  // a tone missing from most of the window
    mic.push_back(high);
    system.push_back(low);
    between.push_back(goertzel(window, 700));
    loudness.push_back(rms(window));
  }
  auto median = [](std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
  };
  SCOPED_TRACE(std::to_string(mic.size()) + " windows of 100 ms with both tones in " +
               std::to_string(heard.size()) + " audible frames");
  ASSERT_GE(mic.size(), 10u);
  EXPECT_GT(median(mic), 0.019);
  EXPECT_LT(median(mic), 0.026);
  EXPECT_GT(median(system), 0.019);
  EXPECT_LT(median(system), 0.026);
  EXPECT_LT(median(between), 0.002);
  EXPECT_NEAR(median(loudness), 0.3, 0.05) << "two independent tones of rms 0.212 each";
}

TEST(RecordCommand, LevelLinesEveryHundredMilliseconds) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("levels.wav");
  auto recording = startRecording(server, {"--out", out});
  std::this_thread::sleep_for(std::chrono::milliseconds(3000));
  const json stopped = stopRecording(*recording);
  std::vector<double> times;
  for (const TimedLine& line : recording->lines()) {
    if (line.text.find("\"type\":\"level\"") != std::string::npos) times.push_back(line.ms);
  }
  ASSERT_GE(times.size(), 25u);
  ASSERT_LE(times.size(), 32u);
  // Over the run the lines come exactly 100 ms apart (the timer does not drift), and the
  // intervals after the first are 100 ms +- 20 ms; a machine busy with other tests may hold a
  // line back now and then, so one in ten may fall outside.
  size_t outside = 0;
  for (size_t i = 2; i < times.size(); ++i) {
    const double interval = times[i] - times[i - 1];
    if (interval < 80 || interval > 120) ++outside;
  }
  EXPECT_LE(outside, (times.size() - 2) / 10);
  const double mean = (times.back() - times[1]) / double(times.size() - 2);
  EXPECT_NEAR(mean, 100.0, 5.0);
  // The levels report the frames written so far, and stopping agrees with the file.
  const auto levels = ofType(recording->jsonLines(), "level");
  for (size_t i = 1; i < levels.size(); ++i) {
    EXPECT_GE(levels[i]["frames"].get<int64_t>(), levels[i - 1]["frames"].get<int64_t>());
    EXPECT_EQ(levels[i]["elapsedMs"].get<int64_t>(),
              levels[i]["frames"].get<int64_t>() * 1000 / 48000);
  }
  expectStoppedMatchesFile(stopped, out);
  EXPECT_NEAR(stopped["elapsedMs"].get<double>(), 3000, 400);
}

TEST(RecordCommand, ControlLines) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("control.wav");
  auto recording = startRecording(server, {"--out", out});
  recording->send("  pause\t\n");
  auto paused = recording->waitForType("record-paused", 5000);
  ASSERT_TRUE(paused.has_value());
  recording->send("PAUSE\n\n   \n");
  auto warning = recording->waitForType("record-warning", 5000);
  ASSERT_TRUE(warning.has_value());
  EXPECT_EQ(*warning,
            (json{{"type", "record-warning"}, {"message", "unknown control command: PAUSE"}}));
  // While paused the level lines say so and nothing is written.
  EXPECT_TRUE(recording->waitFor([](const json& l) { return l.value("paused", false); }, 2000));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  recording->send("resume\n");
  auto resumed = recording->waitForType("record-resumed", 5000);
  ASSERT_TRUE(resumed.has_value());
  EXPECT_EQ((*resumed)["elapsedMs"], (*paused)["elapsedMs"]);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  recording->closeInput();  // the end of input stops the recording
  EXPECT_EQ(recording->wait(10000), 0);
  const auto lines = recording->jsonLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back()["type"], "record-stopped");
  EXPECT_EQ(ofType(lines, "record-paused").size(), 1u);
  EXPECT_EQ(ofType(lines, "record-warning").size(), 1u);
  expectStoppedMatchesFile(lines.back(), out);
}

// The peak resident memory of process `pid` in KiB (VmHWM), or -1.
long peakKiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

TEST(RecordCommand, AControlLineThatNeverEndsKeepsMemoryBounded) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("long-line.wav");
  auto recording = startRecording(server, {"--out", out});
  const long before = peakKiB(recording->pid());
  ASSERT_GT(before, 0);
  // 96 MiB without a line break: the helper keeps the first 4 KiB of the line and drops the rest.
  const std::string block(1 << 20, 'x');
  for (int i = 0; i < 96; ++i) recording->send(block);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LT(peakKiB(recording->pid()) - before, 16 * 1024) << "the line was kept whole";
  recording->send("\nstop\n");
  EXPECT_EQ(recording->wait(20000), 0);
  auto warning = recording->waitForType("record-warning", 1000);
  ASSERT_TRUE(warning.has_value());
  EXPECT_EQ((*warning)["message"], "unknown control command: " + std::string(4096, 'x'));
  EXPECT_EQ(recording->jsonLines().back()["type"], "record-stopped");
  expectStoppedMatchesFile(recording->jsonLines().back(), out);
}

TEST(RecordCommand, SigtermStopsLikeAStopLineAndASecondSignalDoesNothingMore) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("term.wav");
  auto recording = startRecording(server, {"--out", out, "--input", "both"});
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  recording->signal(SIGTERM);
  recording->signal(SIGTERM);
  EXPECT_EQ(recording->wait(10000), 0);
  const auto lines = recording->jsonLines();
  ASSERT_EQ(ofType(lines, "record-stopped").size(), 1u);
  EXPECT_EQ(lines.back()["type"], "record-stopped");
  expectStoppedMatchesFile(lines.back(), out);
  for (int signal : {SIGINT, SIGHUP}) {
    auto again = startRecording(server, {"--out", out});
    again->signal(signal);
    EXPECT_EQ(again->wait(10000), 0);
    EXPECT_EQ(ofType(again->jsonLines(), "record-stopped").size(), 1u);
  }
}

TEST(RecordCommand, DeviceSelection) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string tone = server.file("tone.wav");
  writeTone(tone, 700, 1.0, 44100, 2, 0.5);
  // The second microphone (44100 Hz stereo) by its UID.
  const std::string out = server.file("mic2.wav");
  auto recording = startRecording(server, {"--out", out, "--device", "mic2"});
  play(server, "micfeed2", tone);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  stopRecording(*recording);
  EXPECT_TRUE(ofType(recording->jsonLines(), "record-warning").empty());
  const auto heard = audible(wavSamples(out), 2000);
  ASSERT_GT(heard.size(), 24000u);
  EXPECT_NEAR(zeroCrossingFrequency(heard), 700.0, 5.0);
  EXPECT_NEAR(rms(heard), 0.5 / std::sqrt(2.0), 0.03);

  // A UID that differs only in case is not connected: the default microphone is recorded.
  auto wrongCase = startRecording(server, {"--out", out, "--device", "MIC2"});
  auto warning = wrongCase->waitForType("record-warning", 5000);
  ASSERT_TRUE(warning.has_value());
  EXPECT_EQ((*warning)["message"],
            "input device MIC2 is not connected. Recording from the system default instead.");
  stopRecording(*wrongCase);

  // A trailing --device forgets the device: the default, without a warning.
  auto trailing = startRecording(server, {"--device", "nothing", "--out", out, "--device"});
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  stopRecording(*trailing);
  EXPECT_TRUE(ofType(trailing->jsonLines(), "record-warning").empty());
}

TEST(RecordCommand, ANewDefaultSourceIsFollowedAndItsRateConverted) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("switch.wav");
  auto recording = startRecording(server, {"--out", out});
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  server.run({"pactl", "set-default-source", "mic2"});
  auto changed = recording->waitFor(
      [](const json& l) { return l.value("message", "").find("changed") != std::string::npos; },
      5000);
  ASSERT_TRUE(changed.has_value());
  // PulseAudio offers the second microphone at its feed's 44100 Hz; PipeWire at the graph's
  // 48000 Hz, where there is no rate to convert.
  const bool converts = !onPipeWire();
  EXPECT_EQ((*changed)["message"],
            std::string("the input device changed. Recording continues at ") +
                (converts ? "44100" : "48000") + " Hz.");
  if (converts) {
    auto moved = recording->waitFor(
        [](const json& l) { return l.value("message", "").find("moved") != std::string::npos; },
        5000);
    ASSERT_TRUE(moved.has_value());
    EXPECT_EQ((*moved)["message"],
              "the input moved from 48000 Hz to 44100 Hz; it is being converted to 48000 Hz so "
              "the file stays one recording.");
  }
  const json stopped = stopRecording(*recording);
  expectStoppedMatchesFile(stopped, out);
  EXPECT_EQ(ofType(recording->jsonLines(), "record-warning").size(), converts ? 2u : 1u);
}

TEST(RecordCommand, LidDiagnosticsOnlyWithTheVariableSetToOne) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("lid.wav");
  auto traced = startRecording(server, {"--out", out}, {{"TALLOWBROOK_LID_DIAGNOSTICS", "1"}});
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  stopRecording(*traced);
  const std::string err = traced->err();
  const auto count = std::count(err.begin(), err.end(), '\n');
  EXPECT_GE(count, 4);
  EXPECT_LE(count, 16);
  EXPECT_EQ(err.rfind("lid-probe stage=poll-scheduled status=0 value=0\n", 0), 0u) << err;
  EXPECT_NE(err.find("lid-probe stage=input-route status=0 value="), std::string::npos) << err;
  EXPECT_TRUE(ofType(traced->jsonLines(), "record-warning").empty());
  for (const char* value : {"true", "yes", "2"}) {
    auto quiet = startRecording(server, {"--out", out}, {{"TALLOWBROOK_LID_DIAGNOSTICS", value}});
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    stopRecording(*quiet);
    EXPECT_TRUE(quiet->err().empty()) << value << ": " << quiet->err();
  }
}

}  // namespace
