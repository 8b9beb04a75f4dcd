#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Json.h"
#include "platform/sim/SimNetwork.h"

namespace quillbeam {

/// One multipart upload at the service.
struct SimUpload {
  enum class State { open, finalized, aborted };
  State state = State::open;
  std::string teamId;
  std::string folderId;
  std::string fileId;
  std::string uploadId;
  std::string contentType;
  std::string source;
  std::map<int, Bytes> parts;  ///< that were stored
  Bytes object;                ///< the parts in order, once finalised
  int finalizeEffects = 0;
};

/// The upload service at the far side of a simulated network, for its whole machine and all processes on it: what it
/// has stored survives their deaths. Strict: what is not as the service's clients write it is answered 400, 403 or 405
/// and has no effect.
///
///     SimWorld world(seed);
///     SimUploadService service(world.network);
///     service.interfere = [](const SimExchange&) { return HttpResponse{.status = 500}; };
class SimUploadService {
 public:
  static constexpr std::string_view baseUrl = "https://api.test";
  static constexpr std::string_view storageUrl = "https://storage.test";

  explicit SimUploadService(SimNetwork& network) : network_(network) {
    network.server = [this](const SimExchange& exchange) { return serve(exchange); };
  }
  SimUploadService(const SimUploadService&) = delete;
  SimUploadService& operator=(const SimUploadService&) = delete;
  ~SimUploadService() { network_.server = nullptr; }

  // What a test sets.

  std::string token = "token-1";
  std::int64_t partSize = std::int64_t{5} << 20;
  Duration urlLifetime = std::chrono::hours(1);
  /// Asked first, and may answer instead of the service.
  std::function<std::optional<HttpResponse>(const SimExchange&)> interfere;

  // What a test looks at.

  std::vector<std::string> requests;         ///< init, url, pulse, finalize, abort, put; empty for anything else
  std::map<std::string, SimUpload> uploads;  ///< by file id

  int calls(std::string_view operation) const { return static_cast<int>(std::ranges::count(requests, operation)); }

 private:
  using Arguments = std::vector<std::string>;
  struct Call {
    const HttpRequest& request;
    const Value& body;
    Arguments arguments;  // the path's parts after the operation
  };
  struct Operation {
    std::string_view name;
    std::string_view method;
    std::size_t arguments;
    bool (SimUploadService::*isExpectedBody)(const Call&) const;
    HttpResponse (SimUploadService::*act)(const Call&);
  };
  struct IssuedUrl {
    std::string fileId;
    int part;
    Duration expires;
  };

  static const std::array<Operation, 5>& operations() {
    using Self = SimUploadService;
    static constexpr std::array<Operation, 5> table{{
        {"init", "PUT", 2, &Self::isInitBody, &Self::initialize},
        {"url", "PUT", 5, &Self::isUrlBody, &Self::issueUrl},
        {"pulse", "POST", 3, &Self::isNoBody, &Self::pulse},
        {"finalize", "PUT", 4, &Self::isFinalizeBody, &Self::finalize},
        {"abort", "DELETE", 4, &Self::isNoBody, &Self::abort},
    }};
    return table;
  }

  HttpResponse serve(const SimExchange& exchange) {
    const std::string url = exchange.request.url.substr(0, exchange.request.url.find('?'));
    return url.starts_with(storageUrl) ? atStorage(exchange) : atService(exchange, url);
  }

  // ---- the service's own API

