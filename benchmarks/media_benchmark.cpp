// What recording costs: encoding a 1080p picture of a moving or a static screen, a second of sound, and finishing.

#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <vector>

#include "platform/linux/ffmpeg/AudioEncoder.h"
#include "platform/linux/ffmpeg/FragmentMuxer.h"
#include "platform/linux/ffmpeg/MovieFile.h"
#include "platform/linux/ffmpeg/MovieIndex.h"
#include "platform/linux/ffmpeg/VideoEncoder.h"

namespace quillbeam {
namespace {

constexpr int pictureWidth = 1920;
constexpr int pictureHeight = 1080;
constexpr VideoSettings screen{pictureWidth, pictureHeight, 1'800'000, 15, 36, true, 0.8};
constexpr AudioSettings sound{48'000, 2, 96'000, 64};

/// Text-like texture with a noisy rectangle, as a camera picture in a meeting window, that changes with `step`.
class MeetingPicture final : public PixelBuffer {
 public:
  explicit MeetingPicture(int step) : luma_(pictureWidth * pictureHeight), chroma_(luma_.size() / 4, 128) {
    for (int row = 0; row < pictureHeight; ++row) {
      for (int column = 0; column < pictureWidth; ++column) {
        const bool camera = row > 200 && row < 800 && column > 400 && column < 1400;
        const int wave =
            static_cast<int>(60 * std::sin((column + 3 * step) * 0.02) + 40 * std::sin((row - step) * 0.03));
        const int noise = (row * 7919 + column * 104'729 + step * 15'485) % 7;
        luma_[row * pictureWidth + column] = static_cast<std::uint8_t>(camera ? 120 + wave + noise
                                                                       : (row / 3 * column / 5) % 11 == 0 ? 40
                                                                                                          : 220);
      }
    }
  }
  int width() const override { return pictureWidth; }
  int height() const override { return pictureHeight; }
  Plane y() const override { return {luma_.data(), pictureWidth}; }
  Plane u() const override { return {chroma_.data(), pictureWidth / 2}; }
  Plane v() const override { return u(); }

 private:
  std::vector<std::uint8_t> luma_;
  std::vector<std::uint8_t> chroma_;
};

void encodePictures(benchmark::State& state, int distinct) {
  std::vector<std::shared_ptr<const PixelBuffer>> pictures;
  for (int i = 0; i < distinct; ++i) pictures.push_back(std::make_shared<MeetingPicture>(i));
  const auto encoder = *VideoEncoder::create(screen);
  std::int64_t frame = 0;
  std::int64_t bytes = 0;
  for (auto _ : state) {
    const auto encoded = encoder->encode(pictures[frame % distinct], frame * 3750, KeyFrame::whenNeeded,
                                         [&](const EncodedPacket& packet) { bytes += packet.byteCount(); });
    if (!encoded) state.SkipWithError("cannot encode");
    ++frame;
  }
  state.counters["kbit/s"] = static_cast<double>(bytes) * 8 * 24 / 1000 / static_cast<double>(frame);
}

void encodeMovingPicture(benchmark::State& state) { encodePictures(state, 24); }
BENCHMARK(encodeMovingPicture)->Unit(benchmark::kMillisecond);

void encodeStaticPicture(benchmark::State& state) { encodePictures(state, 1); }
BENCHMARK(encodeStaticPicture)->Unit(benchmark::kMillisecond);

void encodeSecondOfSound(benchmark::State& state) {
  const auto encoder = *AudioEncoder::create(sound);
  AudioBlock block{48'000, 2, std::vector<float>(960)};
  for (int i = 0; i < 960; ++i) block.samples[i] = static_cast<float>(0.3 * std::sin(i * 0.06));
  std::int64_t position = 0;
  for (auto _ : state) {
    for (int i = 0; i < 100; ++i, position += 480) {
      const auto encoded = encoder->encode(block, MediaTime(position, 48'000), [](const EncodedPacket&) {});
      if (!encoded) state.SkipWithError("cannot encode");
    }
  }
}
BENCHMARK(encodeSecondOfSound)->Unit(benchmark::kMillisecond);

/// Fills a movie with one sound track's packets of `seconds` seconds, four to stand in for pictures and two tracks.
MovieFile longMovie(const Path& path, int seconds) {
  const auto encoder = *AudioEncoder::create(sound);
  std::vector<EncodedPacket> packets;
  (void)encoder->encodeSilence(MediaTime(1, 1), [&](EncodedPacket packet) { packets.push_back(std::move(packet)); });
  const std::vector<TrackFormat> formats(3, encoder->format());
  const auto muxer = *FragmentMuxer::create(formats);
  auto movie = *MovieFile::create(path, MovieFileType::mpeg4, {.largestCopy = 0});
  std::int64_t count = 0;
  for (int second = 0; second < seconds; ++second) {
    for (; count * 1024 < (second + 1) * std::int64_t{48'000}; ++count) {
      EncodedPacket packet = packets[count % 16];
      packet.presentationTime = packet.decodeTime = (count - 1) * 1024;
      packet.duration = 1024;
      for (std::size_t track = 0; track < formats.size(); ++track) (void)muxer->write(track, packet);
    }
    const auto cut = *muxer->cut();
    if (second == 0) (void)movie.begin(cut.initialization);
    (void)movie.append(cut.media);
  }
  (void)movie.sync();
  return movie;
}

void finishLongMovie(benchmark::State& state) {
  const Path path = (std::filesystem::temp_directory_path() / "quillbeam-benchmark.mp4").string();
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(path);
    MovieFile movie = longMovie(path, static_cast<int>(state.range(0)));
    state.ResumeTiming();
    if (!movie.finish(std::nullopt)) state.SkipWithError("cannot finish");
  }
  std::filesystem::remove(path);
}
BENCHMARK(finishLongMovie)->Arg(600)->Arg(7200)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
}  // namespace quillbeam
