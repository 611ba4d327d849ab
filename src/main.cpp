#include <csignal>

#include "cli/args.h"
#include "cli/dispatch.h"

int main(int argc, char** argv) {
  // A reader that went away must not kill the helper mid-job; writes report the closed pipe.
  std::signal(SIGPIPE, SIG_IGN);
  tallowbrook::setArgs(argc, argv);
  return tallowbrook::dispatch(tallowbrook::args());
}
