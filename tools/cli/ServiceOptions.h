#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "cli/NativeClient.h"
#include "cli/NativeHost.h"

namespace quillbeam::cli {

/// The environment variable that carries the upload service's token, so that it need not stand on a command line, which
/// everybody on the machine can read.
inline constexpr const char* tokenVariable = "QUILLBEAM_UPLOAD_TOKEN";
std::optional<std::string> tokenFromEnvironment();

/// Which upload service a command uses: the one on its command line, which becomes the stored one, or the stored one.
class ServiceOptions {
 public:
  /// `urlOption` names the address's option.
  explicit ServiceOptions(CLI::App& commandLine, const std::string& urlOption = "--url");

  /// Tells the native half about the service; nullopt when it has one now, else the complaint.
  Task<std::optional<std::string>> apply(NativeClient& client, const NativeHost& host) const;

 private:
  const std::string urlOption_;
  std::string url_;
  std::string token_;
};

}  // namespace quillbeam::cli
