#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/TaskScope.h"
#include "platform/sim/SimWorld.h"
#include "support/SimUploadService.h"
#include "upload/MacNativeBackgroundUploadManager.h"

namespace quillbeam {

/// The upload room of one process.
struct UploadProcess {
  explicit UploadProcess(SimWorld& simWorld)
      : world(simWorld),
        platform(simWorld.platform()),
        apiClient(platform),
        storage(platform),
        notifications(platform.dispatch.main()),
        manager(platform, apiClient, storage, notifications),
        tasks(platform.dispatch.main()) {}

  /// Runs the task, and time, until it has ended.
  template <class T>
  Result<T> await(Task<T> task) {
    std::optional<Result<T>> ended;
    tasks.start(std::move(task), [&](Result<T> result) { ended.emplace(std::move(result)); });
    world.dispatch.runUntil([&] { return ended.has_value(); }, std::chrono::minutes(20));
    return ended ? *std::move(ended) : Result<T>(CommonError::cancelled);
  }

  SimWorld& world;
  Platform platform;
  MacNativeApiClient apiClient;
  MacNativeUploadSessionStorage storage;
  NotificationCenter notifications;
  MacNativeBackgroundUploadManager manager;
  TaskScope tasks;
};

/// A machine with the upload service at the far end of its network; one process after the other.
struct UploadWorld {
  static constexpr std::string_view root = "/home/user/.local/share/io.quillbeam.app";
  using Finalized = std::optional<Result<void>>;
  using StopKind = MacNativeBackgroundUploadManager::StopKind;

  explicit UploadWorld(std::uint64_t seed = 1, std::int64_t partSize = 4) : world(seed) {
    service.partSize = partSize;
    process = std::make_unique<UploadProcess>(world);
    process->apiClient.configure(std::string(SimUploadService::baseUrl), service.token);
  }
  ~UploadWorld() {
    if (process) crash();
  }

  MacNativeBackgroundUploadManager& manager() { return process->manager; }
  void advance(Duration duration) { world.dispatch.advance(duration); }
  Duration time() const { return world.network.time(); }

  // Processes.

  void crash() {
    world.die();
    process.reset();
    world.restart();
  }
  void endOrderly() {
    EXPECT_TRUE(process->await(manager().prepareForTermination()));
    world.dispatch.runUntilIdle();
    EXPECT_TRUE(world.dispatch.isIdle()) << "something waits after the end";
    process.reset();
    world.restart();
  }
  void launch() {
    process = std::make_unique<UploadProcess>(world);
    EXPECT_TRUE(process->await(manager().resumeIncompleteSessions()));
    EXPECT_TRUE(process->await(manager().sweepLeftovers()));
    advance(std::chrono::milliseconds(1));
  }

  // Uploads.

  static UploadRequest request(std::string fileName = "meeting.mp4") {
    return {.teamId = "team", .folderId = "folder", .fileName = std::move(fileName), .contentType = "video/mp4"};
  }
  MacNativeUploadSession start(UploadRequest asked = request()) {
    return process->await(manager().startSession(std::move(asked))).value();
  }
  Result<void> send(const std::optional<std::string>& id, int part, std::string_view text) {
    return process->await(manager().uploadChunk(ByteChain(Bytes(text.begin(), text.end())), part, id));
  }
  /// Outlives the process that answers.
  std::shared_ptr<Finalized> finish(const std::string& id, int parts) {
    auto outcome = std::make_shared<Finalized>();
    manager().markRecordingComplete(parts, id, [outcome](Result<void> result) {
      EXPECT_FALSE(outcome->has_value()) << "called twice";
      *outcome = std::move(result);
    });
    return outcome;
  }

  // What is there.

  std::optional<MacNativeUploadSession> record(const std::string& id) {
    process->await(process->storage.flushed()).value();
    for (auto& session : process->storage.loadAllSessions()) {
      if (session.id == id) return std::move(session);
    }
    return std::nullopt;
  }
  /// Of what lies in a directory below the application's own; "" is that one.
  std::vector<std::string> names(std::string_view directory) {
    const Path path = directory.empty() ? Path(root) : joined(Path(root), directory);
    return world.files.list(path).value_or(std::vector<std::string>());
  }
  std::vector<std::string> partFiles() { return names("temp_chunks"); }
  std::string object(const std::string& fileId) {
    const Bytes& bytes = service.uploads.at(fileId).object;
    return {bytes.begin(), bytes.end()};
  }
  int logged(std::string_view text) const {
    return static_cast<int>(std::ranges::count_if(
        world.systemLog.lines(), [&](const auto& line) { return line.text.find(text) != std::string::npos; }));
  }
  static bool isPut(const SimExchange& exchange, std::optional<int> part = std::nullopt) {
    const std::string number = part ? std::to_string(*part) : "";
    return exchange.isTransfer && exchange.request.url.find("/" + number + (part ? "?" : "")) != std::string::npos;
  }
  static bool isCall(const SimExchange& exchange, std::string_view operation) {
    return !exchange.isTransfer && exchange.request.url.find("/" + std::string(operation) + "/") != std::string::npos;
  }

  SimWorld world;
  SimUploadService service{world.network};
  std::unique_ptr<UploadProcess> process;
};

}  // namespace quillbeam
