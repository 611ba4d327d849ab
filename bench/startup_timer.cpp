// Times whole program runs (fork, exec, exit) and prints median wall times and their ratio to
// a peer program's, all measured in the same run, interleaved so machine noise hits each alike.
//
//   bench-startup-timer REPS PEER -- NAME ARGV... -- NAME ARGV... ...
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace {

struct Command {
  std::string name;
  std::vector<std::string> argv;
  std::vector<double> millis;
};

double runOnce(const Command& command) {
  std::vector<char*> argv;
  for (const auto& word : command.argv) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  auto start = std::chrono::steady_clock::now();
  pid_t pid;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    std::fprintf(stderr, "cannot run %s\n", argv[0]);
    std::exit(2);
  }
  int status;
  waitpid(pid, &status, 0);
  auto end = std::chrono::steady_clock::now();
  posix_spawn_file_actions_destroy(&actions);
  return std::chrono::duration<double, std::milli>(end - start).count();
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s REPS PEER -- NAME ARGV... [-- NAME ARGV...]\n", argv[0]);
    return 2;
  }
  int reps = std::atoi(argv[1]);
  std::vector<Command> commands{{"peer", {argv[2]}, {}}};
  for (int i = 3; i < argc; ++i) {
    if (std::string(argv[i]) == "--" && i + 1 < argc) {
      commands.push_back({argv[++i], {}, {}});
    } else {
      commands.back().argv.push_back(argv[i]);
    }
  }
  for (auto& c : commands) runOnce(c);  // warm the page cache
  for (int r = 0; r < reps; ++r) {
    for (auto& c : commands) c.millis.push_back(runOnce(c));
  }
  double peer = median(commands[0].millis);
  std::printf("%-28s %10s %8s\n", "command", "median ms", "ratio");
  for (const auto& c : commands) {
    std::printf("%-28s %10.3f %8.2f\n", c.name.c_str(), median(c.millis), median(c.millis) / peer);
  }
  return 0;
}
