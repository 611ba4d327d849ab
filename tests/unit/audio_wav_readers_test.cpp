// Files the writer produces, read back by other programs: Python's wave module, sndfile-info
// (libsndfile) and ffmpeg. Each reader must see exactly the format and samples written.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "audio/wav_writer.h"
#include "audio_test_support.h"
#include "run_helper.h"

namespace tallowbrook {
namespace {

using audio_test::readFile;
using audio_test::TempDir;

// What a reader should find in a file.
struct Expected {
  int rate = 48000;
  int channels = 1;
  std::vector<int16_t> samples;  // interleaved
};

std::string bytesOf(const std::vector<int16_t>& samples) {
  return std::string(reinterpret_cast<const char*>(samples.data()), samples.size() * 2);
}

std::string hex(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out.push_back(digits[c >> 4]);
    out.push_back(digits[c & 15]);
  }
  return out;
}

// The value after "<key> :" on the first line of `text` that has it, trimmed; empty if none.
std::string field(const std::string& text, const std::string& key) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string name = line.substr(0, colon);
    name.erase(0, name.find_first_not_of(' '));
    name.erase(name.find_last_not_of(' ') + 1);
    if (name != key) continue;
    std::string value = line.substr(colon + 1);
    value.erase(0, value.find_first_not_of(' '));
    return value;
  }
  return "";
}

const char kPythonRead[] =
    "import sys, wave\n"
    "w = wave.open(sys.argv[1], 'rb')\n"
    "frames = w.readframes(w.getnframes())\n"
    "print(w.getnchannels(), w.getsampwidth(), w.getframerate(), w.getnframes())\n"
    "print(frames.hex())\n";

// Whether Python's wave module opens the file and reads all of its frames.
bool pythonAccepts(const std::string& path) {
  return runProgram({"python3", "-c", kPythonRead, path}).status == 0;
}

// Python's wave module: empty when it reads `expected` exactly, otherwise what differed.
std::string pythonVerdict(const std::string& path, const Expected& expected) {
  HelperRun run = runProgram({"python3", "-c", kPythonRead, path});
  if (run.status != 0) return "python wave refused the file: " + run.err;
  std::istringstream out(run.out);
  std::string params, frames;
  std::getline(out, params);
  std::getline(out, frames);
  const std::string want = std::to_string(expected.channels) + " 2 " +
                           std::to_string(expected.rate) + " " +
                           std::to_string(expected.samples.size() / expected.channels);
  if (params != want) return "python wave read '" + params + "', expected '" + want + "'";
  if (frames != hex(bytesOf(expected.samples))) return "python wave read other samples";
  return "";
}

// Whether sndfile-info opens the file without calling its format broken.
bool sndfileAccepts(const std::string& path) {
  HelperRun run = runProgram({"sndfile-info", path});
  const std::string all = run.out + run.err;
  return run.status == 0 && all.find("Not able to open") == std::string::npos &&
         all.find("known to be broken") == std::string::npos &&
         all.find("detection failed") == std::string::npos;
}

// sndfile-info: empty when it finds a clean 16-bit PCM header describing `expected`.
std::string sndfileVerdict(const std::string& path, const Expected& expected) {
  if (!sndfileAccepts(path)) return "sndfile-info refused the file";
  HelperRun run = runProgram({"sndfile-info", path});
  const std::string& out = run.out;
  if (out.find("should be") != std::string::npos) return "sndfile-info found a wrong size:\n" + out;
  const size_t frames = expected.samples.size() / expected.channels;
  const std::vector<std::pair<std::string, std::string>> wanted{
      {"Format", "0x1 => WAVE_FORMAT_PCM"},
      {"Bit Width", "16"},
      {"Channels", std::to_string(expected.channels)},
      {"Sample Rate", std::to_string(expected.rate)},
      {"Block Align", std::to_string(expected.channels * 2)},
      {"Bytes/sec", std::to_string(expected.rate * expected.channels * 2)},
      {"data", std::to_string(frames * expected.channels * 2)},
      {"Frames", std::to_string(frames)},
  };
  for (const auto& [key, value] : wanted) {
    if (field(out, key) != value) {
      return "sndfile-info: " + key + " is '" + field(out, key) + "', expected '" + value + "'";
    }
  }
  return "";
}

const std::vector<std::string> kFfmpegDecode{"ffmpeg", "-nostdin", "-v", "error", "-i"};

