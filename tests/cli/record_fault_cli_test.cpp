// record start under faults: the microphone unplugged and plugged back, the sound server
// killed, the helper killed, a full disk.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "record_process.h"

namespace {

using namespace record_cli;
using nlohmann::json;

const char* const kWentAway =
    "the input device went away and macOS is offering no replacement. The recording is still "
    "running and will resume when one returns.";

std::vector<json> ofType(const std::vector<json>& lines, const std::string& type) {
  std::vector<json> found;
  for (const auto& line : lines) {
    if (line.value("type", "") == type) found.push_back(line);
  }
  return found;
}

struct Header {
  uint32_t riffBytes = 0;
  uint32_t dataBytes = 0;
};

Header readHeader(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  char bytes[44] = {};
  in.read(bytes, 44);
  Header header;
  std::memcpy(&header.riffBytes, bytes + 4, 4);
  std::memcpy(&header.dataBytes, bytes + 40, 4);
  EXPECT_EQ(std::string(bytes, 4), "RIFF");
  EXPECT_EQ(std::string(bytes + 36, 4), "data");
  return header;
}

// A finished recording: the header claims exactly what the file holds and what
// "record-stopped" said.
void expectValidFile(const std::string& path, const json& stopped) {
  const Header header = readHeader(path);
  const auto size = std::filesystem::file_size(path);
  EXPECT_EQ(header.dataBytes + 44, size);
  EXPECT_EQ(header.riffBytes + 8, size);
  EXPECT_EQ(stopped["bytes"].get<uint64_t>(), size);
  EXPECT_EQ(stopped["frames"].get<uint64_t>() * 2, header.dataBytes);
}

bool isWarning(const json& line, const std::string& message) {
  return line.value("type", "") == "record-warning" && line.value("message", "") == message;
}

TEST(RecordFaults, MicrophoneUnpluggedAndPluggedBackKeepsOneContinuousFile) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  // Only the one microphone, so its loss leaves no input to fall back on.
  const int second = server.moduleIndex("module-remap-source", "source_name=mic2 ");
  ASSERT_GE(second, 0);
  server.run({"pactl", "unload-module", std::to_string(second)});
  const int mic = server.moduleIndex("module-remap-source", "source_name=mic ");
  ASSERT_GE(mic, 0);

  const std::string out = server.file("unplug.wav");
  auto recording = startRecording(server, {"--out", out});
  const auto begun = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  server.run({"pactl", "unload-module", std::to_string(mic)});
  ASSERT_TRUE(recording->waitFor([](const json& l) { return isWarning(l, kWentAway); }, 5000))
      << recording->err();
  // The recording goes on (level lines keep coming) while there is no input.
  const size_t levelsBefore = ofType(recording->jsonLines(), "level").size();
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  EXPECT_GE(ofType(recording->jsonLines(), "level").size(), levelsBefore + 8);
  server.run({"pactl", "load-module", "module-remap-source", "source_name=mic",
              "master=micfeed.monitor", "channels=1", "channel_map=mono", "remix=no"});
  server.run({"pactl", "set-default-source", "mic"});
  auto back = recording->waitFor(
      [](const json& l) {
        return l.value("type", "") == "record-warning" &&
               l.value("message", "").find("came back") != std::string::npos;
      },
      5000);
  ASSERT_TRUE(back.has_value());
  EXPECT_EQ((*back)["message"], "the input device came back. Recording continues at 48000 Hz.");
  ASSERT_TRUE(back->contains("silenceMs"));
  EXPECT_GE((*back)["silenceMs"].get<int64_t>(), 1000);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  recording->send("stop\n");
  const auto wall =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count();
  ASSERT_EQ(recording->wait(10000), 0);
  const auto stopped = recording->waitForType("record-stopped", 1000);
  ASSERT_TRUE(stopped.has_value());
  expectValidFile(out, *stopped);
  // One continuous file: the gap was filled with silence, so the audio's length follows the
  // wall clock.
  EXPECT_NEAR((*stopped)["elapsedMs"].get<double>(), wall, 400);
  // Every "went away" warning came before the one that said the input came back.
  const auto warnings = ofType(recording->jsonLines(), "record-warning");
  ASSERT_GE(warnings.size(), 2u);
  for (size_t i = 0; i + 1 < warnings.size(); ++i) EXPECT_EQ(warnings[i]["message"], kWentAway);
}

