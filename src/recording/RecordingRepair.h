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

  /// Repairs what the journal holds now. A record goes when its file is repaired, gone or holds nothing; it stays for
  /// the next launch when the file could not be read or written.
  Task<void> run();

 private:
  Task<void> repair(OpenRecording recording);

  Platform& platform_;
  RecordingJournal& journal_;
  std::unique_ptr<DispatchQueue> queue_;
};

}  // namespace quillbeam
