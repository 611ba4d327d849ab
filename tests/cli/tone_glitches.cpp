#include "tone_glitches.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <sstream>

namespace record_cli {
namespace {

constexpr int kRate = 48000;
constexpr size_t kWindow = 480;

}  // namespace

std::vector<ToneGlitch> toneGlitches(const std::vector<int16_t>& samples, double frequency,
                                     double skipSeconds, double maxPhase, double minLevel) {
  // Hann-windowed demodulation against the absolute sample index, so that a steady tone gives
  // the same phase in every window and the other tone (hundreds of Hz away) leaks in little.
  std::vector<double> hann(kWindow);
  for (size_t i = 0; i < kWindow; ++i) {
    hann[i] = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / double(kWindow));
  }
  const double step = 2 * std::numbers::pi * frequency / kRate;
  const auto first = size_t(skipSeconds * kRate) / kWindow;
  std::vector<std::complex<double>> bins;
  for (size_t w = first; (w + 1) * kWindow <= samples.size(); ++w) {
    std::complex<double> sum;
    for (size_t i = 0; i < kWindow; ++i) {
      const size_t n = w * kWindow + i;
      const double angle = std::fmod(step * double(n), 2 * std::numbers::pi);
      sum += hann[i] * double(samples[n]) * std::polar(1.0, -angle);
    }
    bins.push_back(sum);
  }
  std::vector<double> levels;
  for (const auto& bin : bins) levels.push_back(std::abs(bin));
  std::vector<double> sorted = levels;
  std::sort(sorted.begin(), sorted.end());
  const double median = sorted.empty() ? 0 : sorted[sorted.size() / 2];
  std::vector<ToneGlitch> glitches;
  for (size_t k = 0; k < bins.size(); ++k) {
    const double level = median > 0 ? levels[k] / median : 0;
    const double jump = k == 0 ? 0 : std::arg(bins[k] * std::conj(bins[k - 1]));
    if (std::abs(jump) > maxPhase || level < minLevel) {
      glitches.push_back({first + k, jump, level});
    }
  }
  return glitches;
}

std::string describe(const std::vector<ToneGlitch>& glitches, double frequency) {
  std::ostringstream out;
  for (const ToneGlitch& g : glitches) {
    out << frequency << " Hz at " << double(g.window) * kWindow / kRate << " s: phase "
        << g.phaseJump << " rad (" << g.phaseJump / (2 * std::numbers::pi) * kRate / frequency
        << " samples), level " << g.level << "\n";
  }
  return out.str();
}

}  // namespace record_cli
