// Runs the built helper as the application does: arguments, standard input, environment;
// captures standard output, standard error and the exit status.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

struct HelperRun {
  std::string out;
  std::string err;
  int status = -1;  // exit status, or -1 when killed by a signal
  int signal = 0;   // the signal that ended it, if any
  bool timedOut = false;
};

struct RunOptions {
  std::string input;  // written to standard input, which is then closed
  std::vector<std::pair<std::string, std::string>> env;  // set (or, with empty value, kept empty)
  std::vector<std::string> unsetEnv;
  int timeoutMs = 30000;  // killed with SIGKILL after this long
};

// Runs the helper at HELPER_PATH with `args`.
HelperRun runHelper(const std::vector<std::string>& args, const RunOptions& options = {});

// Runs the helper with `args` and standard input fed without end by `yes` ("y" lines until the
// helper stops reading); options.input is not used.
HelperRun runHelperFedForever(const std::vector<std::string>& args, const RunOptions& options);

// Runs any program (argv[0] is looked up in PATH).
HelperRun runProgram(const std::vector<std::string>& argv, const RunOptions& options = {});

// Expects the run to have ended through the failure document: status 1, in time, nothing on
// standard error, and exactly one line, {"type":"error","message":message}.
void expectFailureDocument(const HelperRun& run, const std::string& message);

// Each line of `out` parsed as JSON; a line that is not JSON fails the calling test.
std::vector<nlohmann::json> jsonLines(const std::string& out);
