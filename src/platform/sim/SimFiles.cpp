#include "platform/sim/SimFiles.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/Value.h"

namespace quillbeam {

struct SimFiles::Node {
  FileKind kind = FileKind::regular;
  Bytes live;
  Bytes durable;
  Date modified;
  const Lock* holder = nullptr;
};

class SimFiles::Lock final : public FileLock {
 public:
  explicit Lock(NodePtr node) : node_(std::move(node)) { node_->holder = this; }
  ~Lock() override {
    if (node_->holder == this) node_->holder = nullptr;
  }

 private:
  NodePtr node_;
};

namespace {

bool isBelow(std::string_view path, std::string_view ancestor) {
  if (!path.starts_with(ancestor)) return false;
  return path.size() == ancestor.size() || ancestor == "/" || path[ancestor.size()] == '/';
}

Error failure(std::string_view doing, const Path& path, int errorNumber) {
  return systemError(std::string(doing) + " " + path, errorNumber);
}

}  // namespace

SimFiles::SimFiles(Dispatch& clock, std::uint64_t seed) : clock_(clock), random_(seed) {
  auto root = std::make_shared<Node>();
  root->kind = FileKind::directory;
  live_["/"] = durable_["/"] = root;
}

SimFiles::~SimFiles() = default;

// ---- the tree and its journal

void SimFiles::eraseBelow(Tree& tree, const Path& path) {
  std::erase_if(tree, [&](const auto& entry) { return isBelow(entry.first, path); });
}

void SimFiles::apply(Tree& tree, const Change& change) {
  if (change.node) {
    tree[change.path] = change.node;
  } else if (change.target.empty()) {
    eraseBelow(tree, change.path);
  } else {
    eraseBelow(tree, change.target);
    Tree moved;
    for (const auto& [path, node] : tree) {
      if (isBelow(path, change.path)) moved[change.target + path.substr(change.path.size())] = node;
    }
    eraseBelow(tree, change.path);
    tree.merge(moved);
  }
}

void SimFiles::change(Change change) {
  apply(live_, change);
  uncommitted_.push_back(std::move(change));
}

void SimFiles::commitChanges() {
  durable_ = live_;
  uncommitted_.clear();
}

// ---- steps

Result<void> SimFiles::step(std::string_view doing, const Path& path) {
  ++steps_;
  if (dyingStep_ && steps_ >= *dyingStep_) dead_ = true;
  if (dead_) return failure(doing, path, EIO);
  if (const auto failing = failingSteps_.extract(steps_)) return failure(doing, path, failing.mapped());
  for (const auto& [prefix, errorNumber] : failingPaths_) {
    if (isBelow(path, prefix)) return failure(doing, path, errorNumber);
  }
  return success;
}

Result<SimFiles::NodePtr> SimFiles::find(std::string_view doing, const Path& path) {
  const auto found = live_.find(path);
  if (found != live_.end()) return found->second;
  const Path parent(parentDirectory(path));
  const auto above = live_.find(parent);
  const bool insideFile = above != live_.end() && above->second->kind == FileKind::regular;
  return failure(doing, path, insideFile ? ENOTDIR : ENOENT);
}

Result<void> SimFiles::requireDirectory(std::string_view doing, const Path& path) {
  TRY(const NodePtr node, find(doing, path));
  if (node->kind != FileKind::directory) return failure(doing, path, ENOTDIR);
  return success;
}

Result<SimFiles::NodePtr> SimFiles::create(const Path& path) {
  TRY_VOID(step("create", path));
  TRY_VOID(requireDirectory("create", Path(parentDirectory(path))));
  if (live_.contains(path)) return failure("create", path, EEXIST);
  auto node = std::make_shared<Node>();
  node->modified = clock_.now();
  change({.path = path, .node = node});
  return node;
}

Result<void> SimFiles::write(Node& node, const ByteChain& bytes, const Path& path) {
  TRY_VOID(step("write", path));
  if (static_cast<std::int64_t>(bytes.size()) > capacity_ - usedSpace()) return failure("write", path, ENOSPC);
  bytes.forEach([&](ByteSpan span) { node.live.insert(node.live.end(), span.begin(), span.end()); });
  node.modified = clock_.now();
  return success;
}

Result<void> SimFiles::sync(Node& node, const Path& path) {
  TRY_VOID(step("sync", path));
  node.durable = node.live;
  return success;
}

Result<void> SimFiles::syncEntries(const Path& path) {
  TRY_VOID(step("sync", Path(parentDirectory(path))));
  commitChanges();
  return success;
}

Result<void> SimFiles::fill(const NodePtr& node, const Path& path, const ByteChain& bytes, Durability durability) {
  TRY_VOID(write(*node, bytes, path));
  if (durability == Durability::durable) TRY_VOID(sync(*node, path));
  return success;
}

/// Takes an unfinished file away again, which a dead process can't.
void SimFiles::discard(const Path& path) {
  if (!dead_) change({.path = path});
}

std::int64_t SimFiles::usedSpace() const {
  std::int64_t used = 0;
  for (const auto& [path, node] : live_) used += static_cast<std::int64_t>(node->live.size());
  return used;
}

// ---- the port

Result<void> SimFiles::createDirectories(const Path& path) {
  if (const auto found = live_.find(path); found != live_.end() && !dead_) {
    if (found->second->kind == FileKind::directory) return success;
    return failure("create the directory", path, EEXIST);
  }
  const Path parent(parentDirectory(path));
  if (path.size() > 1 && !live_.contains(parent)) TRY_VOID(createDirectories(parent));
  TRY_VOID(step("create the directory", path));
  TRY_VOID(requireDirectory("create the directory", parent));
  auto node = std::make_shared<Node>();
  node->kind = FileKind::directory;
  node->modified = clock_.now();
  change({.path = path, .node = std::move(node)});
  return success;
}

Result<void> SimFiles::writeAtomically(const Path& path, const ByteChain& bytes) {
  const Path temporary = joined(Path(parentDirectory(path)), "." + std::to_string(nextTemporary_++) + ".tmp");
  TRY(const NodePtr node, create(temporary));
  Result<void> written = fill(node, temporary, bytes, Durability::durable);
  if (written) written = rename(temporary, path);
  if (!written) {
    discard(temporary);
    return written;
  }
  return syncEntries(path);
}

Result<void> SimFiles::copyNew(const FilePiece& from, const Path& path) {
  TRY(Bytes bytes, readRange(from.file, from.offset, from.count));
  if (std::cmp_less(bytes.size(), from.count)) return FilesError::endOfFile;
  return writeNew(path, ByteChain(std::move(bytes)), Durability::durable);
}

Result<void> SimFiles::appendCopy(const FilePiece& from, const Path& path) {
  TRY(Bytes bytes, readRange(from.file, from.offset, from.count));
  if (std::cmp_less(bytes.size(), from.count)) return FilesError::endOfFile;
  return append(path, ByteChain(std::move(bytes)), Durability::cached);
}

Result<void> SimFiles::writeNew(const Path& path, const ByteChain& bytes, Durability durability) {
  TRY(const NodePtr node, create(path));
  Result<void> written = fill(node, path, bytes, durability);
  if (written && durability == Durability::durable) written = syncEntries(path);
  if (!written) discard(path);
  return written;
}

Result<void> SimFiles::append(const Path& path, const ByteChain& bytes, Durability durability) {
  NodePtr node;
  if (live_.contains(path)) {
    TRY_VOID(step("open", path));
    node = live_[path];
    if (node->kind == FileKind::directory) return failure("open", path, EISDIR);
  } else {
    TRY(node, create(path));
  }
  TRY_VOID(fill(node, path, bytes, durability));
  if (durability == Durability::durable) TRY_VOID(syncEntries(path));
  return success;
}

Result<Bytes> SimFiles::read(const Path& path) {
  TRY_VOID(step("read", path));
  TRY(const NodePtr node, find("open", path));
  if (node->kind == FileKind::directory) return failure("read", path, EISDIR);
  return node->live;
}

Result<Bytes> SimFiles::readRange(const Path& path, std::int64_t offset, std::int64_t count) {
  TRY(const Bytes all, read(path));
  const auto size = static_cast<std::int64_t>(all.size());
  const std::int64_t from = std::min(offset, size);
  return Bytes(all.begin() + from, all.begin() + std::min(from + count, size));
}

Result<std::vector<std::string>> SimFiles::list(const Path& directory) {
  TRY_VOID(step("list", directory));
  TRY_VOID(requireDirectory("list", directory));
  std::vector<std::string> names;
  for (const auto& [path, node] : live_) {
    if (path != "/" && parentDirectory(path) == directory) names.emplace_back(fileName(path));
  }
  std::ranges::sort(names);
  return names;
}

Result<FileInfo> SimFiles::info(const Path& path) {
  TRY_VOID(step("stat", path));
  TRY(const NodePtr node, find("stat", path));
  return FileInfo{.kind = node->kind, .size = static_cast<std::int64_t>(node->live.size()), .modified = node->modified};
}

bool SimFiles::exists(const Path& path) { return !dead_ && live_.contains(path); }

Result<void> SimFiles::checkRename(const Path& from, const Path& to) {
  TRY(const NodePtr moved, find("rename", from));
  TRY_VOID(requireDirectory("rename", Path(parentDirectory(to))));
  const auto replaced = live_.find(to);
  if (replaced == live_.end()) return success;
  const bool ontoDirectory = replaced->second->kind == FileKind::directory;
  if (moved->kind == FileKind::directory && !ontoDirectory) return failure("rename", from, ENOTDIR);
  if (moved->kind != FileKind::directory && ontoDirectory) return failure("rename", from, EISDIR);
  const auto isInside = [&](const auto& entry) { return entry.first != to && isBelow(entry.first, to); };
  if (std::ranges::any_of(live_, isInside)) return failure("rename", from, ENOTEMPTY);
  return success;
}

Result<void> SimFiles::rename(const Path& from, const Path& to) {
  TRY_VOID(step("rename", from));
  TRY_VOID(checkRename(from, to));
  if (from == to) return success;
  if (isBelow(to, from)) return failure("rename", from, EINVAL);
  change({.path = from, .target = to});
  return success;
}

Result<void> SimFiles::remove(const Path& path) {
  TRY_VOID(step("remove", path));
  TRY_VOID(find("remove", path));
  change({.path = path});
  return success;
}

Result<std::int64_t> SimFiles::freeSpace(const Path& path) {
  TRY_VOID(step("measure the free space at", path));
  return capacity_ - usedSpace();
}

Result<std::unique_ptr<FileLock>> SimFiles::lock(const Path& path, std::string_view note) {
  if (!live_.contains(path)) TRY_VOID(create(path));
  TRY_VOID(step("lock", path));
  const NodePtr node = live_[path];
  if (node->kind == FileKind::directory) return failure("open", path, EISDIR);
  if (node->holder != nullptr) {
    return Error(FilesError::locked).withPayload(std::string(node->live.begin(), node->live.end()));
  }
  node->live.assign(note.begin(), note.end());
  return std::make_unique<Lock>(node);
}

// ---- faults

void SimFiles::setFreeSpace(std::int64_t bytes) { capacity_ = usedSpace() + bytes; }

void SimFiles::failStep(std::uint64_t nth, int errorNumber) { failingSteps_[steps_ + nth] = errorNumber; }

void SimFiles::failBelow(const Path& path, int errorNumber) {
  if (errorNumber == 0) {
    failingPaths_.erase(path);
  } else {
    failingPaths_[path] = errorNumber;
  }
}

void SimFiles::dieAtStep(std::uint64_t nth) { dyingStep_ = steps_ + nth; }

void SimFiles::processDeath() {
  for (const auto& [path, node] : live_) node->holder = nullptr;
  dyingStep_.reset();
  dead_ = false;
}

void SimFiles::powerCut(PowerCut cut) {
  std::size_t survivors = 0;
  if (cut == PowerCut::keepUnsynced) survivors = uncommitted_.size();
  if (cut == PowerCut::tearUnsynced) survivors = random_.below(uncommitted_.size() + 1);
  for (std::size_t index = 0; index < survivors; ++index) apply(durable_, uncommitted_[index]);
  uncommitted_.clear();
  live_ = durable_;
  for (const auto& [path, node] : live_) settle(*node, cut);
  processDeath();
}

void SimFiles::settle(Node& node, PowerCut cut) {
  const std::uint64_t fate = cut == PowerCut::tearUnsynced ? random_.below(3) : 0;
  if (cut == PowerCut::dropUnsynced || (cut == PowerCut::tearUnsynced && fate == 0)) {
    node.live = node.durable;
  } else if (fate == 1 && node.live.size() > node.durable.size()) {
    // The size is on the device, the last blocks of it are not: they read as zeros.
    const std::uint64_t unsynced = node.live.size() - node.durable.size();
    const auto kept = static_cast<std::ptrdiff_t>(node.durable.size() + random_.below(unsynced));
    std::fill(node.live.begin() + kept, node.live.end(), std::uint8_t{0});
    if (random_.below(2) == 0) node.live.resize(static_cast<std::size_t>(kept));
  }
  node.durable = node.live;
}

}  // namespace quillbeam
