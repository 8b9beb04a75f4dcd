#pragma once

#include <array>
#include <string_view>

namespace quillbeam::channel_names {

inline constexpr std::string_view uploadService = "io.quillbeam.app.upload_service";
inline constexpr std::string_view macRecorder = "io.quillbeam.app.mac_recorder";
inline constexpr std::string_view screenCapture = "io.quillbeam.app.screen_capture";
inline constexpr std::string_view nativeNotification = "io.quillbeam.app.native_notification";
inline constexpr std::string_view nativeUploadConfig = "io.quillbeam.app.native_upload_config";
inline constexpr std::string_view recordingRecovery = "io.quillbeam.app.recording_recovery";
inline constexpr std::string_view macRecorderEvents = "io.quillbeam.app.mac_recorder_events";
inline constexpr std::string_view windowControl = "io.quillbeam.app/window_control";
/// How a second start of the program reaches the first.
inline constexpr std::string_view application = "io.quillbeam.app.application";
/// Figures for the command line's progress display.
inline constexpr std::string_view recordingStatistics = "io.quillbeam.app.recording_statistics";
/// Uploads of files, for the command line.
inline constexpr std::string_view fileUpload = "io.quillbeam.app.file_upload";

/// Those that send to the UI layer.
inline constexpr std::array outgoing{macRecorderEvents, windowControl};

}  // namespace quillbeam::channel_names
