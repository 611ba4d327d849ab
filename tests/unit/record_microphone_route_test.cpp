// Closed-lid detection: route resolution over fake device readers, the warning state, the
// ACPI lid file and the probe trace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>

#include "audio_test_support.h"
#include "record/microphone_route.h"
#include "record/pulse/pulse_capture.h"

namespace {

using namespace tallowbrook;
using Route = MicrophoneInputRoute;

struct Devices {
  std::map<uint32_t, MicrophoneDevice> known;
  int reads = 0;
  MicrophoneDeviceReader reader() {
    return [this](uint32_t id) -> std::optional<MicrophoneDevice> {
      ++reads;
      auto found = known.find(id);
      if (found == known.end()) return std::nullopt;
      return found->second;
    };
  }
};

MicrophoneDevice builtIn() {
  return {kTransportBuiltIn, true, std::nullopt};
}
MicrophoneDevice usb() {
  return {fourCharCode("usb "), true, std::nullopt};
}
MicrophoneDevice outputOnly() {
  return {kTransportBuiltIn, false, std::nullopt};
}
MicrophoneDevice aggregate(std::vector<uint32_t> members) {
  return {kTransportAggregate, true, std::move(members)};
}

TEST(MicrophoneRoute, RawValues) {
  EXPECT_EQ(microphoneInputRoute(0), Route::unknown);
  EXPECT_EQ(microphoneInputRoute(3), Route::other);
  EXPECT_FALSE(microphoneInputRoute(4).has_value());
}

TEST(MicrophoneRoute, NoInputStreamsIsNoInputWhateverTheTransport) {
  Devices d;
  d.known[1] = {0, false, std::nullopt};
  d.known[2] = {kTransportAggregate, false, std::vector<uint32_t>{1}};
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::noInput);
  EXPECT_EQ(resolveMicrophoneInputRoute(2, d.reader()), Route::noInput);
}

TEST(MicrophoneRoute, TransportZeroWithInputIsUnknown) {
  Devices d;
  d.known[1] = {0, true, std::nullopt};
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::unknown);
}

TEST(MicrophoneRoute, MissingEvidenceIsUnknown) {
  Devices d;
  EXPECT_EQ(resolveMicrophoneInputRoute(9, d.reader()), Route::unknown);
}

TEST(MicrophoneRoute, BuiltInAndOther) {
  Devices d;
  d.known[1] = builtIn();
  d.known[2] = usb();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::builtIn);
  EXPECT_EQ(resolveMicrophoneInputRoute(2, d.reader()), Route::other);
}

TEST(MicrophoneRoute, AggregateCyclesEndAsUnknown) {
  Devices d;
  d.known[1] = aggregate({1});
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::unknown);
  d.known[2] = aggregate({3});
  d.known[3] = aggregate({2});
  EXPECT_EQ(resolveMicrophoneInputRoute(2, d.reader()), Route::unknown);
}

TEST(MicrophoneRoute, ChainsDeeperThanEightAreUnknown) {
  Devices d;
  for (uint32_t id = 1; id <= 8; ++id) d.known[id] = aggregate({id + 1});
  d.known[9] = builtIn();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::unknown);
  // Seven aggregates above the microphone are still followed.
  Devices shallow;
  for (uint32_t id = 1; id <= 7; ++id) shallow.known[id] = aggregate({id + 1});
  shallow.known[8] = builtIn();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, shallow.reader()), Route::builtIn);
}

TEST(MicrophoneRoute, OutputOnlyMembersAreDropped) {
  Devices d;
  d.known[1] = aggregate({2, 3});
  d.known[2] = builtIn();
  d.known[3] = outputOnly();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::builtIn);
}

TEST(MicrophoneRoute, AggregateOfOnlyOutputsIsUnknownNotNoInput) {
  Devices d;
  d.known[1] = aggregate({3, 4});
  d.known[3] = outputOnly();
  d.known[4] = outputOnly();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::unknown);
}

TEST(MicrophoneRoute, BuiltInMergedWithExternalIsOther) {
  Devices d;
  d.known[1] = aggregate({2, 3});
  d.known[2] = builtIn();
  d.known[3] = usb();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::other);
}

TEST(MicrophoneRoute, AnUnknownMemberMakesTheAggregateUnknown) {
  Devices d;
  d.known[1] = aggregate({2, 99});
  d.known[2] = builtIn();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::unknown);
}

TEST(MicrophoneRoute, SiblingsDoNotSeeEachOther) {
  Devices d;
  d.known[1] = aggregate({2, 2});
  d.known[2] = builtIn();
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::builtIn);
}

TEST(MicrophoneRoute, SixtyFiveMembersAreUnknownWithoutReadingThem) {
  Devices d;
  std::vector<uint32_t> members;
  for (uint32_t id = 100; id < 165; ++id) {
    members.push_back(id);
    d.known[id] = builtIn();
  }
  d.known[1] = aggregate(members);
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::unknown);
  EXPECT_EQ(d.reads, 1);
  d.known[1] = aggregate({});
  EXPECT_EQ(resolveMicrophoneInputRoute(1, d.reader()), Route::unknown);
}

