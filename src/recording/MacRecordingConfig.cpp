#include "recording/MacRecordingConfig.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace quillbeam {

namespace {

constexpr int longestSide = 1920;

constexpr std::array<std::pair<std::string_view, RecordingMode>, 4> modes{{
    {"screen_with_audio", RecordingMode::screen},
    {"screen_with_audio_and_mic", RecordingMode::screen},
    {"system_audio_with_mic", RecordingMode::audioOnly},
    {"audio_only", RecordingMode::audioOnly},
}};

int evenAtLeastTwo(int side) { return std::max(side - side % 2, 2); }

}  // namespace

RecordingConfig RecordingConfig::fromMap(const ValueMap& map) {
  RecordingConfig config;
  const Value value(map);
  config.includeSystemAudio = value.at("includeSystemAudio").asBool().value_or(config.includeSystemAudio);
  config.includeMicrophone = value.at("includeMicrophone").asBool().value_or(config.includeMicrophone);
  if (const auto* quality = value.at("audioQuality").asString()) config.audioQuality = *quality;
  if (const auto* mode = value.at("recordingMode").asString()) config.recordingMode = *mode;
  return config;
}

RecordingMode RecordingConfig::mode() const {
  const auto known = std::ranges::find(modes, recordingMode, &decltype(modes)::value_type::first);
  return known == modes.end() ? RecordingMode::unknown : known->second;
}

Resolution MacRecordingConfig::outputResolution(int displayWidth, int displayHeight) {
  if (displayWidth < 1 || displayHeight < 1) return {};
  const double aspect = static_cast<double>(displayWidth) / displayHeight;
  int width = std::min(displayWidth, longestSide);
  int height = std::min(displayHeight, longestSide);
  if (displayWidth >= displayHeight) {
    height = static_cast<int>(width / aspect);
  } else {
    width = static_cast<int>(aspect * height);
  }
  return {evenAtLeastTwo(width), evenAtLeastTwo(height)};
}

VideoSettings MacRecordingConfig::singleFileVideoSettings(Resolution resolution) {
  return {.width = resolution.width,
          .height = resolution.height,
          .averageBitRate = 1'800'000,
          .expectedSourceFrameRate = 15,
          .maxKeyFrameInterval = 36,
          .allowFrameReordering = true,
          .quality = 0.8};
}

AudioSettings MacRecordingConfig::audioSettings() {
  return {.sampleRate = 48'000, .channels = 2, .bitRate = 96'000, .encoderQuality = 64};
}

}  // namespace quillbeam
