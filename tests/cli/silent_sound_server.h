// A sound server that accepts connections and then never answers, for tests of the jobs that
// must give up on such a server (or never talk to it) instead of hanging.
#pragma once

#include <string>

// A listening UNIX socket that nobody accepts from: connecting succeeds (the backlog takes it),
// then nothing is ever said. Removed with its folder on destruction.
class SilentSoundServer {
 public:
  SilentSoundServer();
  ~SilentSoundServer();
  SilentSoundServer(const SilentSoundServer&) = delete;
  SilentSoundServer& operator=(const SilentSoundServer&) = delete;

  // Whether the socket is listening.
  bool ok() const { return ok_; }
  // The value of PULSE_SERVER that leads a client to it.
  std::string pulseServer() const { return "unix:" + path_; }

 private:
  std::string dir_;
  std::string path_;
  int fd_ = -1;
  bool ok_ = false;
};
