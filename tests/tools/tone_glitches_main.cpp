// tone-glitches FILE.wav FREQUENCY... : counts the clicks of each steady tone in a recording
// the helper wrote (mono 48000 Hz), after its first second. Exit status 1 when there are any.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tone_glitches.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: tone-glitches FILE.wav FREQUENCY...\n";
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (bytes.size() < 44) {
    std::cerr << "could not read " << argv[1] << "\n";
    return 2;
  }
  std::vector<int16_t> samples((bytes.size() - 44) / 2);
  std::memcpy(samples.data(), bytes.data() + 44, samples.size() * 2);
  size_t total = 0;
  for (int i = 2; i < argc; ++i) {
    const double frequency = std::atof(argv[i]);
    const auto glitches = record_cli::toneGlitches(samples, frequency, 1.0);
    std::cout << record_cli::describe(glitches, frequency);
    std::cout << frequency << " Hz: " << glitches.size() << " glitching windows in "
              << double(samples.size()) / 48000 << " s\n";
    total += glitches.size();
  }
  return total == 0 ? 0 : 1;
}
