#pragma once

#include <optional>

#include "base/MediaTime.h"
#include "platform/linux/ffmpeg/FragmentIndex.h"
#include "platform/linux/ffmpeg/RandomAccessFile.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// A movie file while it is being written, and its transformation into an ordinary one.
///
///     growing      ftyp │ free (room for the index) │ moov (fragmented) │ moof mdat │ moof mdat │ …
///     finished     ftyp │ moov (index) │ free │ mdat (large: everything behind, old headers included)
///     no room      ftyp │ mdat (large: room and everything behind) │ moov (index)
///     short        ftyp │ moov (index) │ mdat: a copy, moved over the file, without the unused room
///
/// Finishing prepares everything out of sight, inside the free box or behind the media, and then changes what the file
/// is with one write of eight bytes; before and after it the file plays. One thread at a time.
class MovieFile {
 public:
  /// Enough for about three hours of full motion with two sound tracks.
  static constexpr std::uint64_t indexRoom = 8 * 1024 * 1024;
  /// Media up to this size is copied once rather than left behind unused room.
  static constexpr std::uint64_t largestCopy = 32 * 1024 * 1024;

  struct Limits {
    std::uint64_t indexRoom = MovieFile::indexRoom;
    std::uint64_t largestCopy = MovieFile::largestCopy;
  };

  /// A new file with the room for its index. Errors as `RandomAccessFile`.
  static Result<MovieFile> create(const Path& path, MovieFileType type, Limits limits);
  /// What a dead process left behind, up to its last complete fragment. `AssetWriterError::notRecoverable` when the
  /// file was not made by this class or holds no fragment. Changes nothing.
  static Result<MovieFile> reopen(RandomAccessFile file, Limits limits);

  /// Removes the copy ("<path>.finishing") that a process left which died while it finished a short movie.
  static void discardUnfinishedCopy(const Path& path);

  /// Once, before the first fragment: ftyp and moov as the muxer puts them out.
  Result<void> begin(ByteSpan initialization);
  /// Whole moof and mdat boxes. A failed write leaves no torn fragment where that can be helped.
  Result<void> append(ByteSpan fragment);
  /// What was appended survives the machine.
  Result<void> sync() { return file_.sync(); }
  /// Makes it an ordinary, durable file; what lies behind `end` is hidden. The work depends on the number of samples,
  /// not on the size of the media.
  Result<void> finish(std::optional<MediaTime> end);

  std::uint64_t size() const { return end_; }
  std::uint64_t mediaSize() const { return end_ - mediaBegin_; }
  bool hasBegun() const { return index_.has_value(); }
  MediaTime duration() const;

 private:
  MovieFile(RandomAccessFile file, FileRange room, Limits limits)
      : file_(std::move(file)), room_(room), limits_(limits), mediaBegin_(room.end), end_(room.end) {}

  Result<void> adoptMovie(Bytes movie);
  Result<void> indexFragment(ByteSpan fragment, std::uint64_t offset);
  Result<void> scanFragments(std::uint64_t fileSize);
  Result<void> finishInRoom(ByteSpan movie);
  Result<void> finishBehind(ByteSpan movie);
  Result<void> replaceByCopy(std::optional<MediaTime> end);

  RandomAccessFile file_;
  FileRange room_;  ///< the free box, its header included
  Limits limits_;
  Bytes movie_;  ///< the fragmented movie's moov box
  std::optional<FragmentIndex> index_;
  std::uint64_t mediaBegin_;  ///< of the first fragment
  std::uint64_t end_;         ///< of the last complete fragment
};

}  // namespace quillbeam
