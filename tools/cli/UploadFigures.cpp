#include "cli/UploadFigures.h"

#include <algorithm>
#include <cmath>

#include "cli/ProgressLine.h"
#include "upload/FileUpload.h"
#include "upload/MacBackgroundUploadError.h"
#include "upload/MacNativeApiError.h"

namespace quillbeam::cli {

namespace {

constexpr int barCells = 20;

std::string text(const Value& value) { return value.asString() ? *value.asString() : std::string(); }
std::int64_t number(const Value& value) { return value.asInteger().value_or(0); }

template <ErrorEnum E>
bool isCase(const UploadFigures& figures, E error) {
  return figures.errorDomain == errorDomain(error) && figures.errorCode == static_cast<int>(error);
}

}  // namespace

UploadFigures UploadFigures::fromValue(const Value& value) {
  return {.phase = text(value.at("phase")),
          .sessionId = text(value.at("sessionId")),
          .fileId = text(value.at("fileId")),
          .totalBytes = number(value.at("totalBytes")),
          .confirmedBytes = number(value.at("confirmedBytes")),
          .bytesInFlight = number(value.at("bytesInFlight")),
          .totalParts = number(value.at("totalParts")),
          .confirmedParts = number(value.at("confirmedParts")),
          .lastError = text(value.at("lastError")),
          .error = text(value.at("error")),
          .errorDomain = text(value.at("errorDomain")),
          .errorCode = static_cast<int>(number(value.at("errorCode")))};
}

ExitCode UploadFigures::exitCode() const {
  if (errorDomain.empty()) return ExitCode::ok;
  if (isCase(*this, CommonError::cancelled)) return ExitCode::gaveUp;
  if (isCase(*this, MacNativeApiError::networkError)) return ExitCode::serviceUnreachable;
  if (isCase(*this, MacBackgroundUploadError::finalizationTimeout)) return ExitCode::uploadTimedOut;
  if (isCase(*this, FileUploadError::partGivenUp)) return ExitCode::uploadRefused;
  return errorDomain == quillbeam::errorDomain(MacNativeApiError::httpError) ? ExitCode::uploadRefused
                                                                             : ExitCode::failed;
}

std::string uploadBar(double share) {
  const double clamped = std::clamp(share, 0.0, 1.0);
  const auto full = static_cast<int>(clamped * barCells);
  std::string bar;
  for (int cell = 0; cell < barCells; ++cell) bar += cell < full ? "█" : "░";
  const std::string percent = std::to_string(static_cast<int>(clamped * 100));
  return bar + " " + std::string(3 - std::min<std::size_t>(percent.size(), 3), ' ') + percent + " %";
}

std::string uploadText(const UploadFigures& figures, double bytesPerSecond) {
  if (figures.phase == "opening") return "Asking the service …";
  const std::int64_t moved = std::min(figures.confirmedBytes + figures.bytesInFlight, figures.totalBytes);
  const double share =
      figures.totalBytes == 0 ? 0 : static_cast<double>(moved) / static_cast<double>(figures.totalBytes);
  std::string line = uploadBar(share) + "  " + sizeText(moved) + " of " + sizeText(figures.totalBytes) + ", part " +
                     std::to_string(figures.confirmedParts) + " of " + std::to_string(figures.totalParts) + "  " +
                     sizeText(std::llround(bytesPerSecond)) + "/s";
  if (figures.confirmedParts == figures.totalParts) line += "  finishing …";
  if (!figures.lastError.empty()) line += "  (last failure: " + figures.lastError + ")";
  return line;
}

}  // namespace quillbeam::cli
