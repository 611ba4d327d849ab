#include "silent_sound_server.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

SilentSoundServer::SilentSoundServer() {
  char pattern[] = "/tmp/tallowbrook-silent-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return;
  dir_ = pattern;
  path_ = dir_ + "/native";
  fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
  ok_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        listen(fd_, 16) == 0;
}

SilentSoundServer::~SilentSoundServer() {
  if (fd_ >= 0) close(fd_);
  if (!dir_.empty()) std::filesystem::remove_all(dir_);
}
