#include "cli/UploadRun.h"

#include <algorithm>
#include <chrono>

#include "app/ChannelNames.h"

namespace quillbeam::cli {

namespace {

using namespace std::chrono_literals;

constexpr Duration betweenLooks = 200ms;
/// For the service to hear of an abort, or to answer that the file is made.
constexpr int mostLooksAfterGivingUp = 25;

}  // namespace

Task<UploadFigures> UploadRun::run() {
  const Value arguments = ValueMap{{"filePath", request_.file},
                                   {"teamId", request_.teamId},
                                   {"folderId", request_.folderId},
                                   {"fileName", request_.fileName},
                                   {"contentType", request_.contentType}};
  startedAt_ = platform_.dispatch.hostTime();
  CO_TRY(id_, co_await client_.ask(channel_names::fileUpload, "startFileUpload", arguments));
  CO_TRY_VOID(co_await look());
  while (!figures_.hasEnded() && !interrupts_.haveArrived()) {
    progress_.show(uploadText(figures_, bytesPerSecond()));
    CO_TRY_VOID(co_await interrupts_.wait(betweenLooks));
    CO_TRY_VOID(co_await look());
  }
  progress_.clear();
  if (!figures_.hasEnded()) CO_TRY_VOID(co_await giveUp());
  co_return figures_;
}

Task<void> UploadRun::giveUp() {
  const Value arguments = ValueMap{{"id", id_}};
  CO_TRY_VOID(co_await client_.ask(channel_names::fileUpload, "stopFileUpload", arguments));
  for (int looks = 0; looks < mostLooksAfterGivingUp && !figures_.hasEnded(); ++looks) {
    // With every part handed over there is nothing to abort: the next launch goes on with what is missing.
    if (figures_.phase == "finishing" && figures_.confirmedParts < figures_.totalParts) break;
    CO_TRY_VOID(co_await delay(platform_.dispatch.main(), betweenLooks));
    CO_TRY_VOID(co_await look());
  }
  co_return success;
}

Task<void> UploadRun::look() {
  const Value arguments = ValueMap{{"id", id_}};
  CO_TRY(const auto status, co_await client_.ask(channel_names::fileUpload, "getFileUploadStatus", arguments));
  figures_ = UploadFigures::fromValue(status);
  co_return success;
}

double UploadRun::seconds() const { return (platform_.dispatch.hostTime() - startedAt_).seconds(); }

double UploadRun::bytesPerSecond() const {
  const auto moved = static_cast<double>(figures_.confirmedBytes + figures_.bytesInFlight);
  return moved / std::max(seconds(), 0.001);
}

}  // namespace quillbeam::cli
