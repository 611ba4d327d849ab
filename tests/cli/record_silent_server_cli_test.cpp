// A sound server that accepts the connection and then never answers: every job that talks to
// it gives up after its time-out with its own message, instead of hanging.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "run_helper.h"

namespace {

// A listening UNIX socket that nobody accepts from: connecting succeeds (the backlog takes it),
// then nothing is ever said.
class SilentServer {
 public:
  SilentServer() {
    char pattern[] = "/tmp/tallowbrook-silent-XXXXXX";
    dir_ = mkdtemp(pattern);
    path_ = dir_ + "/native";
    fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    ok_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
          listen(fd_, 16) == 0;
  }
  ~SilentServer() {
    if (fd_ >= 0) close(fd_);
    std::filesystem::remove_all(dir_);
  }
  bool ok() const { return ok_; }
  RunOptions options() const {
    RunOptions options;
    options.env = {{"PULSE_SERVER", "unix:" + path_}};
    options.timeoutMs = 60000;
    return options;
  }

 private:
  std::string dir_;
  std::string path_;
  int fd_ = -1;
  bool ok_ = false;
};

TEST(SilentSoundServer, DevicesGivesUpWithTheNoServerMessage) {
  SilentServer server;
  ASSERT_TRUE(server.ok());
  auto run = runHelper({"record", "devices"}, server.options());
  ASSERT_FALSE(run.timedOut) << "the helper waited for the silent server";
  expectFailureDocument(run,
                        "No sound server is running, so no input device can be listed. Start "
                        "PulseAudio or PipeWire (with pipewire-pulse), then try again.");
}

TEST(SilentSoundServer, PermissionsSaysDenied) {
  SilentServer server;
  ASSERT_TRUE(server.ok());
  auto run = runHelper({"record", "permissions"}, server.options());
  ASSERT_FALSE(run.timedOut) << "the helper waited for the silent server";
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "{\"type\":\"record-permissions\",\"microphone\":\"denied\",\"screenRecording\":"
            "false}\n");
}

TEST(SilentSoundServer, RecordStartFailsWithTheNoServerMessage) {
  SilentServer server;
  ASSERT_TRUE(server.ok());
  const std::string out = std::filesystem::temp_directory_path() / "tallowbrook-silent.wav";
  RunOptions options = server.options();
  options.input = "stop\n";
  auto run = runHelper({"record", "start", "--out", out, "--input", "mic"}, options);
  std::filesystem::remove(out);
  ASSERT_FALSE(run.timedOut) << "the helper waited for the silent server";
  expectFailureDocument(run,
                        "No sound server is running, so nothing can be recorded. Start "
                        "PulseAudio or PipeWire (with pipewire-pulse), then try again.");
}

}  // namespace
