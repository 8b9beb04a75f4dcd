#include "upload/MacNativeApiClient.h"

#include <string_view>
#include <tuple>
#include <vector>

#include "base/Json.h"
#include "base/Utf8.h"

namespace quillbeam {

namespace {

constexpr std::string_view configFileName = "MacNativeApiConfig.json";
constexpr Duration requestTimeout = std::chrono::seconds(60);
constexpr HttpSessionOptions sessionOptions{.requestTimeout = std::chrono::seconds(30),
                                            .resourceTimeout = std::chrono::seconds(60)};

/// Identifiers are inserted as they stand.
template <class... Identifiers>
std::string endpoint(const std::string& operation, const Identifiers&... identifiers) {
  return ("/files/upload/multipart/" + operation + ... + ("/" + identifiers));
}

std::string endpoint(const std::string& operation, const UploadIdentity& upload) {
  return endpoint(operation, upload.teamId, upload.folderId, upload.fileId, upload.uploadId);
}

const std::string* dataString(const ValueMap& answer, std::string_view name) {
  const Value* data = answer.find("data");
  return data == nullptr ? nullptr : data->at(name).asString();
}

Result<ValueMap> parseAnswer(const std::string& body) {
  const auto parsed = parseJson(body);
  if (!parsed) return networkError(parsed.error());
  if (parsed->asMap() == nullptr) return decodingError(malformedAnswer("Failed to parse response"));
  return *parsed->asMap();
}

Result<ValueMap> judge(const Result<HttpResponse>& response) {
  if (!response && response.error().is(NetworkError::notHttp)) return networkError(malformedAnswer("Invalid response"));
  if (!response) return networkError(response.error());
  if (response->status == 401) return MacNativeApiError::tokenExpired;
  if (response->isSuccess()) return parseAnswer(response->body);
  return httpError(response->status, isUtf8(response->body) ? std::optional(response->body) : std::nullopt);
}

}  // namespace

MacNativeApiClient::MacNativeApiClient(Platform& platform)
    : platform_(platform), logger_(platform.systemLog, "io.quillbeam.app.macos", "MacNativeApiClient") {
  load();
}

void MacNativeApiClient::configure(std::string baseUrl, std::string authToken) {
  const std::string line = "API client configured with base URL: " + baseUrl;
  change([&](Configuration& configuration) { configuration = {std::move(baseUrl), std::move(authToken)}; });
  logger_.info(line);
}

void MacNativeApiClient::updateAuthToken(std::string authToken) {
  change([&](Configuration& configuration) { configuration.authToken = std::move(authToken); });
  logger_.debug(std::string_view("Auth token updated"));
}

void MacNativeApiClient::clearConfiguration() {
  MutexLock order(fileMutex_);
  {
    MutexLock lock(mutex_);
    configuration_ = {};
  }
  if (const auto path = configurationPath()) std::ignore = platform_.files.remove(*path);
  logger_.info("API client configuration cleared");
}

bool MacNativeApiClient::isConfigured() const {
  const Configuration current = configuration();
  return current.baseUrl && current.authToken;
}

void MacNativeApiClient::sweepTemporaryFiles() {
  MutexLock order(fileMutex_);
  const auto path = configurationPath();
  if (!path) return;
  const Path directory(parentDirectory(*path));
  for (const std::string& name : platform_.files.list(directory).value_or(std::vector<std::string>())) {
    if (isTemporaryName(name)) std::ignore = platform_.files.remove(joined(directory, name));
  }
}

MacNativeApiClient::Configuration MacNativeApiClient::configuration() const {
  MutexLock lock(mutex_);
  return configuration_;
}

template <class Change>
void MacNativeApiClient::change(Change change) {
  MutexLock order(fileMutex_);
  Configuration changed;
  {
    MutexLock lock(mutex_);
    change(configuration_);
    changed = configuration_;
  }
  save(changed);
}

std::optional<Path> MacNativeApiClient::configurationPath() const {
  auto path = inApplicationSupport(platform_.places, configFileName);
  if (!path) logger_.error("Failed to get Application Support directory");
  return path;
}

void MacNativeApiClient::save(const Configuration& configuration) {
  const auto path = configurationPath();
  if (!path) return;
  const auto written = write(*path, configuration);
  if (!written) logger_.error("Failed to save API config: " + written.error().description());
}

Result<void> MacNativeApiClient::write(const Path& path, const Configuration& configuration) {
  TRY_VOID(platform_.files.createDirectories(Path(parentDirectory(path))));
  const StoredConfiguration stored{configuration.baseUrl.value_or(""), configuration.authToken.value_or("")};
  TRY(const std::string text, toJson(toValue(stored)));
  return platform_.files.writeAtomically(path, ByteChain(Bytes(text.begin(), text.end())));
}

void MacNativeApiClient::load() {
  const auto path = configurationPath();
  if (!path || !platform_.files.exists(*path)) return;
  const auto stored = [&]() -> Result<StoredConfiguration> {
    TRY(const Bytes bytes, platform_.files.read(*path));
    TRY(const Value value, parseJson(std::string(bytes.begin(), bytes.end())));
    return fromValue<StoredConfiguration>(value);
  }();
  if (!stored) return logger_.error("Failed to load API config: " + stored.error().description());
  MutexLock lock(mutex_);
  configuration_ = {stored->baseUrl, stored->authToken};
  if (!stored->baseUrl.value_or("").empty()) logger_.info("API config loaded from Application Support");
}

Task<MacNativeApiClient::InitResponse> MacNativeApiClient::initializeMultipartUpload(
    std::string teamId, std::string folderId, std::string contentType, std::optional<std::string> source) {
  ValueMap body{{"contentType", std::move(contentType)}};
  if (!source.value_or("").empty()) body.set("source", *source);
  CO_TRY(const ValueMap answer, co_await call("PUT", endpoint("init", teamId, folderId), std::move(body)));
  const std::string* fileId = dataString(answer, "fileId");
  const std::string* uploadId = dataString(answer, "uploadId");
  if (fileId == nullptr || uploadId == nullptr) co_return decodingError(malformedAnswer("Missing fileId or uploadId"));
  co_return InitResponse{*fileId, *uploadId};
}

Task<std::string> MacNativeApiClient::presignedPartUrl(UploadIdentity upload, int partNumber, std::string contentType) {
  std::string path = endpoint("url", upload) + "/" + std::to_string(partNumber);
  ValueMap body{{"contentType", std::move(contentType)}};
  CO_TRY(const ValueMap answer, co_await call("PUT", std::move(path), std::move(body)));
  const std::string* url = dataString(answer, "uploadUrl");
  if (url == nullptr) co_return decodingError(malformedAnswer("Missing uploadUrl"));
  co_return *url;
}

Task<void> MacNativeApiClient::pulseMultipartUpload(std::string teamId, std::string folderId, std::string fileId) {
  std::string path = endpoint("pulse", teamId, folderId, fileId);
  CO_TRY_VOID(co_await call("POST", std::move(path), std::nullopt));
  co_return success;
}

Task<void> MacNativeApiClient::finalizeMultipartUpload(UploadIdentity upload, std::string fileName,
                                                       std::string contentType) {
  ValueMap file{{"contentType", std::move(contentType)},
                {"name", std::move(fileName)},
                {"description", ""},
                {"notes", ValueList()}};
  ValueMap body{{"file", std::move(file)}};
  CO_TRY_VOID(co_await call("PUT", endpoint("finalize", upload), std::move(body)));
  logger_.info("Multipart upload finalized successfully");
  co_return success;
}

Task<void> MacNativeApiClient::abortMultipartUpload(UploadIdentity upload) {
  CO_TRY_VOID(co_await call("DELETE", endpoint("abort", upload), std::nullopt));
  logger_.info("Multipart upload aborted");
  co_return success;
}

Task<ValueMap> MacNativeApiClient::call(std::string method, std::string path, std::optional<ValueMap> body) {
  const Configuration current = configuration();
  if (!current.baseUrl || !current.authToken) co_return MacNativeApiError::notConfigured;
  std::string url = *current.baseUrl + path;
  co_return co_await request(std::move(method), std::move(url), std::move(body));
}

Task<ValueMap> MacNativeApiClient::request(std::string method, std::string url, std::optional<ValueMap> body) {
  if (!isParsableUrl(url)) co_return MacNativeApiError::invalidUrl;
  const auto token = configuration().authToken;
  if (!token) co_return MacNativeApiError::noAuthToken;
  HttpRequest request{.method = std::move(method), .url = std::move(url), .timeout = requestTimeout};
  request.headers.push_back({"Authorization", "Bearer " + *token});
  request.headers.push_back({"Content-Type", "application/json"});
  request.headers.push_back({"Accept", "application/json"});
  if (body) {
    auto text = toJson(*std::move(body));
    if (!text) co_return networkError(text.error());
    request.body = *std::move(text);
  }
  const auto response = co_await session().send(std::move(request));
  co_return judge(response);
}

HttpSession& MacNativeApiClient::session() {
  MutexLock lock(mutex_);
  if (!session_) session_ = platform_.network.makeSession(sessionOptions);
  return *session_;
}

}  // namespace quillbeam
