#include "audio/wav_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
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
#include "base/error.h"
#include "fake_wav_file.h"
#include "stdout_capture.h"

namespace tallowbrook {
namespace {

using audio_test::le16;
using audio_test::le32;
using audio_test::readFile;
using audio_test::samplesFrom;
using audio_test::TempDir;

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
  } catch (const tallowbrook::Error& error) {
    EXPECT_EQ(error.message(), "could not create " + missing);
  }
  try {
    WavWriter writer(dir.path(), 48000, 1);  // a folder is never replaced
    FAIL() << "created " << dir.path();
  } catch (const tallowbrook::Error& error) {
    EXPECT_EQ(error.message(), "could not create " + dir.path());
  }
}

TEST(WavWriter, AFailedFirstHeaderFailsTheConstructorWithTheSystemError) {
  auto disk = std::make_shared<audio_test::FakeDisk>();
  try {
    WavWriter writer(std::make_unique<audio_test::FakeWavFile>(disk, 10), "tiny.wav", 48000, 1);
    FAIL() << "the constructor did not throw";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOSPC);
  }
  EXPECT_TRUE(disk->closed);
}

TEST(WavWriter, AFailedWriteIsReportedKeepsFramesAndLaterAppendsTryAgain) {
  auto disk = std::make_shared<audio_test::FakeDisk>();
  const std::vector<int16_t> samples = audio_test::sine(500, 440, 48000);
  std::vector<std::string> reasons;
  {
    StdoutCapture capture;
    WavWriter writer(
        std::make_unique<audio_test::FakeWavFile>(disk, 44 + 1000), "full.wav", 48000, 1,
        [&](const std::string& reason) {
          // Called with the writer's lock released: the writer can be asked.
          reasons.push_back(reason + " at " + std::to_string(writer.frames(writer.hold())));
        });
    writer.append(std::span(samples).first(400));  // 800 bytes: fits
    EXPECT_EQ(writer.frames(writer.hold()), 400);
    writer.append(std::span(samples).subspan(100, 400));  // 800 more: only 200 fit
    EXPECT_EQ(writer.frames(writer.hold()), 400);
    writer.append(std::span(samples).subspan(400, 100));  // 200 bytes: fits again
    EXPECT_EQ(writer.frames(writer.hold()), 500);
    writer.finish();
    EXPECT_EQ(capture.text(), "") << "the writer itself prints nothing";
  }
  EXPECT_EQ(reasons, std::vector<std::string>{"No space left on device at 400"});
  // The partly written block was dropped: the data are the two good blocks, back to back.
  const std::string bytes = disk->read();
  ASSERT_EQ(bytes.size(), 1044u);
  EXPECT_EQ(le32(bytes, 4), 1036u);
  EXPECT_EQ(le32(bytes, 40), 1000u);
  std::vector<int16_t> expected(samples.begin(), samples.begin() + 400);
  expected.insert(expected.end(), samples.begin() + 400, samples.end());
  EXPECT_EQ(samplesFrom(bytes, 44), expected);
  EXPECT_EQ(disk->syncs, 1);
  EXPECT_TRUE(disk->closed);
}

TEST(WavWriter, BytesOfABlockThatFailedPartWayAreCutOffAtFinish) {
  // The last append fails part-way and nothing follows it: finish cuts the file back to the
  // data written in full, so the header and the file length agree.
  auto disk = std::make_shared<audio_test::FakeDisk>();
  const std::vector<int16_t> samples(300, 7);
  int reports = 0;
  WavWriter writer(std::make_unique<audio_test::FakeWavFile>(disk, 44 + 500), "full.wav", 48000, 1,
                   [&](const std::string&) { ++reports; });
  writer.append(std::span(samples).first(200));  // 400 bytes
  writer.append(std::span(samples).first(100));  // 200 more: 100 fit
  writer.finish();
  EXPECT_EQ(reports, 1);
  const std::string bytes = disk->read();
  EXPECT_EQ(bytes.size(), 444u);
  EXPECT_EQ(le32(bytes, 40), 400u);
}

TEST(WavWriter, WithoutAReporterAFailedWriteIsDroppedQuietly) {
  auto disk = std::make_shared<audio_test::FakeDisk>();
  const std::vector<int16_t> samples(100, 1);
  StdoutCapture capture;
  WavWriter writer(std::make_unique<audio_test::FakeWavFile>(disk, 44 + 100), "full.wav", 48000, 1);
  writer.append(samples);
  EXPECT_EQ(writer.frames(writer.hold()), 0);
  writer.finish();
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(le32(disk->read(), 40), 0u);
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
