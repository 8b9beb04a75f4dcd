#pragma once

#include <cerrno>
#include <string_view>

#include "platform/media/AssetWriter.h"

/// The few bytes that stand for a movie on the simulated disk.
namespace quillbeam::simMovieFile {

inline constexpr std::string_view unfinishedContent = "movie, unfinished";
inline constexpr std::string_view finishedContent = "movie, finished";

inline ByteChain content(std::string_view text) { return ByteChain(Bytes(text.begin(), text.end())); }

inline bool isMovie(const Bytes& bytes, std::string_view text) {
  return std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()) == text;
}

inline Error fileError(const Error& below) {
  if (below.code() == EEXIST) return AssetWriterError::fileExists;
  return Error(below.code() == ENOSPC ? AssetWriterError::diskFull : AssetWriterError::cannotOpenFile)
      .withUnderlying(below);
}

}  // namespace quillbeam::simMovieFile
