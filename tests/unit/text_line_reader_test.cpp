#include "text/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace tallowbrook::Text {
namespace {

// A file descriptor reading `bytes`.
int inputOf(const std::string& bytes) {
  FILE* file = std::tmpfile();
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fflush(file);
  int fd = dup(fileno(file));
  std::fclose(file);
  lseek(fd, 0, SEEK_SET);
  return fd;
}

std::vector<std::string> linesOf(const std::string& bytes) {
  int fd = inputOf(bytes);
  LineReader reader(fd);
  std::vector<std::string> lines;
  std::string_view line;
  while (reader.next(&line)) lines.emplace_back(line);
  close(fd);
  return lines;
}

using Lines = std::vector<std::string>;

TEST(LineReader, SplitsAtLineFeeds) {
  EXPECT_EQ(linesOf("a\nbb\n\nccc\n"), (Lines{"a", "bb", "", "ccc"}));
}

TEST(LineReader, TheLastLineNeedsNoEnding) {
  EXPECT_EQ(linesOf("a\nb"), (Lines{"a", "b"}));
  EXPECT_EQ(linesOf(""), Lines{});
  EXPECT_EQ(linesOf("\n"), Lines{""});
}

TEST(LineReader, ACarriageReturnBeforeTheLineFeedBelongsToTheEnding) {
  EXPECT_EQ(linesOf("a\r\nb\r\n"), (Lines{"a", "b"}));
  EXPECT_EQ(linesOf("a\rb\n\r\r\n"), (Lines{"a\rb", "\r"}));
}

TEST(LineReader, KeepsNulAndAnyOtherByte) {
  std::string bytes("a\0b\xff\n\0\n", 7);
  EXPECT_EQ(linesOf(bytes), (Lines{std::string("a\0b\xff", 4), std::string("\0", 1)}));
}

TEST(LineReader, ReadsLinesLongerThanItsChunk) {
  std::string huge(10 * 1024 * 1024 + 3, 'x');
  auto lines = linesOf("short\n" + huge + "\nafter\n" + huge);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "short");
  EXPECT_EQ(lines[1], huge);
  EXPECT_EQ(lines[2], "after");
  EXPECT_EQ(lines[3], huge);
}

TEST(LineReader, ManyShortLinesInOneRead) {
  std::string bytes;
  Lines expected;
  for (int i = 0; i < 20000; ++i) {
    expected.push_back(std::to_string(i));
    bytes += std::to_string(i) + "\n";
  }
  EXPECT_EQ(linesOf(bytes), expected);
}

TEST(LineReader, ReadsFromAPipeAsDataArrives) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  LineReader reader(fds[0]);
  std::string_view line;
  ASSERT_EQ(write(fds[1], "one\ntw", 6), 6);
  ASSERT_TRUE(reader.next(&line));
  EXPECT_EQ(line, "one");
  ASSERT_EQ(write(fds[1], "o\n", 2), 2);
  ASSERT_TRUE(reader.next(&line));
  EXPECT_EQ(line, "two");
  close(fds[1]);
  EXPECT_FALSE(reader.next(&line));
  close(fds[0]);
}

TEST(LineReader, WaitsOnANonBlockingDescriptorInsteadOfEnding) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  fcntl(fds[0], F_SETFL, O_NONBLOCK);
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(write(fds[1], "late\n", 5), 5);
    close(fds[1]);
  });
  LineReader reader(fds[0]);
  std::string_view line;
  ASSERT_TRUE(reader.next(&line));
  EXPECT_EQ(line, "late");
  EXPECT_FALSE(reader.next(&line));
  writer.join();
  close(fds[0]);
}

TEST(TrimBlanksAndTabs, TrimsOnlyBlanksAndTabs) {
  EXPECT_EQ(trimBlanksAndTabs(" \t {} \t "), "{}");
  EXPECT_EQ(trimBlanksAndTabs(" \t  "), "");
  EXPECT_EQ(trimBlanksAndTabs(""), "");
  EXPECT_EQ(trimBlanksAndTabs("\r{}\v\f"), "\r{}\v\f");
  EXPECT_EQ(trimBlanksAndTabs("a b"), "a b");
}

}  // namespace
}  // namespace tallowbrook::Text
