#include "app/NativeHalf.h"

#include <algorithm>

#include "app/AppDelegate.h"
#include "app/MainFlutterWindow.h"
#include "app/SocketMessenger.h"
#include "base/Json.h"
#include "base/TaskScope.h"
#include "platform/NotificationCenter.h"
#include "recording/MacRecorderManager.h"
#include "recording/RecordingJournal.h"
#include "recording/RecordingRepair.h"

namespace quillbeam {

namespace {

/// How long clients may take to pick up their last replies.
constexpr Duration lastRepliesTime = std::chrono::seconds(1);

Path lockPath(const Places& places) {
  return joined(joined(places.applicationSupport, bundleIdentifier), "native.lock");
}

Result<std::unique_ptr<FileLock>> takeDataDirectory(Platform& platform, const NativeHalf::Options& options) {
  TRY_VOID(platform.files.createDirectories(Path(parentDirectory(lockPath(platform.places)))));
  const RunningNativeHalf self{platform.processId, options.command, options.socketPath};
  TRY(const std::string note, toJson(toValue(self)));
  return platform.files.lock(lockPath(platform.places), note);
}

}  // namespace

struct NativeHalf::Parts {
  Parts(Platform& world, Options given, std::unique_ptr<FileLock> held)
      : platform(world),
        options(std::move(given)),
        lock(std::move(held)),
        notifications(world.dispatch.main()),
        apiClient(world),
        uploadStorage(world),
        uploads(world, apiClient, uploadStorage, notifications),
        storedRecordings(world),
        journal(world.files, world.places, world.random),
        manager(world, journal, {apiClient, uploads, storedRecordings, notifications}),
        repair(world, journal),
        appDelegate(world, {apiClient, uploadStorage, uploads, storedRecordings}),
        tasks(world.dispatch.main()) {}

  void showWindow() {
    appDelegate.setMainWindow(window.get());
    messenger->onClientsChanged([this] {
      window->setUserInterfaceState(messenger->clientCount() > 0 ? UserInterfaceState::connected
                                                                 : UserInterfaceState::missing);
    });
    window->show();
  }

  Platform& platform;
  const Options options;
  std::unique_ptr<FileLock> lock;
  NotificationCenter notifications;
  MacNativeApiClient apiClient;
  MacNativeUploadSessionStorage uploadStorage;
  MacNativeBackgroundUploadManager uploads;
  StoredRecordings storedRecordings;
  RecordingJournal journal;
  MacRecorderManager manager;
  RecordingRepair repair;
  std::unique_ptr<SocketMessenger> messenger;
  AppDelegate appDelegate;
  std::unique_ptr<MainFlutterWindow> window;
  TaskScope tasks;
};

NativeHalf::NativeHalf(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}
NativeHalf::~NativeHalf() = default;

Result<std::unique_ptr<NativeHalf>> NativeHalf::create(Platform& platform, Options options) {
  TRY(auto lock, takeDataDirectory(platform, options));
  auto parts = std::make_unique<Parts>(platform, std::move(options), std::move(lock));
  const Path& socketPath = parts->options.socketPath;
  TRY_VOID(platform.files.createDirectories(Path(parentDirectory(socketPath))));
  TRY(parts->messenger, SocketMessenger::listen(platform.localSockets, socketPath, platform.dispatch.main()));
  parts->appDelegate.applicationWillFinishLaunching();
  parts->window = std::make_unique<MainFlutterWindow>(
      platform, *parts->messenger,
      MainFlutterWindow::Services{parts->appDelegate, parts->notifications, parts->manager, parts->apiClient,
                                  parts->uploadStorage, parts->uploads, parts->storedRecordings});
  parts->tasks.start(parts->repair.run());
  parts->showWindow();
  parts->appDelegate.applicationDidFinishLaunching(parts->options.resumeUploads);
  return std::unique_ptr<NativeHalf>(new NativeHalf(std::move(parts)));
}

const Path& NativeHalf::socketPath() const { return parts_->options.socketPath; }

Task<void> NativeHalf::shutDown() {
  CO_TRY_VOID(co_await parts_->manager.stopForTermination());
  // A stop that waits for the service hears now that it waits in vain.
  CO_TRY_VOID(co_await parts_->uploads.prepareForTermination());
  CO_TRY_VOID(co_await parts_->manager.settled());
  co_return co_await parts_->messenger->shutDown(lastRepliesTime);
}

Path defaultSocketPath(const Places& places) { return joined(joined(places.runtime, bundleIdentifier), "native.sock"); }

Result<RunningNativeHalf> findRunningNativeHalf(Files& files, const Places& places) {
  const Path path = lockPath(places);
  if (!files.exists(path)) return LocalSocketError::notListening;
  const auto lock = files.lock(path, "");
  if (lock) return LocalSocketError::notListening;
  if (!lock.error().is(FilesError::locked)) return lock.error();
  const std::string* note = lock.error().payload() == nullptr ? nullptr : lock.error().payload()->asString();
  // Somebody else who only looks, as we do, holds it for a moment.
  if (note == nullptr || note->empty()) return LocalSocketError::notListening;
  TRY(const Value holder, parseJson(*note));
  return fromValue<RunningNativeHalf>(holder);
}

bool isBeingRecorded(Platform& platform, const Path& file) {
  if (!findRunningNativeHalf(platform.files, platform.places)) return false;
  RecordingJournal journal(platform.files, platform.places, platform.random);
  return std::ranges::any_of(journal.openRecordings(),
                             [&](const OpenRecording& open) { return open.filePath == file; });
}

}  // namespace quillbeam
