#pragma once

#include <cerrno>
#include <string_view>

#include "platform/sim/SimMediaWriters.h"

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

/// The file as it is while it is written; as it is when it has been finished.
inline Result<void> beginFile(Files& files, const SimMovie& movie) {
  const auto created = files.writeNew(movie.path, content(unfinishedContent), Durability::durable);
  return created ? Result<void>(success) : fileError(created.error());
}
inline Result<void> finishFile(Files& files, const SimMovie& movie) {
  const auto written = files.writeAtomically(movie.path, content(finishedContent));
  return written ? Result<void>(success) : Error(AssetWriterError::writeFailed).withUnderlying(written.error());
}
/// Zero before the writer has started.
inline std::int64_t sizeOf(Files& files, const SimMovie& movie) {
  const auto info = files.info(movie.path);
  return info && movie.status != AssetWriter::Status::unknown ? info->size : 0;
}

}  // namespace quillbeam::simMovieFile
