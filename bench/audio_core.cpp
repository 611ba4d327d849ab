// Throughput of the recording building blocks: the format converter (44.1 kHz stereo float
// to 48 kHz mono 16-bit, as a sound server delivers it), the WAV writer's appends, the meter
// and the mixer. Prints one line per figure.
//   bench-audio-core <scratch folder> [seconds of audio per round, default 600]
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>
#include <vector>

#include "audio/meter.h"
#include "audio/mixer.h"
#include "audio/soxr_converter.h"
#include "audio/to_target.h"
#include "audio/wav_writer.h"

using namespace tallowbrook;

namespace {

double cpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

double wallSeconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

// Ten seconds of a speech-like mix of tones, interleaved stereo float at 44100 Hz.
std::vector<float> stereoSource() {
  const size_t frames = 441000;
  std::vector<float> out(frames * 2);
  for (size_t f = 0; f < frames; ++f) {
    const double t = double(f) / 44100;
    const double v = 0.3 * std::sin(2 * std::numbers::pi * 220 * t) +
                     0.2 * std::sin(2 * std::numbers::pi * 1375 * t) +
                     0.1 * std::sin(2 * std::numbers::pi * 5200 * t);
    out[2 * f] = float(v);
    out[2 * f + 1] = float(-v);
  }
  return out;
}

void benchConverter(double seconds) {
  const std::vector<float> source = stereoSource();
  const AudioFormat format{SampleType::float32, 44100, 2};
  const size_t frames = source.size() / 2, chunk = 4096;
  ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
  size_t framesIn = 0, samplesOut = 0;
  const double cpu0 = cpuSeconds(), wall0 = wallSeconds();
  while (double(framesIn) / 44100 < seconds) {
    for (size_t at = 0; at < frames; at += chunk) {
      const size_t n = std::min(chunk, frames - at);
      const auto* bytes = reinterpret_cast<const std::byte*>(source.data() + 2 * at);
      if (auto block = converter.convert(PcmBuffer{format, {bytes, n * 8}})) {
        samplesOut += block->size();
      }
      framesIn += n;
    }
  }
  const double cpu = cpuSeconds() - cpu0, wall = wallSeconds() - wall0;
  const double audio = double(framesIn) / 44100;
  std::printf(
      "converter  44.1 kHz stereo float -> 48 kHz mono s16, 4096-frame buffers: %.0f s of audio "
      "per CPU second (%.0f per wall second; %.0f s converted, %zu samples out; bar: 500)\n",
      audio / cpu, audio / wall, audio, samplesOut);
}

void benchWriter(const std::string& folder, double seconds) {
  const std::string path = folder + "/bench-audio-core.wav";
  const Samples block(2400, 1234);  // one 0.05-second mix tick
  const size_t blocks = size_t(seconds * 48000 / double(block.size()));
  const double cpu0 = cpuSeconds(), wall0 = wallSeconds();
  {
    WavWriter writer(path, 48000, 1);
    for (size_t i = 0; i < blocks; ++i) {
      writer.append(block);
      if (i % 100 == 99) {  // the header rewrite every 5 seconds
        auto held = writer.hold();
        writer.writeHeaderLocked(held);
      }
    }
    writer.finish();  // includes fsync
  }
  const double cpu = cpuSeconds() - cpu0, wall = wallSeconds() - wall0;
  const double bytes = double(blocks * block.size() * 2);
  const double audio = double(blocks * block.size()) / 48000;
  std::printf(
      "writer     2400-sample appends, header rewrite every 5 s, final fsync: %.0f MB/s, %.0f s of "
      "audio per wall second (%.0f per CPU second; %.0f s written)\n",
      bytes / wall / 1e6, audio / wall, audio / cpu, audio);
  unlink(path.c_str());
}

void benchMeterAndMixer(double seconds) {
  const Samples block(2400, 1234);
  const size_t blocks = size_t(seconds * 48000 / double(block.size()));
  Meter meter;
  Mixer mixer;
  size_t mixed = 0;
  const double cpu0 = cpuSeconds();
  for (size_t i = 0; i < blocks; ++i) {
    mixer.push(block, MixerQueue::mic);
    mixer.push(block, MixerQueue::system);
    const Samples out = mixer.drain(2400);
    meter.add(out);
    mixed += out.size();
    if (i % 2 == 1) meter.take();
  }
  const double cpu = cpuSeconds() - cpu0;
  std::printf("mix+meter  two 2400-sample pushes, drain, add: %.0f s of audio per CPU second\n",
              double(mixed) / 48000 / cpu);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench-audio-core <scratch folder> [seconds]\n");
    return 2;
  }
  const double seconds = argc > 2 ? std::atof(argv[2]) : 600;
  if (!(seconds > 0)) {
    std::fprintf(stderr, "bench-audio-core: seconds must be a positive number\n");
    return 2;
  }
  benchConverter(seconds);
  benchWriter(argv[1], seconds * 10);
  benchMeterAndMixer(seconds * 10);
  return 0;
}
