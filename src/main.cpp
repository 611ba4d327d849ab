#include <csignal>

#include "base/args.h"
#include "cli/dispatch.h"

int main(int argc, char** argv) {
  // A reader that went away must not kill the helper mid-job; writes report the closed pipe.
  std::signal(SIGPIPE, SIG_IGN);
  // A file-size limit must fail the write that passes it (EFBIG, reported like a full disk)
  // rather than kill the helper with the file half written.
  std::signal(SIGXFSZ, SIG_IGN);
  tallowbrook::setArgs(argc, argv);
  return tallowbrook::dispatch(tallowbrook::args());
}
