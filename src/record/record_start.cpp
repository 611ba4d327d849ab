#include "record/record_start.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

#include "cli/fail.h"
#include "cli/out.h"
#include "record/record_error.h"

namespace tallowbrook::Record {
namespace {

std::string trimmed(const std::string& line) {
  // Horizontal space only: line breaks are not trimmed.
  const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; };
  size_t begin = 0, end = line.size();
  while (begin < end && isSpace(line[begin])) ++begin;
  while (end > begin && isSpace(line[end - 1])) --end;
  return line.substr(begin, end - begin);
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
