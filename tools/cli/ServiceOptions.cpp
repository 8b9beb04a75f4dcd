#include "cli/ServiceOptions.h"

#include <cstdlib>

#include "app/ChannelNames.h"

namespace quillbeam::cli {

std::optional<std::string> tokenFromEnvironment() {
  const char* token = std::getenv(tokenVariable);
  return token == nullptr || *token == '\0' ? std::nullopt : std::optional<std::string>(token);
}

ServiceOptions::ServiceOptions(CLI::App& commandLine, const std::string& urlOption) : urlOption_(urlOption) {
  commandLine.add_option(urlOption, url_, "The upload service, stored as by `quillbeam config set-upload`");
  commandLine.add_option("--token", token_, std::string("Its token; better in the variable ") + tokenVariable);
}

Task<std::optional<std::string>> ServiceOptions::apply(NativeClient& client, const NativeHost& host) const {
  using Complaint = std::optional<std::string>;
  if (url_.empty() && !token_.empty()) co_return Complaint("--token needs " + urlOption_);
  if (url_.empty()) {
    CO_TRY(const auto isConfigured, co_await client.ask(channel_names::nativeUploadConfig, "isNativeApiConfigured"));
    if (isConfigured.asBool() == true) co_return Complaint();
    co_return Complaint("no upload service is configured: quillbeam config set-upload URL");
  }
  // Its uploads would go on at a service that does not know them.
  if (host.isForeign()) {
    co_return Complaint(host.description() + ": it uploads to the service it is configured for; leave " + urlOption_ +
                        " out");
  }
  const std::string token = token_.empty() ? tokenFromEnvironment().value_or("") : token_;
  if (token.empty()) co_return Complaint(urlOption_ + " needs a token: --token or the variable " + tokenVariable);
  const Value arguments = ValueMap{{"baseUrl", url_}, {"authToken", token}};
  CO_TRY_VOID(co_await client.ask(channel_names::nativeUploadConfig, "configureNativeApiClient", arguments));
  co_return Complaint();
}

}  // namespace quillbeam::cli
