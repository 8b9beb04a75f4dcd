#include "upload/MacPresignedUrlManager.h"

#include <chrono>
#include <utility>

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

constexpr auto urlValidityDuration = 3600s;
constexpr auto safetyMargin = 300s;

}  // namespace

std::string describe(MacPresignedUrlError error) {
  switch (error) {
    case MacPresignedUrlError::notConfigured:
      return "MacPresignedUrlManager not configured";
    case MacPresignedUrlError::urlExpired:
      return "Presigned URL has expired";
    case MacPresignedUrlError::fetchFailed:
      return "Failed to fetch presigned URL";
  }
  std::unreachable();
}

MacPresignedUrlManager::MacPresignedUrlManager(Platform& platform, MacNativeApiClient& apiClient)
    : dispatch_(platform.dispatch),
      logger_(platform.systemLog, "io.quillbeam.app.macos", "MacPresignedUrlManager"),
      apiClient_(apiClient),
      cacheQueue_(platform.dispatch.makeSerialQueue("io.quillbeam.macos.presignedurl.cache")) {}

void MacPresignedUrlManager::configure(UploadIdentity upload, std::string contentType) {
  const std::string line = "MacPresignedUrlManager configured for file: " + upload.fileId;
  cacheQueue_->async([this, target = Target{std::move(upload), std::move(contentType)}]() mutable {
    cacheQueue_->assertCurrent();
    target_ = std::move(target);
  });
  clearCache();
  logger_.info(line);
}

Task<std::string> MacPresignedUrlManager::getUrl(int partNumber) {
  if (auto cached = cachedUrl(partNumber)) {
    logger_.debug([&] { return "Using cached URL for part " + std::to_string(partNumber); });
    co_return *std::move(cached);
  }
  logger_.debug([&] { return "Fetching fresh URL for part " + std::to_string(partNumber); });
  auto known = target();
  if (!known) co_return MacPresignedUrlError::notConfigured;
  CO_TRY(std::string url,
         co_await apiClient_.presignedPartUrl(std::move(known->upload), partNumber, std::move(known->contentType)));
  const Date now = dispatch_.now();
  cacheQueue_->async([this, entry = MacCachedPresignedUrl{url, partNumber, now, now + urlValidityDuration}] {
    cacheQueue_->assertCurrent();
    cachedUrls_.insert_or_assign(entry.partNumber, entry);
  });
  co_return url;
}

void MacPresignedUrlManager::invalidateUrl(int partNumber) {
  cacheQueue_->async([this, partNumber] {
    cacheQueue_->assertCurrent();
    cachedUrls_.erase(partNumber);
  });
  logger_.debug([&] { return "Invalidated cached URL for part " + std::to_string(partNumber); });
}

void MacPresignedUrlManager::clearCache() {
  cacheQueue_->async([this] {
    cacheQueue_->assertCurrent();
    cachedUrls_.clear();
  });
  logger_.debug(std::string_view("URL cache cleared"));
}

std::optional<std::string> MacPresignedUrlManager::cachedUrl(int partNumber) {
  std::optional<std::string> url;
  const Date now = dispatch_.now();
  cacheQueue_->sync([&] {
    cacheQueue_->assertCurrent();
    const auto entry = cachedUrls_.find(partNumber);
    if (entry != cachedUrls_.end() && now + safetyMargin < entry->second.expiresAt) url = entry->second.url;
  });
  return url;
}

std::optional<MacPresignedUrlManager::Target> MacPresignedUrlManager::target() {
  std::optional<Target> known;
  cacheQueue_->sync([&] {
    cacheQueue_->assertCurrent();
    known = target_;
  });
  return known;
}

}  // namespace quillbeam
