#pragma once

#include <gmock/gmock.h>

#include <deque>
#include <map>
#include <ranges>

#include "backup/StoredRecordings.h"
#include "base/TaskScope.h"
#include "chunking/ChunkUploadDelegate.h"
#include "platform/NotificationCenter.h"
#include "platform/sim/SimWorld.h"

namespace quillbeam {

/// Takes parts and answers as it is told: parts from another queue, the rest at once, or each when it is asked to.
class FakeUpload final : public ChunkUploadDelegate {
 public:
  explicit FakeUpload(Dispatch& dispatch) : otherQueue_(dispatch.global()) {}

  void initializeUpload(UploadDescription description, Initialized completion) override {
    opened = std::move(description);
    Result<InitializeUploadResponse> answer = InitializeUploadResponse{"file-1"};
    if (openingError) answer = *openingError;
    give([completion = std::move(completion), answer]() mutable { completion(answer); });
  }
  void uploadChunk(ByteChain data, int partNumber, Done completion) override {
    partSizes.push_back(data.size());
    EXPECT_EQ(partNumber, static_cast<int>(partSizes.size()));
    data.forEach([this](ByteSpan slice) { received.insert(received.end(), slice.begin(), slice.end()); });
    const auto error = partErrors.find(partNumber);
    Result<void> answer = success;
    if (error != partErrors.end()) answer = error->second;
    otherQueue_.async([this, completion = std::move(completion), answer]() mutable {
      give([completion = std::move(completion), answer]() mutable { completion(answer); });
    });
  }
  void finalizeUpload(Done completion) override {
    ++completions;
    Result<void> answer = success;
    if (completionError) answer = *completionError;
    give([completion = std::move(completion), answer]() mutable { completion(answer); });
  }
  std::optional<std::string> tempFileId() const override { return temporaryId; }

  bool holdsAnswers = false;
  std::deque<Closure> held;
  void answerAll() {
    holdsAnswers = false;
    for (; !held.empty(); held.pop_front()) held.front()();
  }

  std::optional<Error> openingError;
  std::map<int, Error> partErrors;
  std::optional<Error> completionError;
  std::optional<std::string> temporaryId;

  std::optional<UploadDescription> opened;
  std::vector<std::size_t> partSizes;
  Bytes received;
  int completions = 0;

 private:
  void give(Closure answer) {
    if (!holdsAnswers) return answer();
    held.push_back(std::move(answer));
  }
  DispatchQueue& otherQueue_;
};

/// What chunk writers work in.
struct ChunkWorld {
  explicit ChunkWorld(std::uint64_t seed = 1) : world(seed) {}

  void start(Task<void> task) {
    tasks = std::make_unique<TaskScope>(platform.dispatch.main());
    tasks->start(std::move(task), [this](Result<void> result) { outcome = std::move(result); });
  }
  Result<void> await(Task<void> task) {
    start(std::move(task));
    world.dispatch.runUntil([&] { return outcome || world.files.isDead(); }, std::chrono::seconds(10));
    return outcome.value_or(CommonError::cancelled);
  }
  /// All that came out of the last writer, or its first segments.
  Bytes delivered(std::size_t segments = SIZE_MAX) {
    ByteChain all;
    if (world.mediaWriters.segmentedMovies().empty()) return {};
    for (const Segment& segment : world.mediaWriters.lastSegmentedMovie().segments | std::views::take(segments)) {
      all.append(segment.bytes);
    }
    return all.flattened();
  }
  /// What a recovery after this process makes of the backups.
  Bytes recovered() {
    StoredRecordings later(platform);
    const auto recordings = later.getIncompleteRecordings();
    const auto file = recordings.empty() ? std::nullopt : later.recoverRecording(recordings[0].id);
    return file ? world.files.read(*file).value_or(Bytes()) : Bytes();
  }
  std::size_t backups() { return stored.getIncompleteRecordings().size(); }
  std::vector<std::string> log(std::string_view part = "", LogLevel atLeast = LogLevel::debug) {
    std::vector<std::string> lines;
    for (const auto& line : world.systemLog.lines()) {
      const bool fits = line.level >= atLeast && line.text.find(part) != std::string::npos;
      const bool isOurs = line.category == "VideoChunkWriter" || line.category == "AudioChunkWriter";
      if (fits && isOurs) lines.push_back(line.text);
    }
    return lines;
  }
  std::vector<std::string> errors() { return log("", LogLevel::error); }

  SimWorld world;
  Platform platform = world.platform();
  StoredRecordings stored{platform};
  NotificationCenter notifications{platform.dispatch.main()};
  std::shared_ptr<FakeUpload> upload = std::make_shared<FakeUpload>(platform.dispatch);
  std::optional<Result<void>> outcome;
  std::unique_ptr<TaskScope> tasks;
};

}  // namespace quillbeam
