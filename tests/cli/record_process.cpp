#include "record_process.h"

#include <cstdlib>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <sstream>

#include <gtest/gtest.h>

#include "run_helper.h"

extern char** environ;

namespace record_cli {

LiveProcess::LiveProcess(const std::vector<std::string>& argv, const Env& env) {
  std::map<std::string, std::string> vars;
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    const size_t eq = text.find('=');
    if (eq != std::string::npos) vars[text.substr(0, eq)] = text.substr(eq + 1);
  }
  for (const auto& [key, value] : env) vars[key] = value;
  std::vector<std::string> envText;
  for (const auto& [key, value] : vars) envText.push_back(key + "=" + value);
  std::vector<char*> envp, args;
  for (auto& text : envText) envp.push_back(text.data());
  envp.push_back(nullptr);
  std::vector<std::string> argvCopy = argv;
  for (auto& text : argvCopy) args.push_back(text.data());
  args.push_back(nullptr);

  int inPipe[2], outPipe[2], errPipe[2];
  if (pipe2(inPipe, O_CLOEXEC) != 0 || pipe2(outPipe, O_CLOEXEC) != 0 ||
      pipe2(errPipe, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe failed";
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  started_ = std::chrono::steady_clock::now();
  if (posix_spawnp(&pid_, args[0], &actions, &attributes, args.data(), envp.data()) != 0) {
    ADD_FAILURE() << "could not start " << argv[0];
    pid_ = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(inPipe[0]);
  close(outPipe[1]);
  close(errPipe[1]);
  in_ = inPipe[1];
  outReader_ = std::thread([this, fd = outPipe[0]] { readOut(fd); });
  errReader_ = std::thread([this, fd = errPipe[0]] { readErr(fd); });
}

LiveProcess::~LiveProcess() {
  if (pid_ > 0 && !status_) {
    kill(pid_, SIGKILL);
    wait(10000);
  }
  closeInput();
  if (outReader_.joinable()) outReader_.join();
  if (errReader_.joinable()) errReader_.join();
}

void LiveProcess::readOut(int fd) {
  std::string pending;
  char buffer[4096];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) {
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started_)
            .count();
    pending.append(buffer, size_t(n));
    size_t end;
    std::lock_guard<std::mutex> held(lock_);
    while ((end = pending.find('\n')) != std::string::npos) {
      lines_.push_back({ms, pending.substr(0, end)});
      pending.erase(0, end + 1);
    }
    arrived_.notify_all();
  }
  close(fd);
  std::lock_guard<std::mutex> held(lock_);
  if (!pending.empty()) lines_.push_back({0, pending});
  outClosed_ = true;
  arrived_.notify_all();
}

void LiveProcess::readErr(int fd) {
  char buffer[4096];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) {
    std::lock_guard<std::mutex> held(lock_);
    err_.append(buffer, size_t(n));
  }
  close(fd);
}

void LiveProcess::send(const std::string& text) {
  if (in_ < 0) return;
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(in_, text.data() + done, text.size() - done);
    if (n <= 0) return;
    done += size_t(n);
  }
}

void LiveProcess::closeInput() {
  if (in_ >= 0) close(in_);
  in_ = -1;
}

void LiveProcess::signal(int number) {
  if (pid_ > 0 && !status_) kill(pid_, number);
}

