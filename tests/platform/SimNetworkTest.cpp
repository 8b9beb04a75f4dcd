#include "platform/sim/SimNetwork.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

#include "base/Json.h"
#include "base/TaskScope.h"
#include "platform/sim/SimWorld.h"
#include "support/SimUploadService.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = SimFate::Kind;

std::string textOf(const Result<std::optional<HttpResponse>>& outcome) {
  if (!outcome) return outcome.error().description();
  return *outcome ? std::to_string((*outcome)->status) : "no answer";
}

class Log final : public BackgroundTransferDelegate {
 public:
  void uploadTaskDidComplete(UploadTaskId task, Result<std::optional<HttpResponse>> outcome) override {
    lines.push_back(std::to_string(static_cast<int>(task)) + ": " + textOf(outcome));
  }
  void backgroundSessionDidFinishEvents() override { lines.emplace_back("finished"); }
  std::vector<std::string> lines;
};

/// A machine whose server says 200 and remembers what it saw.
struct Machine {
  Machine() : tasks(world.dispatch.main()) {
    EXPECT_TRUE(world.files.createDirectories("/parts"));
    world.network.server = [this](const SimExchange& exchange) {
      seen.push_back(exchange.request.url);
      return HttpResponse{.status = 200};
    };
    open();
  }

  void open() {
    session = world.network.makeSession({.requestTimeout = 30s, .resourceTimeout = 60s});
    transfers = world.network.makeBackgroundSession({.identifier = "test"}, log);
  }
  void die() {
    world.die();
    tasks.cancelAll();
    session.reset();
    transfers.reset();
  }

  void send(HttpRequest request) {
    tasks.start(session->send(std::move(request)),
                [this](Result<HttpResponse> result) { answers.push_back(textOf(std::move(result))); });
  }
  /// The url's last letter is the task's number.
  UploadTaskId upload() {
    const std::string number = std::to_string(++uploads);
    const Path file = "/parts/" + number;
    EXPECT_TRUE(world.files.writeAtomically(file, ByteChain(Bytes(1000))));
    const UploadTaskId task = transfers->makeUploadTask({.method = "PUT", .url = "https://s/" + number}, file);
    transfers->resume(task);
    return task;
  }
  std::vector<UploadTaskInfo> listing() {
    std::optional<std::vector<UploadTaskInfo>> tasksNow;
    transfers->listTasks([&](std::vector<UploadTaskInfo> list) { tasksNow = std::move(list); });
    EXPECT_TRUE(world.dispatch.runUntil([&] { return tasksNow.has_value(); }, 0s));
    return tasksNow.value_or(std::vector<UploadTaskInfo>());
  }
  void always(SimFate fate) {
    world.network.fate = [fate](const SimExchange&) { return fate; };
  }

  SimWorld world;
  Log log;
  std::vector<std::string> seen;
  std::vector<std::string> answers;
  int uploads = 0;
  std::unique_ptr<HttpSession> session;
  std::unique_ptr<BackgroundTransferSession> transfers;
  TaskScope tasks;
};

struct FateCase {
  SimFate fate;
  std::string toSession;
  std::string toTransfer;
  Duration sessionTakes;
  Duration transferTakes;
  std::size_t effects;
};

