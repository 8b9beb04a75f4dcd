#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "ApiEndpoints.h"
#include "HttpServer.h"
#include "StorageEndpoint.h"

namespace quillbeam::service {

namespace {

namespace fs = std::filesystem;

constexpr const char* ruleHelp = R"(
RULE is ENDPOINT[,CONDITION…],FAULT. All rules that strike a request add up.
  ENDPOINT   init, url, put, pulse, finalize, abort or any
  CONDITION  part=N          only this part (url and put have one)
             from=K          from the K-th such request on
             times=K         at most K times
             probability=P   0…1, drawn for each part and attempt from seed=S, whatever the timing (default seed: 1)
             max-per-part=M  no part more often than M times
  FAULT      status=S[,body=TEXT]  answer so, without effect (TEXT goes to the end of the rule)
             unauthorized    answer 401
             delay=MS        wait before anything else
             close           no effect, no answer; put: breaks off within the body
             lost-answer     the effect, but no answer
             bad-json        the effect, but an answer that is no JSON (not for put)
             stall=MS        put: stop reading within the body for a while
             no-etag         put: answer without an ETag
             expired         url: hand out a URL whose time is over
Example: --fault put,probability=0.2,seed=7,max-per-part=3,status=503)";

struct Options {
  int port = 0;
  fs::path directory;
  std::string token = "quillbeam-test-token";
  std::vector<FaultRule> rules;
};

FaultRule parseRule(const std::string& text) {
  try {
    return FaultRule::parse(text);
  } catch (const std::invalid_argument& problem) {
    throw CLI::ValidationError("--fault " + text, problem.what());
  }
}

/// The signals that end the service reach `waitForEnd` alone, not any thread.
sigset_t blockEndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

int serve(Options options) {
  const sigset_t endingSignals = blockEndingSignals();
  UploadStore store(options.directory);
  const UrlSigner signer(options.directory / "signing-key");
  FaultRules faults(std::move(options.rules));
  RequestLog log(options.directory / "requests.jsonl");
  HttpServer server;
  const auto port = server.bind(options.port);
  if (!port) {
    std::fprintf(stderr, "quillbeam-upload-service: port %d is taken\n", options.port);
    return 1;
  }
  ServiceWorld world{options.token, "http://127.0.0.1:" + std::to_string(*port), store, signer, faults, log};
  StorageEndpoint storage(world);
  ApiEndpoints api(world);
  storage.addTo(server);
  api.addTo(server);

  std::thread serving([&] { server.serve(); });
  while (!server.is_running()) std::this_thread::yield();
  std::printf("listening on %s\n", world.baseUrl.c_str());
  std::fflush(stdout);
  int received = 0;
  sigwait(&endingSignals, &received);
  server.end();
  serving.join();
  return 0;
}

}  // namespace

}  // namespace quillbeam::service

int main(int argumentCount, char** arguments) {
  using namespace quillbeam::service;
  CLI::App app("A small upload service for tests: keeps uploads in a directory, and fails on request.");
  Options options;
  std::vector<std::string> rules;
  app.add_option("--port", options.port, "Where to listen on 127.0.0.1; 0: any unused port")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--dir", options.directory, "Where to keep everything")->required();
  app.add_option("--token", options.token, "What clients must present")
      ->envname("QUILLBEAM_UPLOAD_TOKEN")
      ->capture_default_str();
  app.add_option("--fault", rules, "RULE, see below; may be repeated")->allow_extra_args(false);
  app.footer(ruleHelp);
  try {
    app.parse(argumentCount, arguments);
    for (const std::string& rule : rules) options.rules.push_back(parseRule(rule));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  try {
    return serve(std::move(options));
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "quillbeam-upload-service: %s\n", problem.what());
    return 1;
  }
}
