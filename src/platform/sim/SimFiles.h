#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/Files.h"
#include "platform/sim/SimRandomSource.h"

namespace quillbeam {

/// What becomes, when the power goes, of everything that was not made durable.
enum class PowerCut {
  dropUnsynced,  ///< nothing of it is left
  keepUnsynced,  ///< all of it happened to be on the device
  tearUnsynced,  ///< the seed decides: a prefix of the directory changes; of each file nothing, all, or a torn part
};

/// A disk that knows what is on the device and what is only in memory. Directory changes reach the device in the order
/// in which they were made, all of them with the next durable call (as a journaling file system does it); the content
/// of a file when that file is synced. One thread.
///
/// Every call consists of one or more steps (an atomic write: create, write, sync, rename, sync of the directory),
/// which are the points where a fault can be put.
class SimFiles final : public Files {
 public:
  explicit SimFiles(Dispatch& clock, std::uint64_t seed = 1);
  ~SimFiles() override;

  Result<void> createDirectories(const Path& path) override;
  Result<void> writeAtomically(const Path& path, const ByteChain& bytes) override;
  Result<void> copyNew(const FilePiece& from, const Path& path) override;
  Result<void> appendCopy(const FilePiece& from, const Path& path) override;
  Result<void> writeNew(const Path& path, const ByteChain& bytes, Durability durability) override;
  Result<void> append(const Path& path, const ByteChain& bytes, Durability durability) override;
  Result<Bytes> read(const Path& path) override;
  Result<Bytes> readRange(const Path& path, std::int64_t offset, std::int64_t count) override;
  Result<std::vector<std::string>> list(const Path& directory) override;
  Result<FileInfo> info(const Path& path) override;
  bool exists(const Path& path) override;
  Result<void> rename(const Path& from, const Path& to) override;
  Result<void> remove(const Path& path) override;
  Result<std::int64_t> freeSpace(const Path& path) override;
  Result<std::unique_ptr<FileLock>> lock(const Path& path, std::string_view note) override;

  // The test's side.

  /// Steps that have been taken so far, failed ones included.
  std::uint64_t stepCount() const { return steps_; }
  /// The `nth` step from now (1: the next one) fails with `errorNumber`; the ones after it work again.
  void failStep(std::uint64_t nth, int errorNumber);
  /// Every step on `path` and below it fails with `errorNumber`; 0 ends that.
  void failBelow(const Path& path, int errorNumber);
  /// The process dies at the `nth` step from now: that step and all later ones do nothing and fail with EIO, until
  /// `processDeath` or `powerCut` tells how it went on.
  void dieAtStep(std::uint64_t nth);
  bool isDead() const { return dead_; }
  /// From now on nothing works, as after `dieAtStep`.
  void die() { dead_ = true; }
  /// What all files together may still grow by; writing uses it up, removing gives it back.
  void setFreeSpace(std::int64_t bytes);

  /// The process is gone, the machine runs on: locks are released, memory is kept. A new process may begin.
  void processDeath();
  /// The power went and came back: locks are released, `cut` says what was lost. A new process may begin.
  void powerCut(PowerCut cut);

 private:
  struct Node;
  using NodePtr = std::shared_ptr<Node>;
  using Tree = std::map<Path, NodePtr>;
  class Lock;
  /// One directory change: a link (node), a removal with all below (no node, no target), a move (target).
  struct Change {
    Path path;
    NodePtr node;
    Path target;
  };

  static void apply(Tree& tree, const Change& change);
  static void eraseBelow(Tree& tree, const Path& path);
  void change(Change change);
  void commitChanges();
  void settle(Node& node, PowerCut cut);

  Result<void> step(std::string_view doing, const Path& path);
  Result<NodePtr> find(std::string_view doing, const Path& path);
  Result<void> requireDirectory(std::string_view doing, const Path& path);
  Result<void> checkRename(const Path& from, const Path& to);
  Result<NodePtr> create(const Path& path);
  Result<void> write(Node& node, const ByteChain& bytes, const Path& path);
  Result<void> sync(Node& node, const Path& path);
  Result<void> syncEntries(const Path& path);
  Result<void> fill(const NodePtr& node, const Path& path, const ByteChain& bytes, Durability durability);
  void discard(const Path& path);
  std::int64_t usedSpace() const;

  Dispatch& clock_;
  SimRandomSource random_;
  Tree live_;
  Tree durable_;
  std::vector<Change> uncommitted_;  // live_ = durable_ + these
  std::uint64_t steps_ = 0;
  std::optional<std::uint64_t> dyingStep_;
  std::map<std::uint64_t, int> failingSteps_;
  std::map<Path, int> failingPaths_;
  std::int64_t capacity_ = std::int64_t{1} << 40;
  std::uint64_t nextTemporary_ = 0;
  bool dead_ = false;
};

}  // namespace quillbeam
