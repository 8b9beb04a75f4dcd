#include "UploadStore.h"

#include <openssl/rand.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "Digest.h"
#include "DiskFiles.h"
#include "Refusal.h"

namespace quillbeam::service {

namespace fs = std::filesystem;
using nlohmann::json;
using nlohmann::ordered_json;

namespace {

constexpr std::size_t pieceSize = 1024 * 1024;

std::string freshId(const std::string& prefix) {
  std::array<unsigned char, 12> bytes;
  RAND_bytes(bytes.data(), bytes.size());
  return prefix + hexadecimal({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

Refusal noSuchUpload() { return {404, "NoSuchUpload", "There is no such upload, or it was completed or aborted"}; }

void requireSame(const json& record, const Destination& destination) {
  if (record.at("team") != destination.team || record.at("folder") != destination.folder) throw noSuchUpload();
}

}  // namespace

UploadStore::UploadStore(fs::path root) : uploads_(root / "uploads"), files_(root / "files") {
  fs::create_directories(uploads_);
  fs::create_directories(files_);
}

UploadFolder UploadStore::folderOf(const UploadIds& ids) const {
  return UploadFolder(uploads_ / ids.fileId / ids.uploadId);
}

std::mutex& UploadStore::mutexOf(const UploadIds& ids) {
  const std::lock_guard lock(mutex_);
  return uploadMutexes_[ids.uploadId];
}

UploadIds UploadStore::begin(const Destination& destination, const std::string& contentType,
                             const std::optional<std::string>& source) {
  const UploadIds ids{freshId("file-"), freshId("upload-")};
  const UploadFolder folder = folderOf(ids);
  fs::create_directories(folder.path());
  const ordered_json record{{"team", destination.team},
                            {"folder", destination.folder},
                            {"contentType", contentType},
                            {"source", source ? ordered_json(*source) : ordered_json()}};
  replaceFile(folder.recordFile(), record.dump(2) + "\n");
  return ids;
}

bool UploadStore::isAssembled(const UploadIds& ids) const { return fs::exists(recordOfFile(ids.fileId)); }

json UploadStore::requireKnown(const Destination& destination, const UploadIds& ids) const {
  const fs::path file = folderOf(ids).recordFile();
  if (!fs::exists(file)) throw noSuchUpload();
  json record = json::parse(readFile(file));
  requireSame(record, destination);
  return record;
}

void UploadStore::requireOpen(const UploadIds& ids) const {
  if (isAssembled(ids) || !fs::exists(folderOf(ids).recordFile())) throw noSuchUpload();
}

void UploadStore::requireOpen(const Destination& destination, const UploadIds& ids) const {
  requireKnown(destination, ids);
  requireOpen(ids);
}

void UploadStore::requireFile(const Destination& destination, const std::string& fileId) const {
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(uploads_ / fileId, none)) {
    requireKnown(destination, {fileId, entry.path().filename()});
    return;
  }
  throw Refusal(404, "NoSuchFile", "There is no such file");
}

std::unique_ptr<PartWriter> UploadStore::openPart(const UploadIds& ids, int part) {
  requireOpen(ids);
  // Two requests for one part may be under way; what a former process left is in nobody's way.
  const std::string suffix = "." + std::to_string(::getpid()) + "-" + std::to_string(++partials_) + ".partial";
  return std::make_unique<PartWriter>(folderOf(ids).partFile(part) += suffix);
}

void UploadStore::storePart(const UploadIds& ids, int part, PartWriter& written) {
  const std::lock_guard lock(mutexOf(ids));
  requireOpen(ids);
  written.moveTo(folderOf(ids).partFile(part));
}

ordered_json UploadStore::assemble(const UploadIds& ids, const std::vector<fs::path>& parts) const {
  const fs::path place = files_ / ids.fileId;
  const fs::path partial = files_ / (ids.fileId + ".partial");
  OpenFile whole(partial, O_WRONLY | O_CREAT | O_TRUNC);
  Digest digest(Digest::Kind::sha256);
  std::string piece(pieceSize, '\0');
  for (const fs::path& path : parts) {
    OpenFile part(path, O_RDONLY);
    while (const std::size_t size = part.read(piece.data(), piece.size())) {
      const std::string_view read(piece.data(), size);
      whole.write(read);
      digest.update(read);
    }
  }
  fs::rename(partial, place);
  return {{"size", fs::file_size(place)}, {"parts", parts.size()}, {"sha256", digest.finish()}};
}

void UploadStore::finalize(const Destination& destination, const UploadIds& ids, const json& file) {
  const std::lock_guard lock(mutexOf(ids));
  json upload = requireKnown(destination, ids);
  if (isAssembled(ids)) return;
  const UploadFolder folder = folderOf(ids);
  ordered_json record{{"fileId", ids.fileId},
                      {"uploadId", ids.uploadId},
                      {"team", destination.team},
                      {"folder", destination.folder},
                      {"source", upload.at("source")}};
  record.update(ordered_json(file));
  record.update(assemble(ids, folder.wholeSequence()));
  upload["assemblies"] = upload.value("assemblies", 0) + 1;
  record["assemblies"] = upload["assemblies"];
  replaceFile(folder.recordFile(), upload.dump(2) + "\n");
  replaceFile(recordOfFile(ids.fileId), record.dump(2) + "\n");
  folder.removeParts();
}

void UploadStore::abort(const Destination& destination, const UploadIds& ids) {
  const std::lock_guard lock(mutexOf(ids));
  requireOpen(destination, ids);
  fs::remove_all(folderOf(ids).path());
}

}  // namespace quillbeam::service