TEST(SimNetwork, doesToExchangesWhatTheirFateSays) {
  const std::string timedOut = describe(NetworkError::timedOut);
  const std::string lost = describe(NetworkError::connectionLost);
  const std::string noHost = describe(NetworkError::cannotFindHost);
  const FateCase cases[] = {
      {{Kind::answered, 4s}, "200", "200", 4s, 4s, 1},
      {{Kind::requestLost, 4s, NetworkError::cannotFindHost}, noHost, noHost, 4s, 4s, 0},
      {{Kind::answerLost, 4s}, lost, lost, 4s, 4s, 1},
      {{Kind::stalled, 4s}, timedOut, timedOut, 30s, 61s, 0},
      {{Kind::noAnswer, 4s}, lost, "no answer", 4s, 4s, 0},
      // No byte moves after the request has gone out; transfers spend half of the time sending it.
      {{Kind::answered, 50s}, timedOut, "200", 30s, 50s, 1},
      {{Kind::answered, 200s}, timedOut, timedOut, 30s, 160s, 1},
  };
  for (const FateCase& each : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(each.fate.kind) << " " << each.fate.latency.count());
    Machine machine;
    machine.always(each.fate);
    machine.send({.method = "GET", .url = "https://s/"});
    machine.world.dispatch.advance(each.sessionTakes - 1ns);
    EXPECT_THAT(machine.answers, IsEmpty());
    machine.world.dispatch.advance(1ns);
    EXPECT_THAT(machine.answers, ElementsAre(each.toSession));
    EXPECT_EQ(machine.seen.size(), each.fate.latency > 60s ? 0u : each.effects);

    machine.seen.clear();
    machine.upload();
    machine.world.dispatch.advance(each.transferTakes - 1ns);
    EXPECT_THAT(machine.log.lines, IsEmpty());
    machine.world.dispatch.advance(1ns);
    EXPECT_THAT(machine.log.lines, ElementsAre("1: " + each.toTransfer, "finished"));
    EXPECT_EQ(machine.seen.size(), each.effects);
  }
}

TEST(SimNetwork, holdsARequestToTheShorterIdleLimitAndASessionToItsWholeTime) {
  Machine machine;
  machine.always({.latency = 100s});
  machine.send({.method = "GET", .url = "https://s/", .timeout = 5s});
  machine.world.dispatch.advance(5s);
  EXPECT_THAT(machine.answers, ElementsAre("The request timed out"));

  machine.session = machine.world.network.makeSession({.requestTimeout = 60s, .resourceTimeout = 20s});
  machine.send({.method = "GET", .url = "https://s/"});
  machine.world.dispatch.advance(20s);
  EXPECT_EQ(machine.answers.size(), 2u);
  EXPECT_THAT(machine.seen, IsEmpty());
}

TEST(SimNetwork, countsATransfersWholeTimeFromItsSlotOn) {
  Machine machine;
  machine.transfers = machine.world.network.makeBackgroundSession({.requestTimeout = 300s}, machine.log);
  machine.always({.latency = 110s});
  for (int i = 0; i < 4 * 7; ++i) machine.upload();
  machine.world.dispatch.advance(110s * 7);
  EXPECT_EQ(std::ranges::count_if(machine.log.lines, [](auto& line) { return line.ends_with(": 200"); }), 28);

  machine.always({.latency = 601s});
  machine.upload();
  machine.world.dispatch.advance(600s);
  EXPECT_EQ(machine.log.lines.at(29), "29: The request timed out");
}

TEST(SimNetwork, growsTheBytesOfATransferWhileItIsSentAndStopsThemWhenItStalls) {
  Machine machine;
  machine.always({.latency = 4s});
  machine.upload();
  machine.world.dispatch.advance(500ms);
  EXPECT_EQ(machine.listing().at(0).bytesSent, 250);
  machine.world.dispatch.advance(3s);
  EXPECT_EQ(machine.listing().at(0).bytesSent, 1000);

  machine.always({.kind = Kind::stalled, .latency = 4s});
  machine.upload();
  machine.world.dispatch.advance(50s);
  EXPECT_EQ(machine.listing().at(0).bytesSent, 500);
}

TEST(SimNetwork, startsTransfersInTheirOrderWithTheBrokenOnesFirstAndLetsThemWaitForARoute) {
  Machine machine;
  machine.always({.latency = 4s});
  for (int i = 0; i < 6; ++i) machine.upload();
  machine.send({.method = "GET", .url = "https://s/"});
  machine.world.dispatch.advance(1s);
  EXPECT_EQ(machine.world.network.runningTransfers(), BackgroundTransferSession::mostRunningTransfers);
  machine.world.network.setRoute(false);
  machine.send({.method = "GET", .url = "https://s/"});
  machine.world.dispatch.advance(1h);
  EXPECT_THAT(machine.answers,
              ElementsAre(describe(NetworkError::connectionLost), describe(NetworkError::cannotConnect)));
  EXPECT_THAT(machine.log.lines, IsEmpty());
  EXPECT_EQ(machine.world.network.runningTransfers(), 0);
  EXPECT_EQ(machine.listing().at(0).state, UploadTaskState::waiting);
  EXPECT_EQ(machine.listing().at(0).bytesSent, 500);

  machine.world.network.setRoute(true);
  machine.world.dispatch.advance(1min);
  EXPECT_THAT(machine.seen,
              ElementsAre("https://s/1", "https://s/2", "https://s/3", "https://s/4", "https://s/5", "https://s/6"));
  EXPECT_THAT(machine.log.lines, ElementsAre("1: 200", "2: 200", "3: 200", "4: 200", "5: 200", "6: 200", "finished"));
}

