#include "platform/media/AssetWriter.h"

#include <utility>

namespace quillbeam {

Value VideoSettings::toValue() const {
  return ValueMap{{"codec", "avc1"},
                  {"width", width},
                  {"height", height},
                  {"averageBitRate", averageBitRate},
                  {"profileLevel", "H264_High_AutoLevel"},
                  {"allowFrameReordering", allowFrameReordering},
                  {"expectedSourceFrameRate", expectedSourceFrameRate},
                  {"maxKeyFrameInterval", maxKeyFrameInterval},
                  {"quality", quality},
                  {"entropyMode", "CABAC"}};
}

Value AudioSettings::toValue() const {
  return ValueMap{{"format", "aac"},
                  {"sampleRate", sampleRate},
                  {"numberOfChannels", channels},
                  {"encoderBitRate", bitRate},
                  {"encoderQuality", encoderQuality}};
}

std::string describe(AssetWriterError error) {
  switch (error) {
    case AssetWriterError::fileExists:
      return "A file already exists at the output path";
    case AssetWriterError::cannotOpenFile:
      return "The output file cannot be opened";
    case AssetWriterError::cannotEncode:
      return "No encoder accepts the media settings";
    case AssetWriterError::diskFull:
      return "The disk is full";
    case AssetWriterError::writeFailed:
      return "Writing to the output file failed";
    case AssetWriterError::notRecoverable:
      return "The file holds no complete fragment to recover";
  }
  std::unreachable();
}

}  // namespace quillbeam
