#include "record/wav_writer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <system_error>

#include <gtest/gtest.h>

#include "audio_test_support.h"
#include "record/record_error.h"

namespace tallowbrook {
namespace {

using audio_test::le16;
using audio_test::le32;
using audio_test::readFile;
using audio_test::samplesFrom;
using audio_test::TempDir;

// Runs `body` in a forked child whose standard output goes to `stdoutPath`; returns the
// child's exit status (-1 if it did not exit normally).
int runInChild(const std::string& stdoutPath, const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid == 0) {
    int fd = ::open(stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || dup2(fd, STDOUT_FILENO) < 0) _exit(100);
    _exit(body());
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Caps the size of files this process may write, so writes past `bytes` fail with EFBIG
// instead of raising SIGXFSZ.
void limitFileSize(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit{bytes, bytes};
  setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(WavHeader, LaysOutEveryFieldLittleEndian) {
  const WavWriter::Header h = WavWriter::header(48000, 1, 96000);
  const std::string bytes(h.begin(), h.end());
  ASSERT_EQ(bytes.size(), 44u);
  EXPECT_EQ(bytes.substr(0, 4), "RIFF");
  EXPECT_EQ(le32(bytes, 4), 96036u);
  EXPECT_EQ(bytes.substr(8, 4), "WAVE");
  EXPECT_EQ(bytes.substr(12, 4), "fmt ");
  EXPECT_EQ(le32(bytes, 16), 16u);
  EXPECT_EQ(le16(bytes, 20), 1u);
  EXPECT_EQ(le16(bytes, 22), 1u);
  EXPECT_EQ(le32(bytes, 24), 48000u);
  EXPECT_EQ(le32(bytes, 28), 96000u);
  EXPECT_EQ(le16(bytes, 32), 2u);
  EXPECT_EQ(le16(bytes, 34), 16u);
  EXPECT_EQ(bytes.substr(36, 4), "data");
  EXPECT_EQ(le32(bytes, 40), 96000u);
}

TEST(WavHeader, StereoAtTheSpeechRate) {
  const WavWriter::Header h = WavWriter::header(22050, 2, 400);
  const std::string bytes(h.begin(), h.end());
  EXPECT_EQ(le16(bytes, 22), 2u);
  EXPECT_EQ(le32(bytes, 24), 22050u);
  EXPECT_EQ(le32(bytes, 28), 88200u);
  EXPECT_EQ(le16(bytes, 32), 4u);
  EXPECT_EQ(le32(bytes, 4), 436u);
}

TEST(WavHeader, WrapsSizesPastFourGibibytesInsteadOfClamping) {
  const int64_t dataBytes = 5'000'000'000;
  const WavWriter::Header h = WavWriter::header(48000, 1, dataBytes);
  const std::string bytes(h.begin(), h.end());
  EXPECT_EQ(le32(bytes, 40), uint32_t(dataBytes & 0xFFFFFFFF));
  EXPECT_EQ(le32(bytes, 40), 705032704u);
  EXPECT_EQ(le32(bytes, 4), uint32_t((dataBytes + 36) & 0xFFFFFFFF));

  // Just below the 32-bit limit the RIFF size already wraps: 0xFFFFFFF0 + 36 = 0x100000014.
  const WavWriter::Header edge = WavWriter::header(48000, 1, 0xFFFFFFF0);
  const std::string edgeBytes(edge.begin(), edge.end());
  EXPECT_EQ(le32(edgeBytes, 40), 0xFFFFFFF0u);
  EXPECT_EQ(le32(edgeBytes, 4), 0x14u);
}

TEST(WavHeader, KeepsTheLowBitsOfOversizedFields) {
  const WavWriter::Header h = WavWriter::header(5'000'000'000, 70000, 0);
  const std::string bytes(h.begin(), h.end());
  EXPECT_EQ(le16(bytes, 22), 70000u & 0xFFFF);
  EXPECT_EQ(le16(bytes, 32), 140000u & 0xFFFF);
  EXPECT_EQ(le32(bytes, 24), uint32_t(5'000'000'000 & 0xFFFFFFFF));
  EXPECT_EQ(le32(bytes, 28), uint32_t((int64_t{5'000'000'000} * 70000 * 2) & 0xFFFFFFFF));
}

TEST(WavHeaderDeathTest, SixtyFourBitOverflowIsAProgrammingError) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const int64_t max = std::numeric_limits<int64_t>::max();
  EXPECT_DEATH(WavWriter::header(48000, 1, max - 35), "");
  EXPECT_DEATH(WavWriter::header(48000, max / 2 + 1, 0), "");
  EXPECT_DEATH(WavWriter::header(max / 2, 2, 0), "");
  // The largest values that still fit are fine.
  WavWriter::header(48000, 1, max - 36);
}

TEST(WavWriter, NoSamplesGiveAFortyFourByteFile) {
  TempDir dir;
  const std::string path = dir.file("empty.wav");
  WavWriter writer(path, 48000, 1);
  writer.finish();
  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 44u);
  EXPECT_EQ(le32(bytes, 4), 36u);
  EXPECT_EQ(le32(bytes, 40), 0u);
}

TEST(WavWriter, OneSecondAtTheRecordingRate) {
  TempDir dir;
  const std::string path = dir.file("one-second.wav");
  const std::vector<int16_t> samples = audio_test::sine(48000, 440, 48000);
  WavWriter writer(path, 48000, 1);
  writer.append(std::span(samples).first(20000));
  writer.append(std::span(samples).subspan(20000));
  EXPECT_EQ(writer.frames(writer.hold()), 48000);
  writer.finish();

  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 96044u);
  EXPECT_EQ(le32(bytes, 4), 96036u);
  EXPECT_EQ(le32(bytes, 40), 96000u);
  EXPECT_EQ(le32(bytes, 28), 96000u);
  EXPECT_EQ(le16(bytes, 32), 2u);
  EXPECT_EQ(samplesFrom(bytes, 44), samples);
}

TEST(WavWriter, TheFileIsWrittenAtOnceWithAProvisionalHeader) {
  TempDir dir;
  const std::string path = dir.file("provisional.wav");
  WavWriter writer(path, 48000, 1);
  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 44u);
  EXPECT_EQ(le32(bytes, 40), 0u);
  EXPECT_EQ(writer.path(), path);
  EXPECT_EQ(writer.sampleRate(), 48000);
  EXPECT_EQ(writer.channels(), 1);
}

TEST(WavWriter, CreatesTheFileForItsOwnerOnly) {
  TempDir dir;
  const std::string path = dir.file("private.wav");
  const mode_t before = umask(0);  // even with a permissive umask
  {
    WavWriter writer(path, 48000, 1);
    writer.finish();
  }
  umask(before);
  struct stat info {};
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST(WavWriter, ReplacesAnExistingFile) {
  TempDir dir;
  const std::string path = dir.file("existing.wav");
  {
    std::ofstream old(path);
    old << std::string(5000, 'x');
  }
  chmod(path.c_str(), 0644);
  WavWriter writer(path, 48000, 1);
  writer.finish();
  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 44u);
  EXPECT_EQ(bytes.substr(0, 4), "RIFF");
  struct stat info {};
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST(WavWriter, ReplacesALinkOrAPipeRatherThanWritingThroughIt) {
  TempDir dir;
  const std::string target = dir.file("target.txt");
  {
    std::ofstream keep(target);
    keep << "keep me";
  }
  const std::string link = dir.file("link.wav");
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  WavWriter(link, 48000, 1).finish();
  EXPECT_EQ(readFile(target), "keep me");
  struct stat info {};
  ASSERT_EQ(lstat(link.c_str(), &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));

  // Opening a pipe for writing would wait for a reader forever.
  const std::string pipe = dir.file("pipe.wav");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  auto done = std::async(std::launch::async, [&] { WavWriter(pipe, 48000, 1).finish(); });
  ASSERT_EQ(done.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  done.get();
  EXPECT_EQ(readFile(pipe).size(), 44u);
}

TEST(WavWriter, ReportsAFileThatCannotBeCreated) {
  TempDir dir;
  const std::string missing = dir.file("no-such-folder/take.wav");
  try {
    WavWriter writer(missing, 48000, 1);
    FAIL() << "created " << missing;
  } catch (const RecordError& error) {
    EXPECT_EQ(error.message, "could not create " + missing);
  }
  try {
    WavWriter writer(dir.path(), 48000, 1);  // a folder is never replaced
    FAIL() << "created " << dir.path();
  } catch (const RecordError& error) {
    EXPECT_EQ(error.message, "could not create " + dir.path());
  }
}

TEST(WavWriter, AFailedFirstHeaderFailsTheConstructorWithTheSystemError) {
  TempDir dir;
  const std::string path = dir.file("tiny.wav");
  const int status = runInChild(dir.file("out.txt"), [&] {
    limitFileSize(10);
    try {
      WavWriter writer(path, 48000, 1);
    } catch (const std::system_error& error) {
      return error.code().value() == EFBIG ? 0 : 2;
    } catch (...) {
      return 3;
    }
    return 4;
  });
  EXPECT_EQ(status, 0);
}

TEST(WavWriter, AFailedWriteWarnsKeepsFramesAndLaterAppendsTryAgain) {
  TempDir dir;
  const std::string path = dir.file("full.wav");
  const std::string out = dir.file("out.txt");
  const std::vector<int16_t> samples = audio_test::sine(500, 440, 48000);
  const int status = runInChild(out, [&] {
    limitFileSize(44 + 1000);
    WavWriter writer(path, 48000, 1);
    writer.append(std::span(samples).first(400));  // 800 bytes: fits
    if (writer.frames(writer.hold()) != 400) return 2;
    writer.append(std::span(samples).subspan(100, 400));  // 800 more: only 200 fit
    if (writer.frames(writer.hold()) != 400) return 3;
    writer.append(std::span(samples).subspan(400, 100));  // 200 bytes: fits again
    if (writer.frames(writer.hold()) != 500) return 4;
    writer.finish();
    return 0;
  });
  ASSERT_EQ(status, 0);
  EXPECT_EQ(readFile(out),
            "{\"type\":\"record-warning\",\"message\":\"a write to the recording failed: File too "
            "large\"}\n");
  // The partly written block was dropped: the data are the two good blocks, back to back.
  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 1044u);
  EXPECT_EQ(le32(bytes, 40), 1000u);
  std::vector<int16_t> expected(samples.begin(), samples.begin() + 400);
  expected.insert(expected.end(), samples.begin() + 400, samples.end());
  EXPECT_EQ(samplesFrom(bytes, 44), expected);
}

TEST(WavWriter, AnEmptyAppendTakesNoLock) {
  TempDir dir;
  WavWriter writer(dir.file("a.wav"), 48000, 1);
  auto held = writer.hold();
  auto done = std::async(std::launch::async, [&] { writer.append({}); });
  const bool returned = done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  EXPECT_TRUE(returned) << "append of no samples waited for the writer's lock";
  EXPECT_EQ(writer.frames(held), 0);
  held.unlock();
  done.get();
  EXPECT_EQ(readFile(dir.file("a.wav")).size(), 44u);
}

TEST(WavWriter, AppendsAfterFinishAreDiscardedAndFinishIsIdempotent) {
  TempDir dir;
  const std::string path = dir.file("done.wav");
  const std::vector<int16_t> samples = audio_test::sine(1000, 440, 48000);
  WavWriter writer(path, 48000, 1);
  writer.append(samples);
  writer.finish();
  const std::string finished = readFile(path);
  writer.append(samples);
  writer.finish();
  {
    auto held = writer.hold();
    writer.writeHeaderLocked(held);
    EXPECT_EQ(writer.frames(held), 1000);
  }
  EXPECT_EQ(readFile(path), finished);
  EXPECT_EQ(finished.size(), 2044u);
}

TEST(WavWriter, AHeaderRewriteMidStreamKeepsAppendingAtTheEnd) {
  TempDir dir;
  const std::string path = dir.file("mid.wav");
  const std::vector<int16_t> samples = audio_test::sine(1500, 440, 48000);
  WavWriter writer(path, 48000, 1);
  writer.append(std::span(samples).first(1000));
  {
    auto held = writer.hold();
    writer.writeHeaderLocked(held);
  }
  std::string bytes = readFile(path);
  EXPECT_EQ(bytes.size(), 2044u);
  EXPECT_EQ(le32(bytes, 40), 2000u);
  EXPECT_EQ(le32(bytes, 4), 2036u);

  writer.append(std::span(samples).subspan(1000));
  bytes = readFile(path);
  EXPECT_EQ(bytes.size(), 3044u);
  EXPECT_EQ(le32(bytes, 40), 2000u);  // until the next rewrite
  EXPECT_EQ(samplesFrom(bytes, 44), samples);

  writer.finish();
  bytes = readFile(path);
  EXPECT_EQ(bytes.size(), 3044u);
  EXPECT_EQ(le32(bytes, 40), 3000u);
  EXPECT_EQ(samplesFrom(bytes, 44), samples);
}

TEST(WavWriter, AnOddSampleCountWithTwoChannelsCountsWholeFrames) {
  TempDir dir;
  WavWriter writer(dir.file("stereo.wav"), 48000, 2);
  const std::vector<int16_t> five{1, 2, 3, 4, 5};
  writer.append(five);
  EXPECT_EQ(writer.frames(writer.hold()), 2);
  writer.append(five);
  EXPECT_EQ(writer.frames(writer.hold()), 4);
  writer.finish();
  const std::string bytes = readFile(dir.file("stereo.wav"));
  EXPECT_EQ(le32(bytes, 40), 16u);        // frames x channels x 2
  EXPECT_EQ(bytes.size(), 44u + 10 * 2);  // every sample was written
}

TEST(WavWriter, DroppingAWriterWithoutFinishKeepsTheLastHeader) {
  TempDir dir;
  const std::string path = dir.file("dropped.wav");
  const std::vector<int16_t> samples = audio_test::sine(300, 440, 48000);
  {
    auto writer = std::make_shared<WavWriter>(path, 48000, 1);
    writer->append(std::span(samples).first(100));
    auto held = writer->hold();
    writer->writeHeaderLocked(held);
    held.unlock();
    writer->append(std::span(samples).subspan(100));
  }
  const std::string bytes = readFile(path);
  EXPECT_EQ(bytes.size(), 644u);
  EXPECT_EQ(le32(bytes, 40), 200u);
}

TEST(WavWriterDeathTest, HeaderRewriteNeedsTheWritersOwnLock) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TempDir dir;
  WavWriter writer(dir.file("locks.wav"), 48000, 1);
  std::mutex other;
  std::unique_lock<std::mutex> wrong(other);
  EXPECT_DEATH(writer.writeHeaderLocked(wrong), "");
  std::unique_lock<std::mutex> released = writer.hold();
  released.unlock();
  EXPECT_DEATH(writer.frames(released), "");
}

}  // namespace
}  // namespace tallowbrook
