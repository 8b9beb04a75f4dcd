#include "platform/linux/ffmpeg/MovieRepair.h"

#include <optional>

#include "platform/linux/ffmpeg/MovieFile.h"

namespace quillbeam {

namespace {

constexpr std::uint64_t largestIndex = 1024 * 1024 * 1024;

/// The duration that an ordinary movie's moov box states; nullopt for a fragmented movie's.
std::optional<MediaTime> finishedDuration(ByteSpan movie) {
  const auto boxes = parseBoxes(movie);
  const auto header = boxes ? findBox(*boxes, boxType("mvhd")) : std::nullopt;
  if (!header || findBox(*boxes, boxType("mvex"))) return std::nullopt;
  BoxReader reader(header->payload);
  const bool wide = reader.u32() >> 24 == 1;
  reader.skip(wide ? 16 : 8);
  const std::uint32_t timescale = reader.u32();
  const std::uint64_t duration = wide ? reader.u64() : reader.u32();
  if (!reader.ok() || timescale == 0 || timescale > 0x7FFF'FFFF) return std::nullopt;
  return MediaTime(static_cast<std::int64_t>(duration), static_cast<std::int32_t>(timescale));
}

/// nullopt unless the file consists of whole boxes, an ordinary movie's index among them.
Result<std::optional<MediaTime>> inspectFinished(const RandomAccessFile& file) {
  TRY(const std::uint64_t size, file.size());
  std::optional<MediaTime> duration;
  for (std::uint64_t offset = 0; offset < size;) {
    TRY(const Bytes start, file.read(offset, BoxHeader::maxSize));
    const auto header = BoxHeader::parse(start);
    if (!header || header->size > size - offset) return std::optional<MediaTime>();
    if (header->type == boxType("moov")) {
      if (header->size > largestIndex) return std::optional<MediaTime>();
      TRY(const Bytes movie, file.read(offset + header->headerSize, header->size - header->headerSize));
      duration = finishedDuration(movie);
      if (!duration) return duration;
    }
    offset += header->size;
  }
  return duration;
}

/// An index that finishing had begun to put behind the media is nothing that was recorded.
std::int64_t tornBytes(const RandomAccessFile& file, std::uint64_t end, std::uint64_t size) {
  const auto start = file.read(end, BoxHeader::maxSize);
  const auto header = start ? BoxHeader::parse(*start) : std::nullopt;
  const bool isIndex = header && (header->type == boxType("free") || header->type == boxType("moov"));
  return isIndex ? 0 : static_cast<std::int64_t>(size - end);
}

}  // namespace

Result<RepairReport> repairMovie(const Path& path) {
  TRY(RandomAccessFile file, RandomAccessFile::open(path, RandomAccessFile::Mode::readWrite));
  TRY(const std::uint64_t size, file.size());
  TRY(const auto finished, inspectFinished(file));
  if (finished) {
    MovieFile::discardUnfinishedCopy(path);
    return RepairReport{*finished, 0, true};
  }

  TRY(MovieFile movie, MovieFile::reopen(std::move(file), MovieFile::Limits()));
  TRY(const RandomAccessFile reader, RandomAccessFile::open(path, RandomAccessFile::Mode::readOnly));
  const RepairReport report{movie.duration(), tornBytes(reader, movie.size(), size), false};
  TRY_VOID(movie.finish(std::nullopt));
  return report;
}

}  // namespace quillbeam
