#pragma once

#include <optional>
#include <string>

#include "app/NativeHalf.h"
#include "cli/Command.h"
#include "cli/RecordingRun.h"
#include "cli/ServiceOptions.h"

namespace quillbeam::cli {

/// `quillbeam record`: records the screen until it is told to stop.
class RecordCommand final : public Command {
 public:
  explicit RecordCommand(CLI::App& program);
  ExitCode run() override;

 private:
  Task<ExitCode> record(Platform& platform, Interrupts& interrupts);
  Task<RecordingRun::Outcome> recordThrough(Platform& platform, Interrupts& interrupts, const NativeHost& host);
  std::optional<RecordingRun::Request::Upload> upload() const;
  std::optional<Duration> length() const;
  bool wantsSound() const { return !withoutMicrophone_ || !withoutSystemAudio_; }
  void report(const RecordingRun::Outcome& outcome) const;
  [[noreturn]] void giveUp() const;

  std::string mode_ = "screen_with_audio_and_mic";
  std::optional<double> seconds_;
  std::string output_;
  bool withoutMicrophone_ = false;
  bool withoutSystemAudio_ = false;
  bool asJson_ = false;
  bool verbose_ = false;
  std::string teamId_;
  std::string folderId_;
  std::string name_;
  ServiceOptions service_;
};

}  // namespace quillbeam::cli
