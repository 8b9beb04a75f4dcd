#pragma once

#include <string>

#include "base/Value.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

struct Resolution {
  int width = 1920;
  int height = 1080;
  friend bool operator==(const Resolution&, const Resolution&) = default;
  std::string text() const { return std::to_string(width) + "×" + std::to_string(height); }
};

enum class RecordingMode { screen, audioOnly, unknown };

/// What the UI layer asks for when it starts a recording.
struct RecordingConfig {
  bool includeSystemAudio = true;
  bool includeMicrophone = true;
  std::string audioQuality = "high";  ///< reported, without effect on the encoders
  std::string recordingMode = "system_audio_with_mic";

  /// Reads the keys of the same names; a missing key, or one with a value of another type, takes the default.
  static RecordingConfig fromMap(const ValueMap& map);
  RecordingMode mode() const;
};

namespace MacRecordingConfig {

/// The encoded size for a display: its aspect ratio, the longer side at most 1920, both even and at least 2. A display
/// without an area gives 1920 × 1080.
Resolution outputResolution(int displayWidth, int displayHeight);

/// The single file's tracks: "Bandwidth Saver".
VideoSettings singleFileVideoSettings(Resolution resolution);
AudioSettings audioSettings();

}  // namespace MacRecordingConfig

}  // namespace quillbeam
