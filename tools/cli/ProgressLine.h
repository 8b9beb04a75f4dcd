#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "cli/RecordingFigures.h"

namespace quillbeam::cli {

/// "1:02:03", "2:03.4" below an hour; "12.3 MB"; eight cells from −48 dB to full scale.
std::string durationText(double seconds);
std::string sizeText(std::int64_t bytes);
std::string levelBar(double peak);
/// Everything a person wants to see while a recording runs, on one line; of one without pictures, and of the tracks
/// being mixed at its end (0…1).
std::string progressText(const RecordingFigures& figures, double elapsedSeconds);
std::string soundProgressText(const RecordingFigures& figures, double elapsedSeconds);
std::string mixText(double progress);

/// One line of a terminal that is written over again and again. Silent where standard error is no terminal.
class ProgressLine {
 public:
  ProgressLine();
  /// Leaves an empty line behind.
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void show(const std::string& text);
  void clear();

 private:
  const bool isTerminal_;
  bool isShown_ = false;
};

}  // namespace quillbeam::cli
