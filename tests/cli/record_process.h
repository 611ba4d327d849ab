// Helpers for the recording CLI tests: a program run in the background with standard input
// kept open and its output lines timed as they arrive, a private sound server per test, test
// tones and their analysis.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace record_cli {

using Env = std::vector<std::pair<std::string, std::string>>;

// A line of standard output and when it arrived (ms since the process started).
struct TimedLine {
  double ms;
  std::string text;
};

// A program running in the background. Standard input is a pipe kept open until
// `closeInput`; standard output is read line by line as it comes, standard error collected.
// The destructor kills (SIGKILL) and reaps a program still running.
class LiveProcess {
 public:
  LiveProcess(const std::vector<std::string>& argv, const Env& env);
  ~LiveProcess();
  LiveProcess(const LiveProcess&) = delete;
  LiveProcess& operator=(const LiveProcess&) = delete;

  void send(const std::string& text);
  void closeInput();
  void signal(int number);

  // The exit status once it ended within `timeoutMs` (-1 when a signal ended it), else nothing.
  std::optional<int> wait(int timeoutMs);

  // The first JSON line of standard output (from the start) for which `match` holds, waiting
  // up to `timeoutMs` for it.
  std::optional<nlohmann::json> waitFor(const std::function<bool(const nlohmann::json&)>& match,
                                        int timeoutMs);
  std::optional<nlohmann::json> waitForType(const std::string& type, int timeoutMs);

  std::vector<TimedLine> lines();
  // Every standard output line parsed (a line that is not JSON fails the calling test).
  std::vector<nlohmann::json> jsonLines();
  std::string err();
  pid_t pid() const { return pid_; }

 private:
  void readOut(int fd);
  void readErr(int fd);

  pid_t pid_ = -1;
  int in_ = -1;
  std::chrono::steady_clock::time_point started_;
  std::mutex lock_;
  std::condition_variable arrived_;
  std::vector<TimedLine> lines_;  // guarded by lock_
  std::string err_;               // guarded by lock_
  bool outClosed_ = false;        // guarded by lock_
  std::optional<int> status_;
  std::thread outReader_;
  std::thread errReader_;
};

// The helper under test.
std::vector<std::string> helper(std::vector<std::string> args);

// The test sound server's script: tests/tools/test-pipewire-server when the environment has
// TALLOWBROOK_TEST_SOUND_SERVER=pipewire, else ../shared/tools/test-sound-server (PulseAudio).
const char* soundServerScript();
bool onPipeWire();

// A private sound server (soundServerScript()) in a temporary folder of its own, stopped and
// removed with the object.
class SoundServer {
 public:
  SoundServer();
  ~SoundServer();
  SoundServer(const SoundServer&) = delete;
  SoundServer& operator=(const SoundServer&) = delete;

  bool started() const { return started_; }
  const Env& env() const { return env_; }
  const std::string& dir() const { return dir_; }
  std::string file(const std::string& name) const { return dir_ + "/" + name; }

  // Runs a command (pactl, paplay, ...) against this server; its standard output.
  std::string run(const std::vector<std::string>& argv, int* status = nullptr);
  // The index of the loaded module whose arguments contain `needle`, or -1.
  int moduleIndex(const std::string& name, const std::string& needle);
  // The process id of the server that clients talk to (pulseaudio, or pipewire-pulse), from
  // its pid file; -1 if unknown.
  pid_t serverPid();

 private:
  std::string dir_;
  Env env_;
  bool started_ = false;
};

// Starts `record start` with `args` against `server` (its environment plus `extra`) and waits
// for "record-started".
std::unique_ptr<LiveProcess> startRecording(SoundServer& server, std::vector<std::string> args,
                                            Env extra = {});

// Sends "stop" and expects an orderly end; returns the "record-stopped" line.
nlohmann::json stopRecording(LiveProcess& process);

// Writes a 16-bit WAV file of a sine tone: `seconds` long at `rate` Hz, `channels` channels
// (the same tone in each), peak `amplitude` of full scale.
void writeTone(const std::string& path, double frequency, double seconds, int rate, int channels,
               double amplitude);

// The samples of a 16-bit mono WAV file written by the helper (after its 44-byte header).
std::vector<int16_t> wavSamples(const std::string& path);

// The stretch of `samples` from the first to the last whose magnitude exceeds `threshold`.
std::vector<int16_t> audible(const std::vector<int16_t>& samples, int threshold);

// Frequency (Hz) from the zero crossings of `samples` at 48000 Hz.
double zeroCrossingFrequency(const std::vector<int16_t>& samples);
// Root mean square, as a fraction of full scale.
double rms(const std::vector<int16_t>& samples);
// The Goertzel power of `frequency` in `samples` at 48000 Hz, normalised by length.
double goertzel(const std::vector<int16_t>& samples, double frequency);

}  // namespace record_cli
