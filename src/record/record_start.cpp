#include "record/record_start.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>

#include "cli/fail.h"
#include "cli/out.h"
#include "record/record_error.h"

namespace tallowbrook::Record {
namespace {

// The length of the horizontal white space character (tab, or a Unicode space separator in
// UTF-8) at the start of `text`, or 0. Line breaks are not white space here.
size_t spaceAt(std::string_view text) {
  static constexpr std::string_view kSpaces[] = {
      " ",      "\t",     "\u00a0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004",
      "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200a", "\u202f", "\u205f", "\u3000"};
  for (std::string_view space : kSpaces) {
    if (text.substr(0, space.size()) == space) return space.size();
  }
  return 0;
}

size_t spaceBefore(std::string_view text) {
  for (size_t length = 1; length <= 3 && length <= text.size(); ++length) {
    if (spaceAt(text.substr(text.size() - length)) == length) return length;
  }
  return 0;
}

std::string trimmed(const std::string& line) {
  std::string_view text = line;
  while (size_t length = spaceAt(text)) text.remove_prefix(length);
  while (size_t length = spaceBefore(text)) text.remove_suffix(length);
  return std::string(text);
}

}  // namespace

bool applyControlLine(RecordSession& session, const std::string& line) {
  const std::string command = trimmed(line);
  if (command == "pause") {
    session.pause();
  } else if (command == "resume") {
    session.resume();
  } else if (command == "stop") {
    return false;
  } else if (!command.empty()) {
    writeJsonLine(
        Json{{"type", "record-warning"}, {"message", "unknown control command: " + command}});
  }
  return true;
}

void start(const StartOptions& options, RecordPlatform& platform) {
  // The three stop signals are taken by a thread of ours (sigwait); every thread made from
  // here on inherits the blocked mask, so none of them is interrupted by these signals.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  // A reader that goes away must not kill the recording through SIGPIPE.
  signal(SIGPIPE, SIG_IGN);

  std::shared_ptr<RecordSession> session;
  try {
    session = RecordSession::create(options.out, options.input, platform);
    session->start(options.device);
  } catch (const RecordError& error) {
    fail(error.message);
  } catch (const std::exception& error) {
    fail(std::string("could not start recording: ") + error.what());
  }

  std::thread([session, stopSignals] {
    for (;;) {
      int received = 0;
      if (sigwait(&stopSignals, &received) == 0) session->stop();
    }
  }).detach();

  std::thread([session] {
    std::string line;
    while (std::getline(std::cin, line)) {
      if (!applyControlLine(*session, line)) break;
    }
    session->stop();
  }).detach();

  session->waitUntilCompleted();
  std::fflush(stdout);
  _exit(0);
}

}  // namespace tallowbrook::Record
