// The control lines of `record start`: what each asks for, and reading them in bounded memory.
#include "record/control_line.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using tallowbrook::Record::ControlCommand;
using tallowbrook::Record::ControlLineReader;
using tallowbrook::Record::kMaxControlLine;
using tallowbrook::Record::parseControlLine;

TEST(ControlLine, CommandsWithSpacesAround) {
  EXPECT_EQ(parseControlLine("pause").command, ControlCommand::pause);
  EXPECT_EQ(parseControlLine("  pause\t").command, ControlCommand::pause);
  EXPECT_EQ(parseControlLine("\u00a0resume\u3000").command, ControlCommand::resume);
  EXPECT_EQ(parseControlLine("\u2009stop\u202f").command, ControlCommand::stop);
  EXPECT_EQ(parseControlLine("").command, ControlCommand::none);
  EXPECT_EQ(parseControlLine(" \t \u3000").command, ControlCommand::none);
}

TEST(ControlLine, AnythingElseIsUnknownAndNamedTrimmed) {
  auto line = parseControlLine("  Pause now\t");
  EXPECT_EQ(line.command, ControlCommand::unknown);
  EXPECT_EQ(line.text, "Pause now");
  // Line breaks are not spaces: a carriage return stays part of the command.
  EXPECT_EQ(parseControlLine("stop\r").command, ControlCommand::unknown);
  EXPECT_EQ(parseControlLine("st op").command, ControlCommand::unknown);
  // A cut space separator is not a space.
  EXPECT_EQ(parseControlLine("stop\xE3\x80").command, ControlCommand::unknown);
}

// The lines a reader gives for `input` written to a pipe in pieces of `step` bytes.
std::vector<std::string> readAll(const std::string& input, size_t step) {
  int fds[2];
  EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0);
  std::thread writer([&] {
    for (size_t at = 0; at < input.size(); at += step) {
      std::string piece = input.substr(at, step);
      EXPECT_EQ(write(fds[1], piece.data(), piece.size()), ssize_t(piece.size()));
    }
    close(fds[1]);
  });
  ControlLineReader reader(fds[0]);
  std::vector<std::string> lines;
  for (std::string line; reader.next(&line);) lines.push_back(line);
  writer.join();
  close(fds[0]);
  return lines;
}

TEST(ControlLineReader, LinesInAnyPieces) {
  const std::string input = "pause\n\nresume\nstop";
  for (size_t step : {1, 2, 3, 5, 100}) {
    EXPECT_EQ(readAll(input, step), (std::vector<std::string>{"pause", "", "resume", "stop"}));
  }
  EXPECT_EQ(readAll("stop\n", 1), (std::vector<std::string>{"stop"}));
  EXPECT_EQ(readAll("", 1), (std::vector<std::string>{}));
}

TEST(ControlLineReader, EveryTruncationGivesThePrefixLines) {
  const std::string input = "pause\nresume\n\nstop\n";
  for (size_t length = 0; length <= input.size(); ++length) {
    std::string cut = input.substr(0, length);
    std::vector<std::string> expected;
    size_t start = 0;
    for (size_t end; (end = cut.find('\n', start)) != std::string::npos; start = end + 1) {
      expected.push_back(cut.substr(start, end - start));
    }
    if (start < cut.size()) expected.push_back(cut.substr(start));
    EXPECT_EQ(readAll(cut, 7), expected) << length;
  }
}

TEST(ControlLineReader, AnOverlongLineIsCutAndTheNextOneStillCounts) {
  std::string huge(3 * kMaxControlLine + 17, 'x');
  auto lines = readAll(huge + "\nstop\n", 1000);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], std::string(kMaxControlLine, 'x'));
  EXPECT_EQ(lines[1], "stop");
}

TEST(ControlLineReader, ALineThatNeverEndsKeepsMemoryBounded) {
  // A megabyte without a line break, then the end: one line, cut.
  auto lines = readAll(std::string(1 << 20, 'z'), 65536);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].size(), kMaxControlLine);
}

}  // namespace