TEST(RecordFaults, SoundServerKilledMidRecordingThenStopFinishesTheFile) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("killed-server.wav");
  auto recording = startRecording(server, {"--out", out, "--input", "both"});
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  const pid_t pid = server.serverPid();
  ASSERT_GT(pid, 0);
  ASSERT_EQ(kill(pid, SIGKILL), 0);
  ASSERT_TRUE(recording->waitFor(
      [](const json& l) {
        return l.value("type", "") == "record-warning" &&
               l.value("message", "").rfind("system audio capture stopped: ", 0) == 0;
      },
      5000));
  ASSERT_TRUE(recording->waitFor([](const json& l) { return isWarning(l, kWentAway); }, 5000));
  // Still recording: levels keep coming, and the mix keeps the file growing with silence.
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const auto levels = ofType(recording->jsonLines(), "level");
  ASSERT_GE(levels.size(), 20u);
  // (with both sources gone the mix pads them once they are 1 s behind the clock)
  EXPECT_GT(levels.back()["frames"].get<int64_t>(), 48000 * 2 - 48000);
  recording->send("stop\n");
  ASSERT_EQ(recording->wait(10000), 0) << "stop after the server died must not hang";
  const auto stopped = recording->waitForType("record-stopped", 1000);
  ASSERT_TRUE(stopped.has_value());
  expectValidFile(out, *stopped);
}

TEST(RecordFaults, HelperKilledAfterSixSecondsLeavesAFileReadableToItsLastRewrite) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string out = server.file("killed-helper.wav");
  auto recording = startRecording(server, {"--out", out});
  std::this_thread::sleep_for(std::chrono::milliseconds(6000));
  recording->signal(SIGKILL);
  EXPECT_EQ(recording->wait(5000), -1);
  const Header header = readHeader(out);
  // Rewritten at the 50th level tick, 5 s after the start: it claims what the microphone had
  // delivered by then, 5 s less the capture's latency (a 10 ms fragment, more on a busy
  // machine), and less than the 6 s that ran.
  EXPECT_GE(header.dataBytes, 96000u * 49 / 10);
  EXPECT_LE(header.dataBytes, 96000u * 51 / 10);
  EXPECT_EQ(header.riffBytes, header.dataBytes + 36);
  EXPECT_GE(std::filesystem::file_size(out), header.dataBytes + 44);
}

TEST(RecordFaults, FullDiskGivesWriteWarningsAndAValidFile) {
  SoundServer server;
  ASSERT_TRUE(server.started());
  const std::string disk = server.file("small-disk");
  std::filesystem::create_directories(disk);
  // 64 KiB pages: about 2.7 s of recording fits.
  ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=256k"), 0)
      << "mounting a small tmpfs needs root: " << std::strerror(errno);
  struct Unmount {
    std::string path;
    ~Unmount() { umount2(path.c_str(), MNT_DETACH); }
  } unmount{disk};
  const std::string out = disk + "/full.wav";
  auto recording = startRecording(server, {"--out", out});
  ASSERT_TRUE(recording->waitFor(
      [](const json& l) {
        return l.value("type", "") == "record-warning" &&
               l.value("message", "").rfind("a write to the recording failed: ", 0) == 0;
      },
      8000));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  recording->send("stop\n");
  ASSERT_EQ(recording->wait(10000), 0);
  const auto stopped = recording->waitForType("record-stopped", 1000);
  ASSERT_TRUE(stopped.has_value());
  const auto warnings = ofType(recording->jsonLines(), "record-warning");
  ASSERT_GE(warnings.size(), 2u);
  EXPECT_EQ(warnings[0]["message"], "a write to the recording failed: No space left on device");
  expectValidFile(out, *stopped);
  EXPECT_GT((*stopped)["frames"].get<int64_t>(), 48000 * 2);
  // The levels keep their counting: frames stop growing once the disk is full.
  const auto levels = ofType(recording->jsonLines(), "level");
  ASSERT_GE(levels.size(), 2u);
  EXPECT_EQ(levels.back()["frames"], (*stopped)["frames"]);
}

}  // namespace
