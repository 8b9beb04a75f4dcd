#pragma once

#include <memory>

#include "platform/Platform.h"
#include "recording/RecordingJournal.h"

namespace quillbeam {

/// Finishes, at launch, the files of recordings whose process died: one after another, on a queue of its own, while
/// everything else goes on. Main queue.
class RecordingRepair {
 public:
  RecordingRepair(Platform& platform, RecordingJournal& journal);

  /// Repairs what the journal holds now, and mixes what was to be mixed. A record goes when its file is repaired, gone
  /// holds nothing or can never be mixed; it stays for the next launch when a file could not be read or written. A file
  /// that lies where the mix is to go is left alone: the mix gets the next free name beside it.
  Task<void> run();

 private:
  Task<void> repair(OpenRecording recording);
  Task<void> mix(OpenRecording recording);
  Result<Path> choosePlace(const OpenRecording& recording);
  void mixFailed(const OpenRecording& recording, const Path& output, const Error& cause);

  Platform& platform_;
  RecordingJournal& journal_;
  std::unique_ptr<DispatchQueue> queue_;
};

}  // namespace quillbeam
