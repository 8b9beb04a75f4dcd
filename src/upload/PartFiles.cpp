#include "upload/PartFiles.h"

#include <cerrno>
#include <tuple>

#include "upload/SessionLogText.h"

namespace quillbeam {

namespace {

constexpr std::string_view partInfix = "_part";

}  // namespace

PartFiles::PartFiles(Platform& platform, const Logger& logger)
    : files_(platform.files),
      logger_(logger),
      diskQueue_(platform.dispatch.makeSerialQueue("io.quillbeam.macos.upload.partfiles")) {
  for (auto& queue : writeQueues_) queue = platform.dispatch.makeSerialQueue("io.quillbeam.macos.upload.partwrites");
  createDirectory(platform.places);
}

void PartFiles::createDirectory(const Places& places) {
  const auto path = inApplicationSupport(places, "temp_chunks");
  if (!path) return logger_.error("Failed to get Application Support directory for temp directory");
  const auto created = files_.createDirectories(*path);
  if (!created) return logger_.error("Failed to create temp chunk directory: " + created.error().description());
  directory_ = path;
  logger_.info("Temp chunk directory created: " + *path);
}

Path PartFiles::path(const std::string& sessionId, int partNumber) const {
  return joined(*directory_, sessionId + std::string(partInfix) + std::to_string(partNumber) + ".chunk");
}

std::int64_t sizeOf(const PartContent& content) {
  if (const auto* range = std::get_if<FilePiece>(&content)) return range->count;
  return static_cast<std::int64_t>(std::get<ByteChain>(content).size());
}

Task<void> PartFiles::write(Path file, PartContent content) {
  auto work = [this, file, content = std::move(content)]() -> Result<void> {
    // Nothing refers to the file before it is whole: it needs no other name until then, whose change would cost the
    // device a second turn.
    std::ignore = files_.remove(file);
    const auto* piece = std::get_if<FilePiece>(&content);
    auto written = piece != nullptr ? files_.copyNew(*piece, file)
                                    : files_.writeNew(file, std::get<ByteChain>(content), Durability::durable);
    // The name may be there though it could not be made durable.
    if (!written) std::ignore = files_.remove(file);
    return written;
  };
  // While one waits for the device the next one can be written.
  DispatchQueue& queue = *writeQueues_[nextWriteQueue_++ % writeQueues_.size()];
  co_return co_await runOn<void>(queue, std::move(work));
}

Task<std::optional<std::int64_t>> PartFiles::size(Path file) {
  using Size = std::optional<std::int64_t>;
  auto work = [this, file]() -> Result<Size> {
    const auto info = files_.info(file);
    if (info) return Size(info->size);
    if (info.error().code() == ENOENT) return Size();
    return info.error();
  };
  co_return co_await runOn<Size>(*diskQueue_, std::move(work));
}

void PartFiles::remove(const Path& file) {
  diskQueue_->async([this, file] { std::ignore = files_.remove(file); });
}

void PartFiles::cleanupTempFiles(const std::string& sessionId) {
  if (!directory_) return;
  diskQueue_->async([this, sessionId] {
    const auto names = files_.list(*directory_);
    if (!names) return logger_.error("Failed to cleanup temp files: " + names.error().description());
    for (const std::string& name : *names) {
      if (name.starts_with(sessionId)) std::ignore = files_.remove(joined(*directory_, name));
    }
    logger_.info("Cleaned up temp files for session " + shortSessionId(sessionId));
  });
}

Task<std::vector<std::string>> PartFiles::list() {
  using Names = std::vector<std::string>;
  if (!directory_) co_return Names();
  auto work = [this]() -> Result<Names> { return files_.list(*directory_); };
  co_return co_await runOn<Names>(*diskQueue_, work);
}

void PartFiles::sweep(std::vector<std::string> names, const std::set<std::string>& sessionIds) {
  for (const std::string& name : names) {
    const auto owner = sessionOfPartFile(name);
    if (!owner || !sessionIds.contains(*owner)) remove(joined(*directory_, name));
  }
}

Task<void> PartFiles::flushed() { return drained(*diskQueue_); }

std::optional<std::string> sessionOfPartFile(std::string_view name) {
  const auto infix = name.rfind(partInfix);
  if (infix == std::string_view::npos || !name.ends_with(".chunk")) return std::nullopt;
  return std::string(name.substr(0, infix));
}

}  // namespace quillbeam
