// The recording's timing against a real sound server: clicks in the mix of two steady tones,
// the audio a pause adds, and how closely the microphone's level lines follow the audio.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "record_process.h"
#include "tone_glitches.h"

namespace {

using namespace record_cli;
using nlohmann::json;

// A 1 kHz tone on the microphone and 440 Hz on the speaker, both at 0.3 of full scale, for
// `seconds`.
struct Tones {
  Tones(SoundServer& server, double seconds) {
    const std::string mic = server.file("mic-tone.wav"), system = server.file("system-tone.wav");
    writeTone(mic, 1000, seconds, 48000, 1, 0.3);
    writeTone(system, 440, seconds, 48000, 2, 0.3);
    micPlayer = std::make_unique<LiveProcess>(
        std::vector<std::string>{"paplay", "-d", "micfeed", mic}, server.env());
    systemPlayer = std::make_unique<LiveProcess>(
        std::vector<std::string>{"paplay", "-d", "speaker", system}, server.env());
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  }
  std::unique_ptr<LiveProcess> micPlayer, systemPlayer;
};

// Glitching windows of `frequency` in `samples` from 1 s on, leaving out the last 100 ms
// (where a stop pads the shorter source with silence).
std::vector<ToneGlitch> glitchesOf(std::vector<int16_t> samples, double frequency) {
  samples.resize(samples.size() > 4800 ? samples.size() - 4800 : 0);
  return toneGlitches(samples, frequency, 1.0);
}

TEST(RecordGlitches, BothInputsOfTwoSteadyTonesHaveNoClicks) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  Tones tones(server, 14);
  // Two parecord processes on the same sources at the same time witness the server's own
  // underruns (a loaded machine makes the server skip now and then): the helper may show
  // those, and nothing more.
  const std::vector<std::string> format = {"--rate=48000", "--channels=1", "--format=s16le",
                                           "--file-format=wav"};
  auto peer = [&](const std::string& source, const std::string& file) {
    std::vector<std::string> argv = {"parecord", "-d", source};
    argv.insert(argv.end(), format.begin(), format.end());
    argv.push_back(server.file(file));
    return std::make_unique<LiveProcess>(argv, server.env());
  };
  auto micPeer = peer("mic", "peer-mic.wav");
  auto systemPeer = peer("speaker.monitor", "peer-system.wav");
  const std::string out = server.file("both.wav");
  auto recording = startRecording(server, {"--out", out, "--input", "both"});
  std::this_thread::sleep_for(std::chrono::seconds(10));
  const json stopped = stopRecording(*recording);
  micPeer->signal(SIGINT);
  systemPeer->signal(SIGINT);
  micPeer->wait(5000);
  systemPeer->wait(5000);
  const auto samples = wavSamples(out);
  ASSERT_GE(samples.size(), 48000u * 9);
  for (const auto& [frequency, peerFile] :
       {std::pair{1000.0, "peer-mic.wav"}, std::pair{440.0, "peer-system.wav"}}) {
    const auto ours = glitchesOf(samples, frequency);
    const auto theirs = glitchesOf(wavSamples(server.file(peerFile)), frequency);
    std::cout << frequency << " Hz: " << ours.size() << " glitching windows in the helper's "
              << "recording, " << theirs.size() << " in parecord's\n";
    EXPECT_LE(ours.size(), theirs.size()) << "the helper's:\n"
                                          << describe(ours, frequency) << "parecord's:\n"
                                          << describe(theirs, frequency);
  }
}

TEST(RecordGlitches, APauseAddsNoAudio) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  Tones tones(server, 6);
  const std::string out = server.file("paused.wav");
  const auto begun = std::chrono::steady_clock::now();
  auto recording = startRecording(server, {"--out", out, "--input", "both"});
  auto since = [&begun] {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun)
        .count();
  };
  const double started = since();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const double pausedAt = since();
  recording->send("pause\n");
  ASSERT_TRUE(recording->waitForType("record-paused", 2000).has_value());
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const double resumedAt = since();
  recording->send("resume\n");
  ASSERT_TRUE(recording->waitForType("record-resumed", 2000).has_value());
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const double stoppedAt = since();
  const json stopped = stopRecording(*recording);
  const double recorded = (stoppedAt - started) - (resumedAt - pausedAt);
  const auto paused = recording->waitForType("record-paused", 0);
  const auto resumed = recording->waitForType("record-resumed", 0);
  ASSERT_TRUE(paused && resumed);
  EXPECT_EQ((*paused)["elapsedMs"], (*resumed)["elapsedMs"]);
  // Nothing is written while paused; the file holds the time recorded, give or take whole
  // fragments of the mix's 50 ms delivery. Samples that arrive while paused are discarded and
  // those that arrive after the resume kept, so the fragment in flight at the pause (audio from
  // before it) is lost and the one in flight at the resume (audio from the pause) kept: the
  // two edges cancel, or miss by one fragment either way. At the stop up to one fragment is
  // still in the server, and the server's latency at the start may cost a little more. Leaving
  // the pause in the file would add 1000 ms.
  const double elapsed = stopped["elapsedMs"].get<double>();
  std::cout << "recorded " << elapsed << " ms in a window of " << recorded << " ms\n";
  constexpr double kFragment = 50;
  EXPECT_LE(elapsed, recorded + kFragment + 20);
  EXPECT_GE(elapsed, recorded - 2 * kFragment - 50);
}

TEST(RecordGlitches, MicrophoneLevelLinesFollowTheAudioWithinAFewMilliseconds) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  auto recording = startRecording(server, {"--out", server.file("mic.wav")});
  std::this_thread::sleep_for(std::chrono::seconds(3));
  stopRecording(*recording);
  // Each level line's "frames" against its arrival time: the audio written follows the clock
  // in fragments of a few milliseconds, so the spread of (audio - time) stays small. Blocks of
  // 4096 frames (85 ms) would spread it by 85 ms.
  double low = 1e9, high = -1e9;
  size_t count = 0;
  for (const TimedLine& line : recording->lines()) {
    const json parsed = json::parse(line.text);
    if (parsed.value("type", "") != "level" || line.ms < 1000) continue;
    const double gap = parsed["frames"].get<double>() / 48.0 - line.ms;
    low = std::min(low, gap);
    high = std::max(high, gap);
    ++count;
  }
  ASSERT_GE(count, 15u);
  EXPECT_LT(high - low, 40) << "level lines and audio drift apart by " << high - low << " ms";
}

}  // namespace