TEST(SimNetwork, beginsTransfersAgainAfterTheMachineSleptThoughTheServerHasSeenThem) {
  Machine machine;
  machine.always({.latency = 4s});
  machine.upload();
  machine.send({.method = "GET", .url = "https://s/"});
  machine.world.dispatch.advance(3s);
  machine.world.network.suspend();
  machine.world.dispatch.advance(3s);
  EXPECT_THAT(machine.answers, ElementsAre(describe(NetworkError::connectionLost)));
  EXPECT_THAT(machine.log.lines, IsEmpty());
  machine.world.dispatch.advance(1s);
  EXPECT_THAT(machine.log.lines, ElementsAre("1: 200", "finished"));
  EXPECT_THAT(machine.seen, ElementsAre("https://s/1", "https://s/", "https://s/1"));
}

TEST(SimNetwork, losesWhatADeadProcessHadOnItsWayAndKeepsWhatTheServerHasSeen) {
  Machine machine;
  machine.always({.latency = 4s});
  machine.upload();
  machine.world.dispatch.advance(3s);
  machine.upload();
  machine.send({.method = "GET", .url = "https://s/"});
  machine.world.dispatch.advance(500ms);
  machine.world.dispatch.kill();
  machine.world.dispatch.advance(1h);
  machine.die();
  machine.world.restart();
  machine.open();
  machine.world.dispatch.advance(1h);
  EXPECT_THAT(machine.seen, ElementsAre("https://s/1"));
  EXPECT_THAT(machine.log.lines, IsEmpty());
  EXPECT_THAT(machine.answers, IsEmpty());

  machine.upload();
  machine.world.network.completeUnknownTask({.status = 204});
  machine.world.dispatch.advance(4s);
  EXPECT_THAT(machine.log.lines, ElementsAre("2: 204", "1: 200", "finished"));
}

TEST(SimNetwork, tellsNothingOfASessionThatIsGone) {
  Machine machine;
  machine.upload();
  machine.transfers->cancel(machine.upload());
  machine.transfers->listTasks([&](const auto&) { ADD_FAILURE(); });
  machine.send({.method = "GET", .url = "https://s/"});
  machine.transfers.reset();
  machine.session.reset();
  machine.world.dispatch.advance(1h);
  EXPECT_THAT(machine.log.lines, IsEmpty());
  EXPECT_THAT(machine.answers, IsEmpty());
  EXPECT_THAT(machine.seen, IsEmpty());
}

// ---- the upload service that other tests stand on

struct Client {
  explicit Client(SimWorld& simWorld)
      : world(simWorld), service(simWorld.network), session(simWorld.network.makeSession({})) {}

  HttpResponse send(HttpRequest request) {
    TaskScope tasks(world.dispatch.main());
    std::optional<Result<HttpResponse>> answer;
    tasks.start(session->send(std::move(request)), [&](Result<HttpResponse> result) { answer = std::move(result); });
    world.dispatch.runUntil([&] { return answer.has_value(); }, 1min);
    return answer.value().value();
  }
  HttpResponse call(std::string method, const std::string& path, std::optional<std::string> body) {
    return send({.method = std::move(method),
                 .url = "https://api.test/files/upload/multipart/" + path,
                 .headers = {{"Authorization", "Bearer token-1"},
                             {"Content-Type", "application/json"},
                             {"Accept", "application/json"}},
                 .body = std::move(body)});
  }
  std::string partUrl(int part) {
    const auto path = "url/team/folder/file-1/upload-1/" + std::to_string(part);
    const auto answer = parseJson(call("PUT", path, R"({"contentType": "video/mp4"})").body).value();
    return *answer.at("data").at("uploadUrl").asString();
  }
  HttpResponse put(const std::string& url, std::string body) {
    return send({.method = "PUT", .url = url, .body = std::move(body)});
  }

