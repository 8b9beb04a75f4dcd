#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace quillbeam::service {

/// Makes URLs that let their holder do one thing without a token for a while. The key lies in a file, so that URLs
/// outlive a restart.
class UrlSigner {
 public:
  using Clock = std::chrono::system_clock;
  static constexpr std::chrono::hours lifetime{1};

  /// Reads the key, or makes one when there is none.
  explicit UrlSigner(const std::filesystem::path& keyFile);

  /// "PATH?expires=…&signature=…"
  std::string sign(const std::string& path, Clock::time_point expires) const;
  /// Throws a Refusal (403) unless the two come from `sign` for this path and the time has not come.
  void check(const std::string& path, const std::string& expires, const std::string& signature) const;

 private:
  std::string signature(const std::string& path, const std::string& expires) const;

  std::string key_;
};

}  // namespace quillbeam::service
