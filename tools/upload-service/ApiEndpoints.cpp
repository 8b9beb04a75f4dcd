#include "ApiEndpoints.h"

#include <optional>
#include <utility>

#include "StorageEndpoint.h"

namespace quillbeam::service {

using nlohmann::json;

struct ApiEndpoints::Route {
  Endpoint endpoint;
  httplib::Server& (httplib::Server::*add)(const std::string& pattern, httplib::Server::Handler handler);
  const char* path;
  Serve serve;
};

#define ANY "/([^/]+)"
#define ID "/([A-Za-z0-9_-]+)"
#define ROOT "/files/upload/multipart/"

const ApiEndpoints::Route ApiEndpoints::routes[] = {
    {Endpoint::init, &httplib::Server::Put, ROOT "init" ANY ANY, &ApiEndpoints::init},
    {Endpoint::url, &httplib::Server::Put, ROOT "url" ANY ANY ID ID "/([0-9]{1,9})", &ApiEndpoints::url},
    {Endpoint::pulse, &httplib::Server::Post, ROOT "pulse" ANY ANY ID, &ApiEndpoints::pulse},
    {Endpoint::finalize, &httplib::Server::Put, ROOT "finalize" ANY ANY ID ID, &ApiEndpoints::finalize},
    {Endpoint::abort, &httplib::Server::Delete, ROOT "abort" ANY ANY ID ID, &ApiEndpoints::abort},
};

#undef ROOT
#undef ID
#undef ANY

namespace {

Refusal invalid(const std::string& message) { return {400, "InvalidArgument", message}; }

json readBody(const httplib::Request& request) {
  if (request.body.empty()) return nullptr;
  if (!request.get_header_value("Content-Type").starts_with("application/json")) {
    throw Refusal(415, "UnsupportedMediaType", "The body must be application/json");
  }
  json body = json::parse(request.body, nullptr, false);
  if (!body.is_object()) throw invalid("The body must be a JSON object");
  return body;
}

const json& member(const json& object, const char* name, json::value_t type) {
  const auto found = object.find(name);
  if (found == object.end() || found->type() != type)
    throw invalid("\"" + std::string(name) + "\" is missing or wrong");
  return *found;
}

std::string textOf(const json& object, const char* name) {
  auto text = member(object, name, json::value_t::string).get<std::string>();
  if (text.empty()) throw invalid("\"" + std::string(name) + "\" is empty");
  return text;
}

}  // namespace

void ApiEndpoints::addTo(httplib::Server& server) {
  for (const Route& route : routes) (server.*route.add)(route.path, handlerOf(route));
  const auto unknown = [this](const httplib::Request& request, httplib::Response& response) {
    handleUnknown(request, response);
  };
  for (auto add : {&httplib::Server::Get, &httplib::Server::Options}) (server.*add)(".*", unknown);
  for (const Route& route : routes) (server.*route.add)(".*", unknown);
}

httplib::Server::Handler ApiEndpoints::handlerOf(const Route& route) {
  return [this, &route](const httplib::Request& request, httplib::Response& response) {
    Exchange exchange(world_, route.endpoint, request, response, Exchange::Refusals::json);
    exchange.run([&] {
      authorize(request);
      const auto matched = [&](std::size_t i) { return i < request.matches.size() ? request.matches.str(i) : ""; };
      Call call{{matched(1), matched(2)}, {matched(3), matched(4)}, 0, nullptr};
      if (!matched(5).empty()) call.part = std::stoi(matched(5));
      const Fault& fault = exchange.meetFault(call.ids.fileId, call.part);
      if (fault.close) throw BrokenOff();
      call.body = readBody(request);
      exchange.answer(json{{"data", (this->*route.serve)(call, fault)}}.dump(), "application/json");
    });
  };
}

void ApiEndpoints::authorize(const httplib::Request& request) const {
  if (request.get_header_value("Authorization") == "Bearer " + world_.token) return;
  throw Refusal(401, "Unauthorized", "A valid token is missing");
}

void ApiEndpoints::handleUnknown(const httplib::Request& request, httplib::Response& response) {
  Exchange exchange(world_, std::nullopt, request, response, Exchange::Refusals::json);
  exchange.run([] { throw Refusal(404, "NotFound", "There is nothing here"); });
}

json ApiEndpoints::init(const Call& call, const Fault&) {
  const std::string contentType = textOf(call.body, "contentType");
  std::optional<std::string> source;
  if (call.body.contains("source")) source = textOf(call.body, "source");
  const UploadIds ids = world_.store.begin(call.destination, contentType, source);
  return {{"fileId", ids.fileId}, {"uploadId", ids.uploadId}};
}

json ApiEndpoints::url(const Call& call, const Fault& fault) {
  textOf(call.body, "contentType");
  if (call.part < 1 || call.part > mostParts) throw invalid("Parts have the numbers 1 to 10000");
  world_.store.requireOpen(call.destination, call.ids);
  const auto now = UrlSigner::Clock::now();
  const auto expires = fault.expired ? now - std::chrono::seconds(1) : now + UrlSigner::lifetime;
  const std::string path = StorageEndpoint::path(call.ids, call.part);
  return {{"uploadUrl", world_.baseUrl + world_.signer.sign(path, expires)}};
}

json ApiEndpoints::pulse(const Call& call, const Fault&) {
  world_.store.requireFile(call.destination, call.ids.fileId);
  return json::object();
}

json ApiEndpoints::finalize(const Call& call, const Fault&) {
  const json& file = member(call.body, "file", json::value_t::object);
  const json told{{"name", textOf(file, "name")},
                  {"contentType", textOf(file, "contentType")},
                  {"description", member(file, "description", json::value_t::string)},
                  {"notes", member(file, "notes", json::value_t::array)}};
  world_.store.finalize(call.destination, call.ids, told);
  return json::object();
}

json ApiEndpoints::abort(const Call& call, const Fault&) {
  world_.store.abort(call.destination, call.ids);
  return json::object();
}

}  // namespace quillbeam::service