  SimWorld& world;
  SimUploadService service;
  std::unique_ptr<HttpSession> session;
};

TEST(SimUploadService, assemblesFullPartsWithoutGapsOnce) {
  SimWorld world;
  Client client(world);
  client.service.partSize = 4;
  EXPECT_EQ(client.call("PUT", "init/team/folder", R"({"contentType": "video/mp4", "source": "test"})").status, 200);
  const std::string finalize = "finalize/team/folder/file-1/upload-1";
  const std::string file =
      R"({"file": {"contentType": "video/mp4", "name": "Meeting", "description": "", "notes": []}})";
  EXPECT_EQ(client.put(client.partUrl(2), "ef").status, 200);
  EXPECT_EQ(client.call("PUT", finalize, file).status, 400);  // part 1 is missing
  EXPECT_EQ(client.put(client.partUrl(1), "abc").status, 200);
  EXPECT_EQ(client.call("PUT", finalize, file).status, 400);  // part 1 is too short
  const auto stored = client.put(client.partUrl(1), "abcd");
  ASSERT_NE(stored.header("etag"), nullptr);
  EXPECT_EQ(*stored.header("etag"), "\"etag-1-2\"");
  EXPECT_EQ(client.call("POST", "pulse/team/folder/file-1", std::nullopt).status, 200);
  EXPECT_EQ(client.call("PUT", finalize, file).status, 200);
  EXPECT_EQ(client.call("PUT", finalize, file).status, 404);
  EXPECT_EQ(client.call("POST", "pulse/team/folder/file-1", std::nullopt).status, 404);

  const SimUpload& upload = client.service.uploads.at("file-1");
  EXPECT_EQ(std::string(upload.object.begin(), upload.object.end()), "abcdef");
  EXPECT_EQ(upload.finalizeCalls, 4);
  EXPECT_EQ(upload.finalizeEffects, 1);
  EXPECT_EQ(upload.pulses, 1);
  EXPECT_EQ(upload.parts.at(1).usedUrls.size(), 2u);
  EXPECT_TRUE(client.service.allExpected());
}

TEST(SimUploadService, refusesWhatIsMalformedUnsignedOrTooLate) {
  SimWorld world;
  Client client(world);
  EXPECT_EQ(client.call("PUT", "init/team/folder", R"({"contentType": "video/mp4", "source": ""})").status, 400);
  EXPECT_EQ(client.call("POST", "init/team/folder", R"({"contentType": "video/mp4"})").status, 405);
  EXPECT_FALSE(client.service.allExpected());
  ASSERT_EQ(client.call("PUT", "init/team/folder", R"({"contentType": "video/mp4"})").status, 200);
  const std::string url = client.partUrl(1);
  EXPECT_NE(url, client.partUrl(1));
  EXPECT_EQ(client.put(url + "0", "x").status, 403);
  const HttpRequest withToken{.method = "PUT", .url = url, .headers = {{"authorization", "Bearer token-1"}}};
  EXPECT_EQ(client.send(withToken).status, 400);
  world.dispatch.advance(1h);
  EXPECT_EQ(client.put(url, "x").status, 403);

  client.service.interfere = [](const SimExchange&) { return HttpResponse{.status = 500}; };
  EXPECT_EQ(client.call("DELETE", "abort/team/folder/file-1/upload-1", std::nullopt).status, 500);
  EXPECT_EQ(client.service.uploads.at("file-1").aborts, 0);
  client.service.interfere = nullptr;
  const std::string late = client.partUrl(1);
  EXPECT_EQ(client.call("DELETE", "abort/team/folder/file-1/upload-1", std::nullopt).status, 200);
  EXPECT_EQ(client.put(late, "x").status, 404);
  client.service.token = "token-2";
  EXPECT_EQ(client.call("PUT", "init/team/folder", R"({"contentType": "video/mp4"})").status, 401);
}

}  // namespace
}  // namespace quillbeam
