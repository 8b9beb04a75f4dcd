#pragma once

#include <utility>

#include "platform/sim/SimAudioExporter.h"

namespace quillbeam {

/// One simulated export; goes on in steps of virtual time. One thread.
class SimAudioExport final : public AudioExport {
 public:
  SimAudioExport(SimAudioExporter& exporter, AudioMix mix) : exporter_(exporter), mix_(std::move(mix)) {}

  Task<void> run() override;
  void cancel() override { cancelled_ = true; }
  Status status() const override { return status_; }
  std::optional<Error> error() const override { return error_; }
  double progress() const override { return progress_; }

 private:
  Task<void> mixAll();
  Result<MediaTime> length() const;

  SimAudioExporter& exporter_;
  const AudioMix mix_;
  Status status_ = Status::unknown;
  std::optional<Error> error_;
  double progress_ = 0;
  bool cancelled_ = false;
};

}  // namespace quillbeam
