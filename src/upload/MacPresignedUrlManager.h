#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "base/Date.h"
#include "base/Task.h"
#include "platform/Platform.h"
#include "upload/MacNativeApiClient.h"

namespace quillbeam {

/// Only `notConfigured` is raised here (nobody said which upload the parts belong to); the others are for callers that
/// judge an address themselves.
enum class MacPresignedUrlError { notConfigured, urlExpired, fetchFailed };
std::string describe(MacPresignedUrlError error);
constexpr std::string_view errorDomain(MacPresignedUrlError) { return "MacPresignedUrlError"; }

/// The addresses to which one upload's parts are PUT, fetched one by one and kept for the retry of a part. The service
/// does not say how long an address holds: an hour is assumed, and none is used in its last five minutes. Any queue;
/// whoever waits for `getUrl` keeps the manager.
class MacPresignedUrlManager {
 public:
  MacPresignedUrlManager(Platform& platform, MacNativeApiClient& apiClient);

  void configure(UploadIdentity upload, std::string contentType);
  /// From the cache or from the service. Two callers who both miss both fetch; the later address stays. Errors of the
  /// API client pass through.
  Task<std::string> getUrl(int partNumber);
  void invalidateUrl(int partNumber);
  void clearCache();

 private:
  struct MacCachedPresignedUrl {
    std::string url;
    int partNumber = 0;
    Date fetchedAt;
    Date expiresAt;
  };
  struct Target {
    UploadIdentity upload;
    std::string contentType;
  };

  std::optional<std::string> cachedUrl(int partNumber);
  std::optional<Target> target();

  Dispatch& dispatch_;
  const Logger logger_;
  MacNativeApiClient& apiClient_;
  std::optional<Target> target_ CONFINED_TO(*cacheQueue_);
  std::map<int, MacCachedPresignedUrl> cachedUrls_ CONFINED_TO(*cacheQueue_);
  std::unique_ptr<DispatchQueue> cacheQueue_;  // last: it runs what waits on it before the state goes
};

}  // namespace quillbeam
