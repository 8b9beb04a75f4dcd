#include "cli/ProgressLine.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace quillbeam::cli {

namespace {

constexpr int barCells = 8;
constexpr double quietestDecibels = -48;

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  char text[64];
  std::snprintf(text, sizeof(text), format, arguments...);
  return text;
}

std::string beginningText(const RecordingFigures& figures, double elapsedSeconds) {
  return "● " + durationText(elapsedSeconds) + "  " + sizeText(figures.fileBytes) + "  ";
}

std::string levelsText(const RecordingFigures& figures) {
  return "sound " + levelBar(figures.systemAudioLevel) + "  mic " + levelBar(figures.microphoneLevel);
}

}  // namespace

std::string durationText(double seconds) {
  // In tenths, so that 59.96 s is a minute and not "0:60.0".
  const auto tenths = std::llround(std::max(seconds, 0.0) * 10);
  const auto whole = tenths / 10;
  if (whole >= 3600) return formatted("%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
  return formatted("%lld:%02lld.%lld", whole / 60, whole % 60, tenths % 10);
}

std::string sizeText(std::int64_t bytes) {
  if (bytes >= 1'000'000'000) return formatted("%.2f GB", static_cast<double>(bytes) / 1e9);
  if (bytes >= 1'000'000) return formatted("%.1f MB", static_cast<double>(bytes) / 1e6);
  return formatted("%.0f kB", static_cast<double>(bytes) / 1e3);
}

std::string levelBar(double peak) {
  const double decibels = peak > 0 ? 20 * std::log10(peak) : quietestDecibels;
  const double share = std::clamp(1 - decibels / quietestDecibels, 0.0, 1.0);
  const auto lit = static_cast<int>(std::lround(share * barCells));
  std::string bar;
  for (int cell = 0; cell < barCells; ++cell) bar += cell < lit ? "▮" : "▯";
  return bar;
}

std::string progressText(const RecordingFigures& figures, double elapsedSeconds) {
  return beginningText(figures, elapsedSeconds) + std::to_string(figures.videoFrames) + " frames, " +
         std::to_string(figures.droppedFrames) + " dropped  " + levelsText(figures);
}

std::string soundProgressText(const RecordingFigures& figures, double elapsedSeconds) {
  return beginningText(figures, elapsedSeconds) + levelsText(figures);
}

std::string mixText(double progress) {
  return "Mixing the tracks: " + std::to_string(std::llround(100 * std::clamp(progress, 0.0, 1.0))) + " % …";
}

ProgressLine::ProgressLine() : isTerminal_(isatty(STDERR_FILENO) == 1) {}

void ProgressLine::show(const std::string& text) {
  if (!isTerminal_) return;
  isShown_ = true;
  std::fprintf(stderr, "\r%s\x1b[K", text.c_str());
  std::fflush(stderr);
}

void ProgressLine::clear() {
  if (!isShown_) return;
  isShown_ = false;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
}

}  // namespace quillbeam::cli