// Whether ffmpeg decodes the whole file without an error.
bool ffmpegAccepts(const std::string& path) {
  std::vector<std::string> argv = kFfmpegDecode;
  argv.insert(argv.end(), {path, "-f", "s16le", "-"});
  return runProgram(argv).status == 0;
}

// ffmpeg: empty when it probes 16-bit PCM in `expected`'s format and decodes exactly its
// samples, with nothing on standard error.
std::string ffmpegVerdict(const std::string& path, const Expected& expected) {
  HelperRun probe = runProgram({"ffprobe", "-v", "error", "-show_entries",
                                "stream=codec_name,sample_rate,channels", "-of",
                                "default=noprint_wrappers=1", path});
  const std::string want = "codec_name=pcm_s16le\nsample_rate=" + std::to_string(expected.rate) +
                           "\nchannels=" + std::to_string(expected.channels) + "\n";
  if (probe.status != 0 || probe.out != want) {
    return "ffprobe found '" + probe.out + "' " + probe.err + ", expected '" + want + "'";
  }
  std::vector<std::string> argv = kFfmpegDecode;
  argv.insert(argv.end(), {path, "-f", "s16le", "-acodec", "pcm_s16le", "-"});
  HelperRun decode = runProgram(argv);
  if (decode.status != 0 || !decode.err.empty()) return "ffmpeg failed: " + decode.err;
  if (decode.out != bytesOf(expected.samples)) {
    return "ffmpeg decoded " + std::to_string(decode.out.size()) + " bytes of other samples";
  }
  return "";
}

void expectEveryReaderReads(const std::string& path, const Expected& expected) {
  EXPECT_EQ(pythonVerdict(path, expected), "");
  EXPECT_EQ(sndfileVerdict(path, expected), "");
  EXPECT_EQ(ffmpegVerdict(path, expected), "");
}

void expectEveryReaderObjects(const std::string& path, const Expected& expected) {
  EXPECT_NE(pythonVerdict(path, expected), "");
  EXPECT_NE(sndfileVerdict(path, expected), "");
  EXPECT_NE(ffmpegVerdict(path, expected), "");
}

TEST(WavReaders, ReadARecording) {
  TempDir dir;
  const std::string path = dir.file("take.wav");
  Expected expected{48000, 1, audio_test::sine(72000, 440, 48000, 0.9)};
  WavWriter writer(path, 48000, 1);
  for (size_t at = 0; at < expected.samples.size(); at += 2400) {
    writer.append(std::span(expected.samples).subspan(at, 2400));
  }
  writer.finish();
  expectEveryReaderReads(path, expected);
}

TEST(WavReaders, ReadAnEmptyRecording) {
  TempDir dir;
  const std::string path = dir.file("empty.wav");
  WavWriter(path, 48000, 1).finish();
  expectEveryReaderReads(path, Expected{48000, 1, {}});
}

TEST(WavReaders, ReadSpeechAtTheSynthesiserRateAndStereo) {
  TempDir dir;
  Expected speech{22050, 1, audio_test::sine(22050, 300, 22050)};
  WavWriter mono(dir.file("speech.wav"), 22050, 1);
  mono.append(speech.samples);
  mono.finish();
  expectEveryReaderReads(dir.file("speech.wav"), speech);

  Expected stereo{44100, 2, audio_test::sine(44100 * 2, 500, 44100)};
  WavWriter two(dir.file("stereo.wav"), 44100, 2);
  two.append(stereo.samples);
  two.finish();
  expectEveryReaderReads(dir.file("stereo.wav"), stereo);
}

TEST(WavReaders, AnUnfinishedFileReadsUpToItsLastHeaderRewrite) {
  TempDir dir;
  const std::string path = dir.file("open.wav");
  const std::vector<int16_t> samples = audio_test::sine(48000 + 12000, 440, 48000);
  WavWriter writer(path, 48000, 1);
  writer.append(std::span(samples).first(48000));
  {
    auto held = writer.hold();
    writer.writeHeaderLocked(held);
  }
  writer.append(std::span(samples).subspan(48000));
  EXPECT_EQ(readFile(path).size(), 44u + 2 * samples.size());
  expectEveryReaderReads(path, Expected{48000, 1, {samples.begin(), samples.begin() + 48000}});
}