TEST(MicrophoneRoute, BlockedFollowsTheRoute) {
  Devices d;
  d.known[1] = builtIn();
  d.known[2] = usb();
  d.known[3] = outputOnly();
  auto closed = [] { return std::optional<bool>(true); };
  EXPECT_EQ(microphoneBlocked(std::nullopt, d.reader(), closed), std::nullopt);
  EXPECT_EQ(microphoneBlocked(1u, d.reader(), closed), true);
  EXPECT_EQ(microphoneBlocked(1u, d.reader(), [] { return std::optional<bool>(); }), std::nullopt);
  EXPECT_EQ(microphoneBlocked(2u, d.reader(), closed), false);
  EXPECT_EQ(microphoneBlocked(3u, d.reader(), closed), false);
  EXPECT_EQ(microphoneBlocked(42u, d.reader(), closed), std::nullopt);
}

TEST(MicrophoneRoute, LidStateFromAcpi) {
  audio_test::TempDir dir;
  EXPECT_EQ(lidClosedFromAcpi(dir.path()), std::nullopt) << "no lid";
  std::filesystem::create_directories(dir.file("LID0"));
  std::ofstream(dir.file("LID0/state")) << "state:      closed\n";
  EXPECT_EQ(lidClosedFromAcpi(dir.path()), true);
  std::ofstream(dir.file("LID0/state")) << "state:      open\n";
  EXPECT_EQ(lidClosedFromAcpi(dir.path()), false);
  std::ofstream(dir.file("LID0/state")) << "garbage\n";
  EXPECT_EQ(lidClosedFromAcpi(dir.path()), std::nullopt);
}

TEST(MicrophoneLidWarning, RouteMessageTable) {
  const std::string closed = " " + std::string(kLidClosedText);
  const std::string cleared = " " + std::string(kLidClearedText);
  struct Row {
    bool before;
    std::optional<bool> blocked;
    std::string suffix;
    bool after;
  };
  const Row rows[] = {
      {false, std::nullopt, "", false}, {true, std::nullopt, closed, true},
      {false, false, "", false},        {true, false, cleared, false},
      {false, true, closed, true},      {true, true, closed, true},
  };
  for (const Row& row : rows) {
    MicrophoneLidWarning warning{row.before};
    EXPECT_EQ(warning.routeMessage("m", row.blocked), "m" + row.suffix);
    EXPECT_EQ(warning.warned, row.after);
  }
}

TEST(LidProbeDiagnostic, AtMostSixteenLines) {
  audio_test::TempDir dir;
  const std::string file = dir.file("trace");
  const int fd = ::open(file.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  LidProbeDiagnostic trace(true, fd);
  for (int i = 0; i < 20; ++i) trace.write("transport", -1, 0x62746C6E);
  ::close(fd);
  const std::string text = audio_test::readFile(file);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 16);
  EXPECT_EQ(text.substr(0, text.find('\n') + 1),
            "lid-probe stage=transport status=-1 value=1651797102\n");
}

TEST(LidProbeDiagnostic, DisabledWritesNothing) {
  audio_test::TempDir dir;
  const std::string file = dir.file("trace");
  const int fd = ::open(file.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
  LidProbeDiagnostic trace(false, fd);
  trace.write("lid", 0, 1);
  ::close(fd);
  EXPECT_TRUE(audio_test::readFile(file).empty());
}

TEST(PulseDeviceEvidence, SourcesBecomeDevices) {
  using Pulse::SourceInfo;
  std::vector<SourceInfo> sources(5);
  sources[0].index = 1;  // a laptop's microphone
  sources[0].name = "alsa_input.pci.analog-stereo";
  sources[0].activePort = "analog-input-internal-mic";
  sources[1].index = 2;  // a monitor
  sources[1].name = "speaker.monitor";
  sources[1].monitor = true;
  sources[2].index = 3;  // a remap of the laptop microphone
  sources[2].name = "mic";
  sources[2].masterDevice = "alsa_input.pci.analog-stereo";
  sources[3].index = 4;  // a USB microphone
  sources[3].name = "usb";
  sources[3].bus = "usb";
  sources[4].index = 5;  // a remap of a monitor
  sources[4].name = "monitor-remap";
  sources[4].masterDevice = "speaker.monitor";
  auto read = [&](uint32_t id) { return Pulse::deviceEvidenceFor(sources, id); };
  EXPECT_EQ(resolveMicrophoneInputRoute(1, read), Route::builtIn);
  EXPECT_EQ(resolveMicrophoneInputRoute(2, read), Route::noInput);
  EXPECT_EQ(resolveMicrophoneInputRoute(3, read), Route::builtIn);
  EXPECT_EQ(resolveMicrophoneInputRoute(4, read), Route::other);
  EXPECT_EQ(resolveMicrophoneInputRoute(5, read), Route::unknown);
  EXPECT_EQ(resolveMicrophoneInputRoute(77, read), Route::unknown);
  sources[0].activePort.clear();
  sources[0].formFactor = "internal";
  EXPECT_EQ(resolveMicrophoneInputRoute(1, read), Route::builtIn);
}

TEST(AudioDevices, UidLookupIsExactAndTheFirstMatchWins) {
  std::vector<Pulse::SourceInfo> sources(3);
  sources[0].index = 10;
  sources[0].name = "speaker.monitor";
  sources[0].monitor = true;
  sources[1].index = 11;
  sources[1].name = "mic";
  sources[2].index = 12;
  sources[2].name = "mic";
  EXPECT_EQ(Pulse::inputIdForUID(sources, "mic"), 11u);
  EXPECT_EQ(Pulse::inputIdForUID(sources, "MIC"), std::nullopt);
  EXPECT_EQ(Pulse::inputIdForUID(sources, "speaker.monitor"), std::nullopt) << "not an input";
  EXPECT_EQ(Pulse::inputIdForUID({}, "mic"), std::nullopt);
}

}  // namespace
