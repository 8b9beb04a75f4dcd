#include "cli/NativeHost.h"

#include <chrono>

namespace quillbeam::cli {

namespace {

using namespace std::chrono_literals;

/// The holder may be on its way in (locked, not listening yet) or out.
constexpr int attempts = 30;
constexpr Duration betweenAttempts = 100ms;

bool mayPass(const Error& error) { return error.is(FilesError::locked) || error.is(LocalSocketError::notListening); }

}  // namespace

std::string describe(const RunningNativeHalf& running) {
  return "`quillbeam " + running.command + "` is running: process " + std::to_string(running.processId) + ", socket " +
         running.socketPath;
}

Result<std::unique_ptr<NativeHost>> NativeHost::tryOnce(Platform& platform, const std::string& command,
                                                        ResumeUploads resumeUploads) {
  auto own = NativeHalf::create(platform, {command, defaultSocketPath(platform.places), resumeUploads});
  if (own) {
    const Path socketPath = (*own)->socketPath();
    return std::unique_ptr<NativeHost>(new NativeHost(std::move(*own), socketPath, "this process"));
  }
  if (!own.error().is(FilesError::locked)) return own.error();
  TRY(const auto running, findRunningNativeHalf(platform.files, platform.places));
  TRY_VOID(platform.localSockets.connect(running.socketPath, platform.dispatch.main()));
  return std::unique_ptr<NativeHost>(new NativeHost(nullptr, running.socketPath, describe(running)));
}

Task<std::unique_ptr<NativeHost>> NativeHost::find(Platform& platform, std::string command,
                                                   ResumeUploads resumeUploads) {
  auto found = tryOnce(platform, command, resumeUploads);
  for (int attempt = 1; attempt < attempts && !found && mayPass(found.error()); ++attempt) {
    CO_TRY_VOID(co_await delay(platform.dispatch.main(), betweenAttempts));
    found = tryOnce(platform, command, resumeUploads);
  }
  co_return found;
}

Task<void> NativeHost::release() {
  if (!own_) co_return success;
  auto ended = co_await own_->shutDown();
  own_.reset();
  co_return ended;
}

}  // namespace quillbeam::cli
