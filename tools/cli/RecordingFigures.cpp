#include "cli/RecordingFigures.h"

namespace quillbeam::cli {

namespace {

std::string text(const Value& value) { return value.asString() ? *value.asString() : std::string(); }

}  // namespace

RecordingFigures RecordingFigures::fromValue(const Value& value) {
  return {.filePath = text(value.at("filePath")),
          .durationSeconds = value.at("durationSeconds").asDouble().value_or(0),
          .fileBytes = value.at("fileBytes").asInteger().value_or(0),
          .videoFrames = value.at("videoFrames").asInteger().value_or(0),
          .droppedFrames = value.at("droppedFrames").asInteger().value_or(0),
          .systemAudioLevel = value.at("systemAudioLevel").asDouble().value_or(0),
          .microphoneLevel = value.at("microphoneLevel").asDouble().value_or(0),
          .fileIsComplete = value.at("fileIsComplete").asBool().value_or(false),
          .problem = text(value.at("problem")),
          .uploadProblem = text(value.at("uploadProblem"))};
}

}  // namespace quillbeam::cli
