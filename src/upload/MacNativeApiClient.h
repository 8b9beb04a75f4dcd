#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Mutex.h"
#include "base/Record.h"
#include "base/Task.h"
#include "platform/Platform.h"
#include "upload/MacNativeApiError.h"

namespace quillbeam {

/// Which upload at the service: every endpoint but the first is addressed by it.
struct UploadIdentity {
  std::string teamId;
  std::string folderId;
  std::string fileId;
  std::string uploadId;
};

/// The one client of the upload service's JSON API. Holds the service's address and the user's bearer token and keeps
/// them in "MacNativeApiConfig.json" (mode 0600), so that uploads go on after a restart without a UI layer. Part bytes
/// never pass through here. Nothing is retried here, and no address or token is logged.
///
///     unconfigured ──configure, load──► configured ──clearConfiguration──► unconfigured
///
/// Configuration calls block for a small file and may come from any queue; protocol operations run on the caller's,
/// several at a time. Errors: `MacNativeApiError`s.
class MacNativeApiClient {
 public:
  struct InitResponse {
    std::string fileId;
    std::string uploadId;
  };

  /// Loads the stored configuration; one that cannot be read leaves the client unconfigured and is logged.
  explicit MacNativeApiClient(Platform& platform);

  void configure(std::string baseUrl, std::string authToken);
  void updateAuthToken(std::string authToken);
  void clearConfiguration();
  /// Both values are present; empty ones count.
  bool isConfigured() const;
  /// Removes what a process that died while writing the configuration left beside it: it may hold a token. Blocks.
  void sweepTemporaryFiles();

  /// `source` says what kind of media it is; an empty one is not sent.
  Task<InitResponse> initializeMultipartUpload(std::string teamId, std::string folderId, std::string contentType,
                                               std::optional<std::string> source);
  /// Where one part is to be PUT.
  Task<std::string> presignedPartUrl(UploadIdentity upload, int partNumber, std::string contentType);
  Task<void> pulseMultipartUpload(std::string teamId, std::string folderId, std::string fileId);
  /// Makes a file of the parts that the service has received.
  Task<void> finalizeMultipartUpload(UploadIdentity upload, std::string fileName, std::string contentType);
  Task<void> abortMultipartUpload(UploadIdentity upload);

 private:
  struct Configuration {
    std::optional<std::string> baseUrl;
    std::optional<std::string> authToken;
  };
  /// Its file: a field absent in memory is written as the empty string.
  struct StoredConfiguration {
    std::optional<std::string> baseUrl;
    std::optional<std::string> authToken;
    static constexpr auto fields() {
      return std::tuple(field("baseUrl", &StoredConfiguration::baseUrl),
                        field("authToken", &StoredConfiguration::authToken));
    }
  };

  Configuration configuration() const;
  template <class Change>
  void change(Change change);
  void save(const Configuration& configuration);
  Result<void> write(const Path& path, const Configuration& configuration);
  void load();
  std::optional<Path> configurationPath() const;

  /// `path` begins with a slash.
  Task<ValueMap> call(std::string method, std::string path, std::optional<ValueMap> body);
  Task<ValueMap> request(std::string method, std::string url, std::optional<ValueMap> body);
  HttpSession& session();

  Platform& platform_;
  const Logger logger_;
  mutable Mutex mutex_;
  Configuration configuration_ GUARDED_BY(mutex_);
  std::unique_ptr<HttpSession> session_ GUARDED_BY(mutex_);
  Mutex fileMutex_;  // one writer of the file at a time, in the order of the changes
};

}  // namespace quillbeam
