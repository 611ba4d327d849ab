// A sound server that accepts the connection and then never answers: every job that talks to
// it gives up after its time-out with its own message, instead of hanging.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "run_helper.h"
#include "silent_sound_server.h"

namespace {

// Options that lead the helper to `server`, with room for its own time-outs.
RunOptions silentOptions(const SilentSoundServer& server) {
  RunOptions options;
  options.env = {{"PULSE_SERVER", server.pulseServer()}};
  options.timeoutMs = 60000;
  return options;
}

TEST(SilentSoundServer, DevicesGivesUpWithTheNoServerMessage) {
  SilentSoundServer server;
  ASSERT_TRUE(server.ok());
  auto run = runHelper({"record", "devices"}, silentOptions(server));
  ASSERT_FALSE(run.timedOut) << "the helper waited for the silent server";
  expectFailureDocument(run,
                        "No sound server is running, so no input device can be listed. Start "
                        "PulseAudio or PipeWire (with pipewire-pulse), then try again.");
}

TEST(SilentSoundServer, PermissionsSaysDenied) {
  SilentSoundServer server;
  ASSERT_TRUE(server.ok());
  auto run = runHelper({"record", "permissions"}, silentOptions(server));
  ASSERT_FALSE(run.timedOut) << "the helper waited for the silent server";
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "{\"type\":\"record-permissions\",\"microphone\":\"denied\",\"screenRecording\":"
            "false}\n");
}

TEST(SilentSoundServer, RecordStartFailsWithTheNoServerMessage) {
  SilentSoundServer server;
  ASSERT_TRUE(server.ok());
  const std::string out = std::filesystem::temp_directory_path() / "tallowbrook-silent.wav";
  RunOptions options = silentOptions(server);
  options.input = "stop\n";
  auto run = runHelper({"record", "start", "--out", out, "--input", "mic"}, options);
  std::filesystem::remove(out);
  ASSERT_FALSE(run.timedOut) << "the helper waited for the silent server";
  expectFailureDocument(run,
                        "No sound server is running, so nothing can be recorded. Start "
                        "PulseAudio or PipeWire (with pipewire-pulse), then try again.");
}

}  // namespace
