#include "platform/linux/curl/CurlNetwork.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "base/TaskScope.h"
#include "support/LoopbackServer.h"
#include "support/TlsServer.h"
#include "support/Worlds.h"

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace quillbeam {
namespace {

using Then = LoopbackServer::Then;
using Outcome = Result<std::optional<HttpResponse>>;

Then answerOk(LoopbackExchange& exchange) {
  exchange.readBody();
  exchange.answer({.status = 200});
  return Then::keepOpen;
}

class Outcomes final : public BackgroundTransferDelegate {
 public:
  void uploadTaskDidComplete(UploadTaskId, Outcome outcome) override {
    const std::lock_guard lock(mutex_);
    all_.push_back(std::move(outcome));
  }
  void backgroundSessionDidFinishEvents() override {}
  std::vector<Outcome> all() const {
    const std::lock_guard lock(mutex_);
    return all_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Outcome> all_;
};

class CurlNetworkTest : public testing::Test {
 protected:
  Result<HttpResponse> send(HttpRequest request) {
    std::optional<Result<HttpResponse>> answer;
    TaskScope scope(world.dispatch().main());
    scope.start(session->send(std::move(request)), [&](Result<HttpResponse> result) { answer = std::move(result); });
    EXPECT_TRUE(world.waitUntil([&] { return answer.has_value(); }));
    return *std::move(answer);
  }
  std::string file(std::size_t size) {
    std::string path = directory.path() + "/part";
    std::ofstream(path) << std::string(size, 'x');
    return path;
  }
  UploadTaskId upload(const std::string& url, const std::string& path) {
    const auto task = transfers->makeUploadTask({.method = "PUT", .url = url}, path);
    transfers->resume(task);
    return task;
  }
  bool waitForCompletions(std::size_t count) {
    return world.waitUntil([&] { return outcomes.all().size() >= count; });
  }
  Outcome completed(const std::string& url, const std::string& path) {
    const auto before = outcomes.all().size();
    upload(url, path);
    EXPECT_TRUE(waitForCompletions(before + 1));
    return outcomes.all().back();
  }

  TestDirectory directory;
  LinuxWorld world;
  Outcomes outcomes;
  CurlNetwork network{world.dispatch(), {}};
  std::unique_ptr<HttpSession> session = network.makeSession({});
  std::unique_ptr<BackgroundTransferSession> transfers = network.makeBackgroundSession({}, outcomes);
};

TEST_F(CurlNetworkTest, sendsNothingThatWouldBecomeAnotherLine) {
  LoopbackServer server(answerOk);
  using namespace std::string_literals;
  const std::vector<HttpHeader> bad = {{"X-Id", "1\nEvil: 1"}, {"X-Id", "1\r"}, {"X-Id", "1\0"s}, {"X\r\nEvil", "1"},
                                       {"X: 1", "1"},          {"", "1"},       {"X Y", "1"}};
  for (const HttpHeader& header : bad) {
    const auto response = send({.method = "GET", .url = server.url("/"), .headers = {header}});
    ASSERT_FALSE(response) << header.name << header.value;
    EXPECT_TRUE(response.error().is(NetworkError::invalidRequest));
  }
  for (const std::string& method : {""s, "GET / HTTP/1.1\r\nEvil: 1\r\n\r\nGET"s, "GE T"s}) {
    EXPECT_TRUE(send({.method = method, .url = server.url("/")}).error().is(NetworkError::invalidRequest));
  }
  for (const std::string& target : {"/ HTTP/1.1\r\nEvil: 1"s, "/a b"s, "/\0"s}) {
    EXPECT_TRUE(send({.method = "GET", .url = server.url(target)}).error().is(NetworkError::unsupportedUrl));
  }
  EXPECT_EQ(server.connectionCount(), 0);
}

TEST_F(CurlNetworkTest, leavesTheBodysLengthAndNothingElseToTheLibrary) {
  std::string seen;
  LoopbackServer server([&](LoopbackExchange& exchange) {
    seen = exchange.headerValue("Content-Length") + "|" + exchange.headerValue("Transfer-Encoding") + "|" +
           exchange.headerValue("Content-Type") + "|" + exchange.headerValue("User-Agent");
    return answerOk(exchange);
  });
  const std::vector<HttpHeader> lies = {{"Content-Length", "3"}, {"transfer-encoding", "chunked"}};
  ASSERT_TRUE(send({.method = "POST", .url = server.url("/"), .headers = lies, .body = "12345"}));
  EXPECT_EQ(seen, "5|||");
  ASSERT_TRUE(send({.method = "POST", .url = server.url("/")}));
  EXPECT_EQ(seen, "0|||");
  ASSERT_TRUE(send({.method = "DELETE", .url = server.url("/")}));
  EXPECT_EQ(seen, "|||");
}

TEST_F(CurlNetworkTest, judgesWhatServersSayInPlaceOfAnAnswer) {
  using namespace std::string_literals;
  const std::string manyHeaders = [] {
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 40; ++i) text += "X: " + std::string(10'000, 'x') + "\r\n";
    return text + "\r\n";
  }();
  const std::pair<std::string, std::string> cases[] = {
      {"SSH-2.0-OpenSSH_9.2\r\n", describe(NetworkError::notHttp)},
      {"\x15\x03\x01\x00\x02\x02\x46", describe(NetworkError::notHttp)},
      {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n", describe(NetworkError::connectionLost)},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabc", describe(NetworkError::connectionLost)},
      {manyHeaders, describe(NetworkError::responseTooLarge)},
      {"HTTP/1.1 103 Early Hints\r\nX: early\r\n\r\nHTTP/1.1 200 OK\r\nX: late\r\n\r\nuntil the end",
       "late|until the end"},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nX: head\r\n\r\n3\r\nabc\r\n0\r\nX: trailer\r\n\r\n",
       "head|abc"},
      {"HTTP/1.1 200 OK\r\nbroken\r\nContent-Length: 0\r\n\r\n", describe(NetworkError::notHttp)},
      {"HTTP/1.1 200 OK\r\nX: a\r\n  b\r\nContent-Length: 0\r\n\r\n", "a b|"},
  };
  for (const auto& [said, expected] : cases) {
    LoopbackServer server([&said = said](LoopbackExchange& exchange) {
      exchange.readBody();
      exchange.send(said);
      return Then::close;
    });
    const auto response = send({.method = "GET", .url = server.url("/")});
    if (!response) {
      EXPECT_EQ(response.error().description(), expected) << said.substr(0, 60);
      continue;
    }
    const std::string* header = response->header("X");
    EXPECT_EQ((header == nullptr ? "none" : *header) + "|" + response->body, expected) << said.substr(0, 60);
    const bool isSingle = std::ranges::count(response->headers, "X", &HttpHeader::name) == 1;
    EXPECT_TRUE(isSingle) << said.substr(0, 60);
  }
}

TEST_F(CurlNetworkTest, aDeadPooledConnectionCostsASessionTheExchangeAndATransferNothing) {
  std::atomic<int> requests = 0;
  LoopbackServer server([&](LoopbackExchange& exchange) {
    exchange.readBody();
    // The second request of each connection is taken, and then the connection dies.
    if (++requests % 2 == 0) return Then::close;
    exchange.answer({.status = 200});
    return Then::keepOpen;
  });
  const HttpRequest post{.method = "POST", .url = server.url("/"), .body = "effect"};
  ASSERT_TRUE(send(post));
  const auto second = send(post);
  ASSERT_FALSE(second);
  EXPECT_TRUE(second.error().is(NetworkError::connectionLost));
  EXPECT_EQ(requests, 2) << "once each, though the connection was a used one";

  const auto path = file(100'000);
  for (int i = 0; i < 2; ++i) {
    const auto outcome = completed(server.url("/part"), path);
    ASSERT_TRUE(outcome && *outcome && (*outcome)->status == 200);
  }
  EXPECT_EQ(requests, 5);
}

TEST_F(CurlNetworkTest, errorsDoNotNameTheAddress) {
  std::string url;
  {
    LoopbackServer server(answerOk);
    url = server.url("/part?signature=secret");
  }
  const auto refused = completed(url, file(10));
  ASSERT_FALSE(refused);
  ASSERT_NE(refused.error().underlying(), nullptr);
  EXPECT_THAT(refused.error().fullDescription(), HasSubstr("Connection refused"));
  EXPECT_THAT(refused.error().fullDescription(), Not(HasSubstr("127.0.0.1")));
  EXPECT_THAT(refused.error().fullDescription(), Not(HasSubstr("secret")));
}

TEST_F(CurlNetworkTest, tellsItsSecretsToNobodyWhoseCertificateNobodyVouchesFor) {
  TlsServer server;
  const auto response =
      send({.method = "GET", .url = server.url("/?signature=secret"), .headers = {{"Authorization", "Bearer secret"}}});
  const auto outcome = completed(server.url("/part?signature=secret"), file(10));
  ASSERT_FALSE(response);
  ASSERT_FALSE(outcome);
  for (const Error& error : {response.error(), outcome.error()}) {
    EXPECT_TRUE(error.is(NetworkError::secureConnectionFailed)) << error.fullDescription();
    ASSERT_NE(error.underlying(), nullptr);
    constexpr int peerFailedVerification = 60;
    EXPECT_EQ(error.underlying()->code(), peerFailedVerification);
  }
  const std::string heard = server.heard();
  EXPECT_FALSE(heard.empty());
  EXPECT_THAT(heard, Not(HasSubstr("secret")));
}

TEST_F(CurlNetworkTest, doesNotSendAFileThatBecameShorterOrIsNone) {
  const auto path = file(64 << 20);
  LoopbackServer server([&](LoopbackExchange& exchange) {
    std::filesystem::resize_file(path, 1000);
    return answerOk(exchange);
  });
  for (const auto& body : {path, directory.path()}) {
    const auto outcome = completed(server.url("/part"), body);
    ASSERT_FALSE(outcome);
    EXPECT_TRUE(outcome.error().is(NetworkError::bodyUnreadable)) << outcome.error().fullDescription();
  }
}

TEST(KernelRouteProbe, knowsTheWayToThisMachineWhateverItIsCalled) {
  KernelRouteProbe probe;
  for (const char* host : {"127.0.0.1", "localhost", "app.localhost"}) EXPECT_TRUE(probe.hasRoute(host)) << host;
}

}  // namespace
}  // namespace quillbeam