TEST(WavReaders, AWriterKilledBeforeFinishLeavesAFileReadableUpToItsLastRewrite) {
  TempDir dir;
  const std::string path = dir.file("killed.wav");
  const std::vector<int16_t> samples = audio_test::sine(96000 + 24000, 440, 48000);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    close(ready[0]);
    WavWriter writer(path, 48000, 1);
    writer.append(std::span(samples).first(96000));
    {
      auto held = writer.hold();
      writer.writeHeaderLocked(held);
    }
    writer.append(std::span(samples).subspan(96000));
    (void)!write(ready[1], "r", 1);
    for (;;) pause();  // killed here, with the writer still open
  }
  close(ready[1]);
  char signal = 0;
  ASSERT_EQ(read(ready[0], &signal, 1), 1);
  close(ready[0]);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);

  // Every sample is on disk; the header claims what was written at the rewrite.
  EXPECT_EQ(readFile(path).size(), 44u + 2 * samples.size());
  expectEveryReaderReads(path, Expected{48000, 1, {samples.begin(), samples.begin() + 96000}});
}

// Copies `from` to `to` with `bytes` put at `offset`.
void corruptCopy(const std::string& from, const std::string& to, size_t offset,
                 const std::string& bytes) {
  std::string data = readFile(from);
  data.replace(offset, bytes.size(), bytes);
  std::ofstream(to, std::ios::binary) << data;
}

TEST(WavReaders, ObjectToAWrongHeader) {
  TempDir dir;
  const std::string good = dir.file("good.wav");
  Expected expected{48000, 1, audio_test::sine(4800, 440, 48000)};
  WavWriter writer(good, 48000, 1);
  writer.append(expected.samples);
  writer.finish();
  expectEveryReaderReads(good, expected);

  corruptCopy(good, dir.file("tag.wav"), 12, "fmx ");
  expectEveryReaderObjects(dir.file("tag.wav"), expected);
  corruptCopy(good, dir.file("rate.wav"), 24, std::string("\x44\xac\0\0", 4));  // 44100
  expectEveryReaderObjects(dir.file("rate.wav"), expected);
  corruptCopy(good, dir.file("channels.wav"), 22, std::string("\2\0", 2));
  expectEveryReaderObjects(dir.file("channels.wav"), expected);
  corruptCopy(good, dir.file("size.wav"), 40, std::string("\x40\x25\0\0", 4));  // 9536 bytes
  expectEveryReaderObjects(dir.file("size.wav"), expected);
}

// The acceptance tests above agree with the judgement of the same programs recorded for a
// corpus of third-party WAV files (odd headers, fuzzed crashes).
TEST(WavReaders, JudgeTheCorpusAsRecorded) {
  const std::string corpus = WAV_CORPUS_DIR;
  std::ifstream matrix(corpus + "/validator-matrix.tsv");
  ASSERT_TRUE(matrix) << "missing " << corpus << "/validator-matrix.tsv (shared corpora)";
  std::string header;
  std::getline(matrix, header);
  std::vector<std::string> columns;
  {
    std::istringstream cells(header);
    for (std::string cell; std::getline(cells, cell, '\t');) columns.push_back(cell);
  }
  auto column = [&](const std::string& name) {
    for (size_t i = 0; i < columns.size(); ++i) {
      if (columns[i] == name) return i;
    }
    ADD_FAILURE() << "no column " << name;
    return size_t(0);
  };
  const size_t python = column("python-wave"), sndfile = column("sndfile-info"),
               ffmpeg = column("ffmpeg-decode");
  int files = 0;
  for (std::string line; std::getline(matrix, line);) {
    std::vector<std::string> cells;
    std::istringstream row(line);
    for (std::string cell; std::getline(row, cell, '\t');) cells.push_back(cell);
    const std::string path = corpus + "/hound-testsamples/" + cells.at(0);
    ASSERT_TRUE(std::filesystem::exists(path)) << path;
    EXPECT_EQ(pythonAccepts(path), cells.at(python) == "ok") << cells[0];
    EXPECT_EQ(sndfileAccepts(path), cells.at(sndfile) == "ok") << cells[0];
    EXPECT_EQ(ffmpegAccepts(path), cells.at(ffmpeg) == "ok") << cells[0];
    ++files;
  }
  EXPECT_GE(files, 20);
}

}  // namespace
}  // namespace tallowbrook