  HttpResponse atService(const SimExchange& exchange, std::string_view url) {
    constexpr std::string_view root = "/files/upload/multipart/";
    const std::string prefix = std::string(baseUrl) + std::string(root);
    Arguments arguments = split(url.starts_with(prefix) ? url.substr(prefix.size()) : "");
    const auto operation = std::ranges::find(operations(), arguments.front(), &Operation::name);
    const Value body = parseJson(exchange.request.body.value_or("")).value_or(Value());
    const Call call{exchange.request, body, {arguments.begin() + 1, arguments.end()}};
    const bool isKnown = operation != operations().end() && call.arguments.size() == operation->arguments;
    requests.emplace_back(isKnown ? operation->name : "");
    const bool isWellFormed = isKnown && isExpected(*operation, call);
    if (auto instead = interference(exchange)) return *std::move(instead);
    if (!hasHeader(exchange.request, "Authorization", "Bearer " + token)) return refusal(401, "not signed in");
    if (!isKnown) return refusal(404, "no such operation");
    if (exchange.request.method != operation->method) return refusal(405, "another method");
    if (!isWellFormed) return refusal(400, "malformed request");
    return (this->*operation->act)(call);
  }

  bool isExpected(const Operation& operation, const Call& call) const {
    return call.request.method == operation.method && hasHeader(call.request, "Content-Type", "application/json") &&
           hasHeader(call.request, "Accept", "application/json") && (this->*operation.isExpectedBody)(call);
  }

  bool isNoBody(const Call& call) const { return !call.request.body || call.request.body->empty(); }
  bool isInitBody(const Call& call) const {
    const std::string* contentType = call.body.at("contentType").asString();
    const std::string* source = call.body.at("source").asString();
    const std::size_t members = call.body.asMap() == nullptr ? 0 : call.body.asMap()->size();
    return contentType != nullptr && (source == nullptr ? members == 1 : members == 2 && !source->empty());
  }
  bool isUrlBody(const Call& call) const {
    const auto upload = uploads.find(call.arguments[2]);
    if (upload == uploads.end()) return call.body.at("contentType").asString() != nullptr;
    return call.body == Value(ValueMap{{"contentType", upload->second.contentType}});
  }
  bool isFinalizeBody(const Call& call) const {
    const Value& file = call.body.at("file");
    const std::string* name = file.at("name").asString();
    const std::string* contentType = file.at("contentType").asString();
    if (name == nullptr || contentType == nullptr) return false;
    const ValueMap expected{
        {"contentType", *contentType}, {"name", *name}, {"description", ""}, {"notes", ValueList{}}};
    return call.body == Value(ValueMap{{"file", expected}});
  }

  HttpResponse initialize(const Call& call) {
    const std::string number = std::to_string(uploads.size() + 1);
    SimUpload upload{.teamId = call.arguments[0],
                     .folderId = call.arguments[1],
                     .fileId = "file-" + number,
                     .uploadId = "upload-" + number,
                     .contentType = *call.body.at("contentType").asString()};
    if (const std::string* source = call.body.at("source").asString()) upload.source = *source;
    const ValueMap data{{"fileId", upload.fileId}, {"uploadId", upload.uploadId}};
    uploads.emplace(upload.fileId, std::move(upload));
    return answer(data);
  }

  HttpResponse issueUrl(const Call& call) {
    SimUpload* upload = find(call);
    const std::optional<int> part = number(call.arguments[4]);
    if (upload == nullptr || upload->state != SimUpload::State::open) return refusal(404, "no such upload");
    if (!part || *part < 1 || *part > 10000) return refusal(400, "no such part");
    // Signatures hold characters that have to be left as they are.
    const std::string url = std::string(storageUrl) + "/put/" + upload->fileId + "/" + upload->uploadId + "/" +
                            std::to_string(*part) + "?signature=" + std::to_string(issued_.size() + 1) + "%2Bsigned%3D";
    issued_.emplace(url, IssuedUrl{upload->fileId, *part, network_.time() + urlLifetime});
    return answer({{"uploadUrl", url}});
  }

  HttpResponse pulse(const Call& call) {
    SimUpload* upload = find(call);
    if (upload == nullptr || upload->state != SimUpload::State::open) return refusal(404, "no such upload");
    return answer({});
  }

