#include "record/record_start.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>

#include "base/fail.h"
#include "base/out.h"
#include "record/control_line.h"
#include "record/record_error.h"

namespace tallowbrook::Record {

bool applyControlLine(RecordSession& session, const std::string& line) {
  ControlLine control = parseControlLine(line);
  switch (control.command) {
    case ControlCommand::pause:
      session.pause();
      break;
    case ControlCommand::resume:
      session.resume();
      break;
    case ControlCommand::stop:
      return false;
    case ControlCommand::unknown:
      writeJsonLine(Json{{"type", "record-warning"},
                         {"message", "unknown control command: " + control.text}});
      break;
    case ControlCommand::none:
      break;
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
  } catch (const Error& error) {  // the recorder's own words, or the writer's
    fail(error.message());
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
    ControlLineReader reader(STDIN_FILENO);
    std::string line;
    while (reader.next(&line)) {
      if (!applyControlLine(*session, line)) break;
    }
    session->stop();
  }).detach();

  session->waitUntilCompleted();
  std::fflush(stdout);
  _exit(0);
}

}  // namespace tallowbrook::Record
