#include "platform/linux/ffmpeg/MovieFile.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include "base/Check.h"
#include "platform/linux/ffmpeg/MovieIndex.h"

namespace quillbeam {

namespace {

constexpr std::uint64_t smallHeader = 8;
constexpr std::uint64_t largeHeader = 16;
constexpr std::uint64_t largestMovieHeader = 1024 * 1024;
constexpr std::uint64_t largestFragmentHeader = 64 * 1024 * 1024;

std::vector<const char*> brandsOf(MovieFileType type) {
  switch (type) {
    case MovieFileType::mpeg4:
      return {"isom", "iso2", "avc1", "mp41", "iso5", "iso6"};
    case MovieFileType::appleM4A:
      return {"M4A ", "mp42", "isom", "iso2", "iso5", "iso6"};
  }
  std::unreachable();
}

/// The first brand is the one that the file is best taken for.
Bytes fileType(MovieFileType type) {
  const auto brands = brandsOf(type);
  BoxWriter writer;
  writer.box(boxType("ftyp"), [&](BoxWriter& box) {
    box.type(boxType(brands.front()));
    box.u32(0x200);
    for (const char* brand : brands) box.type(boxType(brand));
  });
  return writer.take();
}

Bytes header(BoxType type, std::uint64_t size) {
  BoxWriter writer;
  writer.u32(static_cast<std::uint32_t>(size));
  writer.type(type);
  return writer.take();
}

Bytes header64(BoxType type, std::uint64_t size) {
  BoxWriter writer;
  writer.u32(1);
  writer.type(type);
  writer.u64(size);
  return writer.take();
}

Path copyPathOf(const Path& path) { return path + ".finishing"; }

Result<BoxHeader> readHeader(const RandomAccessFile& file, std::uint64_t offset) {
  TRY(const Bytes bytes, file.read(offset, BoxHeader::maxSize));
  const auto header = BoxHeader::parse(bytes);
  if (!header) return CommonError::malformedData;
  return *header;
}

}  // namespace

Result<MovieFile> MovieFile::create(const Path& path, MovieFileType type, Limits limits) {
  TRY(RandomAccessFile file, RandomAccessFile::create(path));
  const Bytes brands = fileType(type);
  const FileRange room{brands.size(), brands.size() + limits.indexRoom};
  const auto prepare = [&]() -> Result<void> {
    TRY_VOID(file.write(0, brands));
    TRY_VOID(file.reserve(room));
    return file.write(room.begin, header(boxType("free"), limits.indexRoom));
  };
  if (auto prepared = prepare(); !prepared) {
    ::unlink(path.c_str());
    return prepared.error();
  }
  return MovieFile(std::move(file), room, limits);
}

Result<void> MovieFile::adoptMovie(Bytes movie) {
  TRY(index_, FragmentIndex::create(movie));
  movie_ = std::move(movie);
  return success;
}

Result<void> MovieFile::begin(ByteSpan initialization) {
  QB_CHECK(!index_);
  const auto boxes = parseBoxes(initialization);
  const auto movie = boxes ? findBox(*boxes, boxType("moov")) : std::nullopt;
  if (!movie) return CommonError::malformedData;
  TRY_VOID(adoptMovie(Bytes(movie->bytes.begin(), movie->bytes.end())));
  TRY_VOID(file_.write(end_, movie_));
  end_ += movie_.size();
  mediaBegin_ = end_;
  return success;
}

Result<void> MovieFile::append(ByteSpan fragment) {
  QB_CHECK(index_);
  if (auto written = file_.write(end_, fragment); !written) {
    (void)file_.truncate(end_);
    return written;
  }
  file_.startWriteback({end_, end_ + fragment.size()});
  return indexFragment(fragment, end_);
}

Result<void> MovieFile::indexFragment(ByteSpan fragment, std::uint64_t offset) {
  const auto boxes = parseBoxes(fragment);
  if (!boxes) return CommonError::malformedData;
  std::optional<BoxView> pending;
  for (const BoxView& box : *boxes) {
    const std::uint64_t end = offset + box.bytes.size();
    if (box.type == boxType("moof")) {
      pending = box;
    } else if (box.type == boxType("mdat") && pending) {
      TRY_VOID(index_->add(pending->bytes, offset - pending->bytes.size(), {end - box.payload.size(), end}));
      end_ = end;
    }
    offset = end;
  }
  return success;
}

Result<MovieFile> MovieFile::reopen(RandomAccessFile file, Limits limits) {
  TRY(const std::uint64_t size, file.size());
  const auto notOurs = [] { return Error(AssetWriterError::notRecoverable); };
  const auto type = readHeader(file, 0);
  if (!type || type->type != boxType("ftyp")) return notOurs();
  const auto room = readHeader(file, type->size);
  if (!room || room->type != boxType("free") || room->headerSize != smallHeader || room->size > size) return notOurs();
  const std::uint64_t movieBegin = type->size + room->size;
  const auto movie = readHeader(file, movieBegin);
  if (!movie || movie->type != boxType("moov") || movie->size > largestMovieHeader) return notOurs();

  TRY(Bytes movieBytes, file.read(movieBegin, movie->size));
  MovieFile found(std::move(file), {type->size, movieBegin}, limits);
  if (!found.adoptMovie(std::move(movieBytes))) return notOurs();
  found.mediaBegin_ = found.end_ = movieBegin + movie->size;
  TRY_VOID(found.scanFragments(size));
  if (found.index_->fragmentCount() == 0) return notOurs();
  return found;
}

Result<void> MovieFile::scanFragments(std::uint64_t fileSize) {
  while (true) {
    const auto fragment = readHeader(file_, end_);
    if (!fragment || fragment->type != boxType("moof") || fragment->size > largestFragmentHeader) return success;
    const std::uint64_t mediaBegin = end_ + fragment->size;
    const auto media = readHeader(file_, mediaBegin);
    if (!media || media->type != boxType("mdat") || mediaBegin > fileSize || media->size > fileSize - mediaBegin) {
      return success;
    }
    TRY(const Bytes bytes, file_.read(end_, fragment->size));
    const FileRange payload{mediaBegin + media->headerSize, mediaBegin + media->size};
    if (!index_->add(bytes, end_, payload)) return success;
    end_ = payload.end;
  }
}

void MovieFile::discardUnfinishedCopy(const Path& path) { ::unlink(copyPathOf(path).c_str()); }

MediaTime MovieFile::duration() const {
  return index_ ? MovieIndex(movie_, *index_, std::nullopt).duration() : MediaTime::zero();
}

Result<void> MovieFile::finish(std::optional<MediaTime> end) {
  QB_CHECK(index_);
  // Behind the last complete fragment there may be a torn one, or an index that was cut short.
  TRY_VOID(file_.truncate(end_));
  TRY_VOID(file_.sync());
  const Bytes movie = MovieIndex(movie_, *index_, end).build(0);
  const std::uint64_t room = room_.end - room_.begin;
  TRY_VOID(movie.size() + smallHeader + largeHeader <= room ? finishInRoom(movie) : finishBehind(movie));
  // The file is finished; the copy only saves space, so its failure is none.
  if (mediaSize() <= limits_.largestCopy) (void)replaceByCopy(end);
  return success;
}

Result<void> MovieFile::finishInRoom(ByteSpan movie) {
  const std::uint64_t movieEnd = room_.begin + movie.size();
  const std::uint64_t mediaHeader = room_.end - largeHeader;
  TRY_VOID(file_.write(movieEnd, header(boxType("free"), mediaHeader - movieEnd)));
  TRY_VOID(file_.write(mediaHeader, header64(boxType("mdat"), end_ - mediaHeader)));
  TRY_VOID(file_.write(room_.begin + smallHeader, movie.subspan(smallHeader)));
  TRY_VOID(file_.sync());
  TRY_VOID(file_.write(room_.begin, movie.first(smallHeader)));
  TRY_VOID(file_.sync());
  file_.release({movieEnd + smallHeader, mediaHeader});
  return success;
}

Result<void> MovieFile::finishBehind(ByteSpan movie) {
  // Hidden first, so that a torn index is never taken for one.
  Bytes hidden(movie.begin(), movie.end());
  const Bytes hiddenHeader = header(boxType("free"), movie.size());
  std::ranges::copy(hiddenHeader, hidden.begin());
  if (auto written = file_.write(end_, hidden); !written) {
    (void)file_.truncate(end_);
    return written;
  }
  TRY_VOID(file_.sync());
  TRY_VOID(file_.write(end_, movie.first(smallHeader)));
  const Bytes mediaHeader = header64(boxType("mdat"), end_ - room_.begin);
  TRY_VOID(file_.write(room_.begin + smallHeader, ByteSpan(mediaHeader).subspan(smallHeader)));
  TRY_VOID(file_.sync());
  TRY_VOID(file_.write(room_.begin, ByteSpan(mediaHeader).first(smallHeader)));
  TRY_VOID(file_.sync());
  file_.release({room_.begin + largeHeader, room_.end});
  return success;
}

Result<void> MovieFile::replaceByCopy(std::optional<MediaTime> end) {
  const Path copyPath = copyPathOf(file_.path());
  TRY(const Bytes brands, file_.read(0, room_.begin));
  const MovieIndex index(movie_, *index_, end);
  const std::uint64_t movieSize = index.build(0).size();
  const std::uint64_t mediaHeader = brands.size() + movieSize;
  const std::uint64_t media = mediaHeader + smallHeader;
  ::unlink(copyPath.c_str());
  TRY(RandomAccessFile copy, RandomAccessFile::create(copyPath));
  const auto fill = [&]() -> Result<void> {
    const auto shift = static_cast<std::int64_t>(media) - static_cast<std::int64_t>(mediaBegin_);
    TRY_VOID(copy.write(0, brands));
    TRY_VOID(copy.write(brands.size(), index.build(shift)));
    TRY_VOID(copy.write(mediaHeader, header(boxType("mdat"), smallHeader + mediaSize())));
    TRY_VOID(copy.copy(file_, {mediaBegin_, end_}, media));
    TRY_VOID(copy.sync());
    if (::rename(copyPath.c_str(), file_.path().c_str()) < 0) return systemError("Replacing " + file_.path(), errno);
    return success;
  };
  if (auto filled = fill(); !filled) {
    ::unlink(copyPath.c_str());
    return filled;
  }
  syncDirectoryOf(file_.path());
  end_ = media + mediaSize();
  file_ = std::move(copy);
  return success;
}

}  // namespace quillbeam