  HttpResponse finalize(const Call& call) {
    SimUpload* upload = find(call);
    if (upload == nullptr || upload->state != SimUpload::State::open) return refusal(404, "no such upload");
    if (call.body.at("file").at("contentType") != Value(upload->contentType)) return refusal(400, "another type");
    std::optional<Bytes> object = assembled(*upload);
    if (!object) return refusal(400, "parts are missing or of a wrong size");
    upload->object = *std::move(object);
    upload->state = SimUpload::State::finalized;
    ++upload->finalizeEffects;
    return answer({});
  }

  HttpResponse abort(const Call& call) {
    SimUpload* upload = find(call);
    if (upload == nullptr || upload->state != SimUpload::State::open) return refusal(404, "no such upload");
    upload->state = SimUpload::State::aborted;
    upload->parts.clear();
    return answer({});
  }

  /// nullopt unless parts 1…n are there and all but the last have the full size.
  std::optional<Bytes> assembled(const SimUpload& upload) const {
    Bytes object;
    int expected = 1;
    bool isComplete = false;  // a part of another size ends the object
    for (const auto& [number, part] : upload.parts) {
      if (number != expected++ || isComplete) return std::nullopt;
      isComplete = static_cast<std::int64_t>(part.size()) != partSize;
      object.insert(object.end(), part.begin(), part.end());
    }
    if (expected == 1) return std::nullopt;
    return object;
  }

  // ---- the storage behind presigned addresses

  HttpResponse atStorage(const SimExchange& exchange) {
    const HttpRequest& request = exchange.request;
    const auto url = issued_.find(request.url);
    const bool hasToken = HttpResponse{.headers = request.headers}.header("Authorization") != nullptr;
    requests.emplace_back("put");
    if (auto instead = interference(exchange)) return *std::move(instead);
    if (request.method != "PUT") return refusal(405, "another method");
    if (hasToken) return refusal(400, "signed twice");
    if (url == issued_.end() || network_.time() >= url->second.expires) return refusal(403, "not signed");
    return store(exchange, uploads.at(url->second.fileId), url->second.part);
  }

  HttpResponse store(const SimExchange& exchange, SimUpload& upload, int number) {
    if (upload.state != SimUpload::State::open) return refusal(404, "no such upload");
    upload.parts[number].assign(exchange.body.begin(), exchange.body.end());
    return {.status = 200, .headers = {{"ETag", "\"etag-" + std::to_string(number) + "\""}}};
  }

  // ---- small things

  std::optional<HttpResponse> interference(const SimExchange& exchange) const {
    return interfere ? interfere(exchange) : std::nullopt;
  }

  SimUpload* find(const Call& call) {
    const auto found = uploads.find(call.arguments[2]);
    if (found == uploads.end()) return nullptr;
    SimUpload& upload = found->second;
    const bool isOwner = upload.teamId == call.arguments[0] && upload.folderId == call.arguments[1];
    const bool isUpload = call.arguments.size() < 4 || upload.uploadId == call.arguments[3];
    return isOwner && isUpload ? &upload : nullptr;
  }

  static bool hasHeader(const HttpRequest& request, std::string_view name, std::string_view value) {
    const HttpResponse asResponse{.headers = request.headers};  // which knows how to look for one
    const std::string* found = asResponse.header(name);
    return found != nullptr && *found == value;
  }
  static HttpResponse answer(ValueMap data) {
    return {.status = 200,
            .headers = {{"Content-Type", "application/json"}},
            .body = toJson(ValueMap{{"data", std::move(data)}}).value()};
  }
  static HttpResponse refusal(int status, std::string_view message) {
    return {.status = status,
            .headers = {{"Content-Type", "application/json"}},
            .body = toJson(ValueMap{{"message", message}}).value()};
  }
  static std::optional<int> number(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
  }
  static Arguments split(std::string_view path) {
    Arguments pieces;
    while (true) {
      const std::size_t slash = path.find('/');
      pieces.emplace_back(path.substr(0, slash));
      if (slash == std::string_view::npos) return pieces;
      path.remove_prefix(slash + 1);
    }
  }

  SimNetwork& network_;
  std::map<std::string, IssuedUrl> issued_;  // by address
};

}  // namespace quillbeam
