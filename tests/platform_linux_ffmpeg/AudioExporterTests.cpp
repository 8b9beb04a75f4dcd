#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <algorithm>
#include <complex>
#include <filesystem>
#include <fstream>
#include <map>

#include "Programs.h"
#include "Recording.h"
#include "platform/linux/ffmpeg/AudioMixdown.h"
#include "platform/linux/ffmpeg/FfmpegAudioExporter.h"
#include "platform/linux/ffmpeg/PeakLimiter.h"
#include "support/TestDirectory.h"

namespace quillbeam {
namespace {

using namespace test;

/// How loud a frequency is between two moments (amplitude; the span should hold whole periods).
double level(const std::vector<float>& samples, double frequency, double from, double to) {
  std::complex<double> sum;
  const auto begin = static_cast<std::size_t>(from * 48'000);
  const auto end = std::min(samples.size(), static_cast<std::size_t>(to * 48'000));
  for (std::size_t i = begin; i < end; ++i) {
    sum += std::polar<double>(samples[i], -2 * std::numbers::pi * frequency * static_cast<double>(i) / 48'000);
  }
  return 2 * std::abs(sum) / static_cast<double>(end - begin);
}

std::vector<float> leftOf(const Path& file) {
  const std::string raw = outputOf("ffmpeg -v error -i '" + file + "' -af 'pan=mono|c0=c0' -f f32le -");
  std::vector<float> samples(raw.size() / sizeof(float));
  raw.copy(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(float));
  return samples;
}

struct MixDesk {
  using Samples = std::vector<SampleBuffer>;

  /// A file with a track per entry.
  void record(const std::vector<std::pair<AudioSettings, Samples>>& tracks) {
    FfmpegMediaWriters writers;
    const auto writer = *writers.makeMovieWriter(source, MovieFileType::appleM4A, NetworkUse::optimized);
    std::vector<AssetWriterInput*> inputs;
    for (const auto& track : tracks) inputs.push_back(writer->addAudioInput(track.first));
    ASSERT_TRUE(writer->startWriting());
    writer->startSession(MediaTime::zero());
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      for (const SampleBuffer& sample : tracks[i].second) ASSERT_TRUE(appendWhenReady(*inputs[i], sample));
      // An empty one is not known to stay empty before the end.
      if (!tracks[i].second.empty()) inputs[i]->markAsFinished();
    }
    ASSERT_TRUE(waitFor(writer->finishWriting()));
  }
  Result<void> mix(std::vector<AudioMix::Track> tracks) {
    const auto mixing = exporter.makeExport({source, std::move(tracks), output});
    return waitFor(mixing->run());
  }
  std::vector<float> mixed(std::vector<AudioMix::Track> tracks) {
    const auto result = mix(std::move(tracks));
    EXPECT_TRUE(result) << result.error().fullDescription();
    EXPECT_EQ(decodingErrors(output), "");
    return leftOf(output);
  }

  TestDirectory directory;
  Path source = directory.path() + "/tracks.m4a";
  Path output = directory.path() + "/mix.m4a";
  FfmpegAudioExporter exporter;
};

MixDesk::Samples tone(double frequency, int seconds, int rate = 48'000, int channels = 2) {
  MixDesk::Samples samples;
  for (int i = 0; i < seconds * 10; ++i) samples.push_back(toneAt(i * rate / 10, rate / 10, frequency, rate, channels));
  return samples;
}

constexpr AudioSettings headset{16'000, 1, 32'000, 64};
constexpr AudioSettings disc{44'100, 2, 96'000, 64};

TEST(AudioExporter, tracksOfDifferentRatesAndLengthsAreSummedAtTheirVolumes) {
  MixDesk desk;
  desk.record({{meetingSound, tone(440, 3)}, {headset, tone(1000, 2, 16'000, 1)}, {disc, tone(2500, 1, 44'100)}});
  const auto sound = desk.mixed({{0, 1.0}, {1, 0.5}, {2, 0.25}});
  EXPECT_NEAR(numbersOf(probed(desk.output, "format=duration")).at(0), 3, 1e-4);
  EXPECT_NEAR(level(sound, 440, 0.2, 2.8), 0.3, 0.01);
  EXPECT_NEAR(level(sound, 1000, 0.2, 1.8), 0.15, 0.01) << "one channel is as loud on both";
  EXPECT_LT(level(sound, 1000, 2.2, 2.8), 0.002);
  EXPECT_NEAR(level(sound, 2500, 0.2, 0.8), 0.075, 0.005);
  EXPECT_NEAR(level(desk.mixed({{0, 2.5}}), 440, 0.2, 2.8), 0.75, 0.02);

  EXPECT_EQ(probed(desk.output, "stream=codec_name,sample_rate,channels"), "aac,48000,2\n");
  EXPECT_EQ(probed(desk.output, "format_tags=major_brand"), "M4A \n");
  const std::string content = outputOf("cat '" + desk.output + "'");
  EXPECT_LT(content.find("moov"), content.find("mdat")) << "plays before it has been fetched whole";
}

TEST(AudioExporter, everySampleStaysAtItsTime) {
  MixDesk desk;
  // Later than what the recorder fills with silence: the packets of the second track leave a hole.
  const MixDesk::Samples late{soundAt(2 * 48'000, 4800, 2 * 48'000 + 2000),
                              soundAt(40 * 48'000, 48'000, 40 * 48'000 + 9600)};
  desk.record({{meetingSound, {soundAt(0, 48'000, 40'000)}}, {meetingSound, late}});
  const auto first = desk.mixed({{0, 1.0}});
  EXPECT_NEAR(static_cast<double>(loudest(first)), 40'000, 1);
  const auto second = desk.mixed({{0, 0.1}, {1, 1.0}});
  EXPECT_NEAR(numbersOf(probed(desk.output, "format=duration")).at(0), 41, 1e-4);
  const std::vector<float> early(second.begin(), second.begin() + 10 * 48'000);
  EXPECT_NEAR(static_cast<double>(loudest(early)), 2 * 48'000 + 2000, 1);
  const std::vector<float> end(second.begin() + 10 * 48'000, second.end());
  EXPECT_NEAR(static_cast<double>(loudest(end)), 30 * 48'000 + 9600, 1);
}

TEST(AudioExporter, whatIsTooLoudIsTurnedDownNotCutOff) {
  MixDesk desk;
  desk.record({{meetingSound, tone(440, 2)}, {meetingSound, tone(440, 2)}});
  const auto sound = desk.mixed({{0, 2.0}, {1, 4.0}});
  EXPECT_LE(*std::ranges::max_element(sound), 1);
  EXPECT_NEAR(level(sound, 440, 0.2, 1.8), PeakLimiter::ceiling, 0.03);
  EXPECT_LT(level(sound, 1320, 0.2, 1.8), 0.01) << "cut off it would be a fifth of the tone";
}

TEST(PeakLimiter, keepsTheCeilingAndLeavesTheRestAlone) {
  std::vector<float> input(2 * 96'000);
  std::uint32_t random = 1;
  for (std::size_t i = 0; i < input.size(); ++i) {
    random = random * 1664525 + 1013904223;
    const bool isLoud = i > 60'000 && i < 62'000;
    input[i] = (static_cast<float>(random >> 8) / (1 << 23) - 1) * (isLoud ? 5.0F : 0.5F);
  }
  PeakLimiter limiter;
  std::vector<float> output;
  for (std::size_t begin = 0; begin < input.size(); begin += 3000) {
    std::vector<float> block(input.begin() + static_cast<std::ptrdiff_t>(begin),
                             input.begin() + static_cast<std::ptrdiff_t>(std::min(begin + 3000, input.size())));
    limiter.process(block);
    output.insert(output.end(), block.begin(), block.end());
  }
  output.erase(output.begin(), output.begin() + 2 * PeakLimiter::lookAhead);
  EXPECT_LE(*std::ranges::max_element(output), PeakLimiter::ceiling * 1.0001F);
  EXPECT_GT(*std::ranges::max_element(output), PeakLimiter::ceiling * 0.9F);
  EXPECT_TRUE(std::equal(output.begin(), output.begin() + 59'000, input.begin())) << "before";
  EXPECT_TRUE(std::equal(output.end() - 20'000, output.end(), input.end() - 20'000 - 2 * PeakLimiter::lookAhead))
      << "long after";
}

TEST(AudioExporter, damageCostsNoMoreThanWhatWasDamaged) {
  MixDesk desk;
  desk.record({{meetingSound, tone(440, 6)}, {meetingSound, tone(1000, 6)}});
  const auto size = static_cast<std::streamoff>(std::filesystem::file_size(desk.source));
  {
    std::fstream file(desk.source, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(size / 2);
    for (int i = 0; i < 4000; ++i) file.put(static_cast<char>(i * 73 % 251));
  }
  const auto torn = desk.mixed({{0, 1}, {1, 1}});
  EXPECT_NEAR(numbersOf(probed(desk.output, "format=duration")).at(0), 6, 1e-4);
  for (const double frequency : {440.0, 1000.0}) {
    EXPECT_NEAR(level(torn, frequency, 0.5, 2), 0.3, 0.01);
    EXPECT_NEAR(level(torn, frequency, 4, 5.5), 0.3, 0.01);
  }
  std::filesystem::resize_file(desk.source, static_cast<std::uintmax_t>(size) * 2 / 3);
  const auto cut = desk.mixed({{0, 1}, {1, 1}});
  EXPECT_NEAR(static_cast<double>(cut.size()), 4 * 48'000, 48'000);
  EXPECT_NEAR(level(cut, 440, 0.5, 2), 0.3, 0.01);
}

TEST(AudioExporter, aTrackToWhichNothingWasWrittenIsSilence) {
  MixDesk desk;
  desk.record({{meetingSound, {}}, {meetingSound, tone(1000, 8)}});
  const auto tracks = *desk.exporter.audioTracks(desk.source);
  std::vector<AudioMix::Track> all;
  for (int i = 0; i < std::ssize(tracks); ++i) all.push_back({i, 1});
  EXPECT_NEAR(level(desk.mixed(all), 1000, 0.2, 1.8), 0.3, 0.01);
  EXPECT_EQ(tracks.size(), 2u);
}

TEST(AudioExporter, aTrackThatEndsEarlyDoesNotMakeTheOthersPileUp) {
  MixDesk desk;
  const std::int64_t click = 50 * 48'000;
  desk.record({{meetingSound, {soundAt(0, 60 * 48'000, click)}}, {headset, tone(1000, 1, 16'000, 1)}});
  // Of this one nobody knows where its tracks end.
  const Path fragments = desk.directory.path() + "/fragments.m4a";
  outputOf("ffmpeg -i '" + desk.source + "' -map 0 -c copy -movflags empty_moov -frag_duration 1000000 " + fragments);
  for (const Path& source : {desk.source, fragments}) {
    const auto mixdown = *AudioMixdown::create({source, {{0, 1}, {1, 1}}, desk.output});
    std::int64_t most = 0;
    while (*mixdown->step() == AudioMixdown::Progress::some) most = std::max(most, mixdown->heldFrames());
    EXPECT_LT(most, 12 * 48'000) << source;
    const auto sound = leftOf(desk.output);
    EXPECT_NEAR(level(sound, 1000, 0.2, 0.8), 0.3, 0.01);
    // Copying into fragments moves all tracks by one packet of the slowest.
    EXPECT_NEAR(static_cast<double>(loudest({sound.begin() + 2 * 48'000, sound.end()})), click - 2 * 48'000, 3100);
  }
}

TEST(AudioExporter, whatADeadExportLeftIsRemovedByTheNext) {
  MixDesk desk;
  desk.record({{meetingSound, tone(440, 20)}});
  Path left;
  {
    const auto mixing = desk.exporter.makeExport({desk.source, {{0, 1}}, desk.output});
    ManualExecutor executor;
    TaskScope scope(executor);
    executor.run([&] { scope.start(mixing->run()); });
    while (mixing->progress() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    for (const auto& entry : std::filesystem::directory_iterator(desk.directory.path())) {
      if (isTemporaryName(entry.path().filename().string())) left = entry.path().string();
    }
  }
  ASSERT_FALSE(left.empty());
  EXPECT_FALSE(std::filesystem::exists(left));
  std::ofstream(left) << "half a mix";
  ASSERT_TRUE(desk.mix({{0, 1}}));
  EXPECT_FALSE(std::filesystem::exists(left));
}

TEST(AudioExporter, onAFullDiskItLeavesNothingAndKeepsTheOldOutput) {
  MixDesk desk;
  desk.record({{meetingSound, tone(440, 20)}});
  bool mounted = false;
  // A mount that only this thread and those it starts can see.
  std::thread([&] {
    const Path disk = desk.directory.path() + "/disk";
    std::filesystem::create_directory(disk);
    if (::unshare(CLONE_FS | CLONE_NEWNS) != 0) return;
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
    mounted = ::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=100k") == 0;
    if (!mounted) return;
    desk.output = disk + "/mix.m4a";
    std::ofstream(desk.output) << "an older mix";
    const auto mixed = desk.mix({{0, 1}});
    EXPECT_TRUE(!mixed && mixed.error().is(AudioExporterError::diskFull));
    EXPECT_EQ(outputOf("cat " + desk.output), "an older mix");
    EXPECT_EQ(outputOf("ls -A " + disk), "mix.m4a\n");
  }).join();
  if (!mounted) GTEST_SKIP() << "SKIPPED: mounting a small disk needs rights that this process lacks";
}

}  // namespace
}  // namespace quillbeam
