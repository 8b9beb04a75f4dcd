#include "StorageEndpoint.h"

#include "IncomingBody.h"

namespace quillbeam::service {

std::string StorageEndpoint::path(const UploadIds& ids, int part) {
  return "/storage/" + ids.fileId + "/" + ids.uploadId + "/" + std::to_string(part);
}

void StorageEndpoint::addTo(httplib::Server& server) {
  const httplib::Server::HandlerWithContentReader handler =
      [this](const httplib::Request& request, httplib::Response& response, const httplib::ContentReader& reader) {
        handle(request, response, reader);
      };
  server.Put("/storage/([A-Za-z0-9_-]+)/([A-Za-z0-9_-]+)/([0-9]{1,9})", handler);
}

void StorageEndpoint::handle(const httplib::Request& request, httplib::Response& response,
                             const httplib::ContentReader& reader) {
  Exchange exchange(world_, Endpoint::put, request, response, Exchange::Refusals::xml);
  exchange.run([&] {
    IncomingBody body(request, reader, exchange);
    try {
      serve(request, response, exchange, body);
    } catch (const Refusal&) {
      body.discard();
      throw;
    }
  });
}

void StorageEndpoint::serve(const httplib::Request& request, httplib::Response& response, Exchange& exchange,
                            IncomingBody& body) {
  world_.signer.check(request.path, request.get_param_value("expires"), request.get_param_value("signature"));
  const UploadIds ids{request.matches.str(1), request.matches.str(2)};
  const int part = std::stoi(request.matches.str(3));
  const Fault& fault = exchange.meetFault(ids.fileId, part);
  if (request.has_header("Transfer-Encoding")) {
    throw Refusal(411, "MissingContentLength", "The body must come with its length");
  }
  const auto writer = world_.store.openPart(ids, part);
  body.read(fault, [&](std::string_view bytes) { writer->append(bytes); });
  const std::string etag = writer->finish();
  world_.store.storePart(ids, part, *writer);
  if (!fault.noEtag) response.set_header("ETag", "\"" + etag + "\"");
  exchange.answer("", "application/xml");
}

}  // namespace quillbeam::service