std::optional<int> LiveProcess::wait(int timeoutMs) {
  if (status_) return status_;
  if (pid_ <= 0) return std::nullopt;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    int raw = 0;
    const pid_t done = waitpid(pid_, &raw, WNOHANG);
    if (done == pid_) {
      status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
      // Let the reader take the last lines.
      std::unique_lock<std::mutex> held(lock_);
      arrived_.wait_for(held, std::chrono::seconds(5), [this] { return outClosed_; });
      return status_;
    }
    if (std::chrono::steady_clock::now() > deadline) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

std::optional<nlohmann::json> LiveProcess::waitFor(
    const std::function<bool(const nlohmann::json&)>& match, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  std::unique_lock<std::mutex> held(lock_);
  size_t seen = 0;
  for (;;) {
    for (; seen < lines_.size(); ++seen) {
      const auto parsed = nlohmann::json::parse(lines_[seen].text, nullptr, false);
      if (!parsed.is_discarded() && match(parsed)) return parsed;
    }
    if (outClosed_) return std::nullopt;
    if (arrived_.wait_until(held, deadline) == std::cv_status::timeout && seen == lines_.size()) {
      return std::nullopt;
    }
  }
}

std::optional<nlohmann::json> LiveProcess::waitForType(const std::string& type, int timeoutMs) {
  return waitFor([&type](const nlohmann::json& line) { return line.value("type", "") == type; },
                 timeoutMs);
}

std::vector<TimedLine> LiveProcess::lines() {
  std::lock_guard<std::mutex> held(lock_);
  return lines_;
}

std::vector<nlohmann::json> LiveProcess::jsonLines() {
  std::vector<nlohmann::json> parsed;
  for (const TimedLine& line : lines()) {
    auto json = nlohmann::json::parse(line.text, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << "not JSON: " << line.text;
    if (!json.is_discarded()) parsed.push_back(json);
  }
  return parsed;
}

std::string LiveProcess::err() {
  std::lock_guard<std::mutex> held(lock_);
  return err_;
}

std::vector<std::string> helper(std::vector<std::string> args) {
  args.insert(args.begin(), HELPER_PATH);
  return args;
}

#ifdef RECORD_TSAN_OPTIONS
// Under ThreadSanitizer the helpers these tests start need its suppressions (libpulse's
// locking is invisible to it); a value given by the test's own environment wins.
[[maybe_unused]] const bool tsanOptionsSet = setenv("TSAN_OPTIONS", RECORD_TSAN_OPTIONS, 0) == 0;
#endif

const char* soundServerScript() {
  const char* kind = std::getenv("TALLOWBROOK_TEST_SOUND_SERVER");
  return kind && std::string(kind) == "pipewire" ? TEST_PIPEWIRE_SERVER : TEST_SOUND_SERVER;
}

bool onPipeWire() {
  return std::string(soundServerScript()) == TEST_PIPEWIRE_SERVER;
}

SoundServer::SoundServer() {
  char name[] = "/tmp/tallowbrook-sound-XXXXXX";
  if (!mkdtemp(name)) {
    ADD_FAILURE() << "mkdtemp failed";
    return;
  }
  dir_ = name;
  const HelperRun start = runProgram({soundServerScript(), "start", dir_});
  if (start.status != 0) {
    ADD_FAILURE() << "the test sound server did not start: " << start.err;
    return;
  }
  // export HOME=... XDG_RUNTIME_DIR=... PULSE_SERVER=...
  std::istringstream words(start.out);
  std::string word;
  while (words >> word) {
    const size_t eq = word.find('=');
    if (eq != std::string::npos) env_.emplace_back(word.substr(0, eq), word.substr(eq + 1));
  }
  started_ = env_.size() == 3;
  EXPECT_TRUE(started_) << start.out;
}

SoundServer::~SoundServer() {
  if (dir_.empty()) return;
  RunOptions options;
  options.env = env_;
  runProgram({soundServerScript(), "stop", dir_}, options);
  // The daemon may take a moment to go; make sure none is left behind.
  const pid_t pid = serverPid();
  for (int i = 0; pid > 0 && i < 100 && kill(pid, 0) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (pid > 0 && kill(pid, 0) == 0) kill(pid, SIGKILL);
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

std::string SoundServer::run(const std::vector<std::string>& argv, int* status) {
  RunOptions options;
  options.env = env_;
  const HelperRun run = runProgram(argv, options);
  if (status) *status = run.status;
  return run.out;
}

int SoundServer::moduleIndex(const std::string& name, const std::string& needle) {
  std::istringstream lines(run({"pactl", "list", "short", "modules"}));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.find(name) != std::string::npos && line.find(needle) != std::string::npos) {
      return std::stoi(line);
    }
  }
  return -1;
}

pid_t SoundServer::serverPid() {
  if (onPipeWire()) {
    std::ifstream in(dir_ + "/pipewire-pulse.pid");
    pid_t pid = -1;
    if (in >> pid) return pid;
    return -1;
  }
  for (const auto& [key, value] : env_) {
    if (key != "XDG_RUNTIME_DIR") continue;
    std::ifstream in(value + "/pulse/pid");
    pid_t pid = -1;
    if (in >> pid) return pid;
  }
  return -1;
}

void writeTone(const std::string& path, double frequency, double seconds, int rate, int channels,
               double amplitude) {
  const auto frames = size_t(seconds * rate);
  std::vector<int16_t> samples;
  samples.reserve(frames * size_t(channels));
  for (size_t i = 0; i < frames; ++i) {
    const auto value = int16_t(std::lround(
        amplitude * 32767.0 * std::sin(2 * std::numbers::pi * frequency * double(i) / rate)));
    for (int c = 0; c < channels; ++c) samples.push_back(value);
  }
  const uint32_t dataBytes = uint32_t(samples.size() * 2);
  std::ofstream out(path, std::ios::binary);
  auto put32 = [&out](uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  auto put16 = [&out](uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  out.write("RIFF", 4);
  put32(36 + dataBytes);
  out.write("WAVEfmt ", 8);
  put32(16);
  put16(1);
  put16(uint16_t(channels));
  put32(uint32_t(rate));
  put32(uint32_t(rate * channels * 2));
  put16(uint16_t(channels * 2));
  put16(16);
  out.write("data", 4);
  put32(dataBytes);
  out.write(reinterpret_cast<const char*>(samples.data()), std::streamsize(dataBytes));
}

std::vector<int16_t> wavSamples(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  std::vector<int16_t> samples;
  for (size_t i = 44; i + 1 < bytes.size(); i += 2) {
    samples.push_back(int16_t(uint16_t(uint8_t(bytes[i])) | uint16_t(uint8_t(bytes[i + 1])) << 8));
  }
  return samples;
}

std::vector<int16_t> audible(const std::vector<int16_t>& samples, int threshold) {
  size_t first = samples.size(), last = 0;
  for (size_t i = 0; i < samples.size(); ++i) {
    if (std::abs(int(samples[i])) > threshold) {
      first = std::min(first, i);
      last = i;
    }
  }
  if (first >= samples.size()) return {};
  return std::vector<int16_t>(samples.begin() + long(first), samples.begin() + long(last) + 1);
}

double zeroCrossingFrequency(const std::vector<int16_t>& samples) {
  if (samples.size() < 2) return 0;
  size_t crossings = 0;
  for (size_t i = 1; i < samples.size(); ++i) {
    if ((samples[i - 1] < 0) != (samples[i] < 0)) ++crossings;
  }
  return double(crossings) / 2.0 / (double(samples.size()) / 48000.0);
}

double rms(const std::vector<int16_t>& samples) {
  if (samples.empty()) return 0;
  double sum = 0;
  for (int16_t s : samples) sum += double(s) / 32768.0 * double(s) / 32768.0;
  return std::sqrt(sum / double(samples.size()));
}

double goertzel(const std::vector<int16_t>& samples, double frequency) {
  const double coefficient = 2 * std::cos(2 * std::numbers::pi * frequency / 48000.0);
  double s1 = 0, s2 = 0;
  for (int16_t sample : samples) {
    const double s0 = double(sample) / 32768.0 + coefficient * s1 - s2;
    s2 = s1;
    s1 = s0;
  }
  const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
  const double n = double(samples.size());
  return n > 0 ? power / (n * n) : 0;
}

std::unique_ptr<LiveProcess> startRecording(SoundServer& server, std::vector<std::string> args,
                                            Env extra) {
  args.insert(args.begin(), {"record", "start"});
  Env env = server.env();
  env.insert(env.end(), extra.begin(), extra.end());
  auto process = std::make_unique<LiveProcess>(helper(args), env);
  EXPECT_TRUE(process->waitForType("record-started", 10000).has_value()) << process->err();
  return process;
}

nlohmann::json stopRecording(LiveProcess& process) {
  process.send("stop\n");
  EXPECT_EQ(process.wait(10000), 0);
  auto stopped = process.waitForType("record-stopped", 1000);
  EXPECT_TRUE(stopped.has_value());
  return stopped.value_or(nlohmann::json::object());
}

}  // namespace record_cli
