#include "Exchange.h"

#include <nlohmann/json.hpp>

#include "HttpServer.h"

namespace quillbeam::service {

namespace {

std::string jsonError(const Refusal& refusal) {
  return nlohmann::ordered_json{{"error", {{"code", refusal.code()}, {"message", refusal.what()}}}}.dump();
}

std::string xmlError(const Refusal& refusal) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error><Code>" + refusal.code() + "</Code><Message>" +
         refusal.what() + "</Message></Error>";
}

Refusal injected(int status) {
  if (status == 401) return {401, "Unauthorized", "A valid token is missing"};
  return {status, "InjectedFault", "A fault rule answers with " + std::to_string(status)};
}

}  // namespace

Exchange::Exchange(ServiceWorld& world, std::optional<Endpoint> endpoint, const httplib::Request& request,
                   httplib::Response& response, Refusals refusals)
    : world_(world), response_(response), refusals_(refusals), connection_(HttpServer::currentConnection()) {
  line_.method = request.method;
  line_.path = request.path;
  line_.endpoint = endpoint;
  line_.bytes = request.body.size();
}

void Exchange::run(const std::function<void()>& serve) {
  try {
    serve();
  } catch (const Refusal& refusal) {
    refuse(refusal);
  } catch (const BrokenOff&) {
    connection_.breakOff();
  } catch (const std::exception& problem) {
    refuse({500, "InternalError", problem.what()});
  }
  if (!connection_.isBroken()) line_.status = response_.status;
  world_.log.add(line_);
}

const Fault& Exchange::meetFault(const std::string& fileId, int part) {
  line_.part = part;
  fault_ = world_.faults.judge({.endpoint = line_.endpoint.value(), .fileId = fileId, .part = part});
  line_.fault = fault_.text;
  connection_.pause(fault_.delay);
  if (fault_.status && !fault_.close) throw injected(*fault_.status);
  return fault_;
}

void Exchange::answer(const std::string& body, const std::string& contentType) {
  if (fault_.lostAnswer) throw BrokenOff();
  setBody(200, fault_.badJson ? "this is not JSON" : body, contentType);
}

void Exchange::refuse(const Refusal& refusal) {
  const bool isJson = refusals_ == Refusals::json;
  const std::string body = fault_.body.empty() ? (isJson ? jsonError(refusal) : xmlError(refusal)) : fault_.body;
  setBody(refusal.status(), body, isJson ? "application/json" : "application/xml");
}

void Exchange::setBody(int status, const std::string& body, const std::string& contentType) {
  response_.status = status;
  response_.set_content(body, contentType);
}

}  // namespace quillbeam::service
