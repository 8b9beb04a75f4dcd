#pragma once

#include <memory>
#include <thread>

#include "platform/Dispatch.h"
#include "platform/Logging.h"

namespace quillbeam {

/// Lines to a file descriptor through a thread of its own, so that no caller ever waits for the reader. Up to 4096
/// lines and 1 MiB wait; lines beyond are dropped, counted, and the count is printed in their place. After the reader
/// has gone, everything is dropped. The destructor gives what waits up to `patience` to go out.
class PrintingStandardOutput final : public StandardOutput {
 public:
  explicit PrintingStandardOutput(int descriptor, Duration patience = std::chrono::seconds(1));
  ~PrintingStandardOutput() override;

  void print(std::string_view line) override;

 private:
  struct Pipe;
  // Shared with the thread: a reader that never reads again can hold it in a write that nothing interrupts.
  std::shared_ptr<Pipe> pipe_;
  Duration patience_;
  std::thread writer_;
};

}  // namespace quillbeam
