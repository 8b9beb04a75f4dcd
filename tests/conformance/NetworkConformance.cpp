#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <optional>
#include <variant>

#include "base/TaskScope.h"
#include "support/NetworkRigs.h"

using namespace std::chrono_literals;
using testing::UnorderedElementsAre;

namespace quillbeam {
namespace {

using enum ServerScript::Fate;
using Outcome = Result<std::optional<HttpResponse>>;
using Listing = std::vector<UploadTaskInfo>;

/// "200", "nothing", or what the error says.
std::string textOf(const Outcome& outcome) {
  if (!outcome) return outcome.error().description();
  return *outcome ? std::to_string((*outcome)->status) : "nothing";
}

/// Everything a background session said, in order. Written on its queue, read by the test.
class TransferLog final : public BackgroundTransferDelegate {
 public:
  struct Completed {
    UploadTaskId task;
    Outcome outcome;
  };
  struct Finished {};
  using Entry = std::variant<Completed, Listing, Finished>;

  void uploadTaskDidComplete(UploadTaskId task, Outcome outcome) override {
    add(Completed{task, std::move(outcome)});
    if (onCompletion) onCompletion();
  }
  void backgroundSessionDidFinishEvents() override { add(Finished{}); }
  void add(Entry entry) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
  }
  std::vector<Entry> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }
  template <class T>
  std::vector<T> all() const {
    std::vector<T> found;
    for (const Entry& entry : entries()) {
      if (const T* value = std::get_if<T>(&entry)) found.push_back(*value);
    }
    return found;
  }
  std::map<UploadTaskId, std::string> outcomes() const {
    std::map<UploadTaskId, std::string> texts;
    for (const Completed& completed : all<Completed>()) {
      EXPECT_TRUE(texts.emplace(completed.task, textOf(completed.outcome)).second) << "completed twice";
    }
    return texts;
  }

  std::function<void()> onCompletion;

 private:
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

class NetworkConformance : public ConformanceTest {
 protected:
  NetworkConformance() {
    if (isSim()) {
      rig_ = std::make_unique<SimNetworkRig>(static_cast<SimulatedWorld&>(world()).dispatch());
    } else {
      rig_ = std::make_unique<LinuxNetworkRig>(dispatch());
    }
    EXPECT_TRUE(rig_->files().createDirectories(directory_.path()));
  }

  NetworkRig& rig() { return *rig_; }

  // Sessions.

  Result<HttpResponse> send(HttpRequest request) {
    if (!session_) session_ = rig_->network().makeSession({});
    std::optional<Result<HttpResponse>> answer;
    TaskScope scope(dispatch().main());
    scope.start(session_->send(std::move(request)), [&](Result<HttpResponse> result) { answer = std::move(result); });
    EXPECT_TRUE(world().waitUntil([&] { return answer.has_value(); }));
    return *std::move(answer);
  }
  HttpRequest get(const std::string& target) { return {.method = "GET", .url = rig_->url(target)}; }

  // Transfers.

  Path file(const std::string& name, const std::string& content) {
    const Path path = joined(directory_.path(), name);
    EXPECT_TRUE(rig_->files().writeAtomically(path, ByteChain(Bytes(content.begin(), content.end()))));
    return path;
  }
  BackgroundTransferSession& transfers() {
    if (!transfers_) transfers_ = rig_->network().makeBackgroundSession({.identifier = "test"}, log);
    return *transfers_;
  }
  UploadTaskId make(const std::string& target, const Path& body, Duration timeout = 60s) {
    return transfers().makeUploadTask({.method = "PUT", .url = rig_->url(target), .timeout = timeout}, body);
  }
  UploadTaskId upload(const std::string& target, const Path& body, Duration timeout = 60s) {
    const UploadTaskId task = make(target, body, timeout);
    transfers().resume(task);
    return task;
  }
  bool waitForCompletions(std::size_t count) {
    return world().waitUntil([&] { return log.all<TransferLog::Completed>().size() >= count; });
  }
  Listing list() {
    const std::size_t before = log.all<Listing>().size();
    transfers().listTasks([this](Listing tasks) { log.add(std::move(tasks)); });
    EXPECT_TRUE(world().waitUntil([&] { return log.all<Listing>().size() > before; }));
    return log.all<Listing>().back();
  }
  std::string states() {
    std::string text;
    for (const UploadTaskInfo& task : list()) text += "swr"[static_cast<int>(task.state)];
    return text;
  }
  bool waitForStates(const std::string& expected) {
    return world().waitUntil([&] { return states() == expected; });
  }
  void endSession() { transfers_.reset(); }

 private:
  TestDirectory directory_;

 protected:
  TransferLog log;

 private:
  std::unique_ptr<NetworkRig> rig_;
  std::unique_ptr<HttpSession> session_;
  std::unique_ptr<BackgroundTransferSession> transfers_;
};
QB_ON_BOTH_WORLDS(NetworkConformance);

TEST_P(NetworkConformance, carriesARequestAsItStandsAndAnyAnswerBack) {
  rig().script("/api/parts", {.response = {404, {{"etag", "\"a1\""}, {"X-Empty", ""}}, "no such thing"}});
  const std::string target = "/api/parts?a=%2fb%2F..&signature=x+y";
  const auto response = send({.method = "PATCH",
                              .url = rig().url(target),
                              .headers = {{"Content-Type", "application/json"}, {"X-Blank", ""}},
                              .body = R"({"part":1})"});
  ASSERT_TRUE(response) << response.error().fullDescription();
  EXPECT_EQ(response->status, 404);
  EXPECT_EQ(response->body, "no such thing");
  ASSERT_NE(response->header("ETag"), nullptr);
  EXPECT_EQ(*response->header("ETag"), "\"a1\"");
  ASSERT_NE(response->header("x-empty"), nullptr);
  EXPECT_EQ(*response->header("x-empty"), "");

  ASSERT_EQ(rig().seen().size(), 1u);
  const SeenRequest seen = rig().seen().front();
  EXPECT_EQ(seen.method, "PATCH");
  EXPECT_EQ(seen.target, target);
  EXPECT_EQ(seen.body, R"({"part":1})");
  const HttpResponse heard{.headers = seen.headers};
  ASSERT_NE(heard.header("content-type"), nullptr);
  EXPECT_EQ(*heard.header("content-type"), "application/json");
  EXPECT_NE(heard.header("x-blank"), nullptr);
  EXPECT_EQ(heard.header("Expect"), nullptr);
}

TEST_P(NetworkConformance, takesARedirectForAnAnswer) {
  rig().script("/old", {.response = {302, {{"Location", rig().url("/new")}}, ""}});
  const auto response = send(get("/old"));
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 302);
  upload("/old", file("part", "body"));
  ASSERT_TRUE(waitForCompletions(1));
  EXPECT_EQ(log.outcomes().begin()->second, "302");
  for (const SeenRequest& seen : rig().seen()) EXPECT_EQ(seen.target, "/old");
}

TEST_P(NetworkConformance, saysWhyASessionHasNoAnswer) {
  rig().script("/silent", {.fate = closesWithoutAWord});
  rig().script("/half-a-head", {.fate = closesInTheMiddle, .response = {200, {{"ETag", "\"of-the-part\""}}, ""}});
  rig().script("/half-a-body", {.fate = closesInTheMiddle, .response = {200, {}, std::string(1000, 'x')}});
  rig().script("/slow", {.fate = stalls});
  rig().script("/endless", {.response = {200, {}, std::string(HttpSession::largestAnswer + 1, 'x')}});
  HttpRequest slow = get("/slow");
  slow.timeout = 300ms;
  HttpRequest local = get("/");
  local.url = "/path";
  HttpRequest foreign = get("/");
  foreign.url = "file:///etc/hostname";

  const std::pair<HttpRequest, NetworkError> cases[] = {{get("/silent"), NetworkError::connectionLost},
                                                        {get("/half-a-head"), NetworkError::connectionLost},
                                                        {get("/half-a-body"), NetworkError::connectionLost},
                                                        {slow, NetworkError::timedOut},
                                                        {get("/endless"), NetworkError::responseTooLarge},
                                                        {local, NetworkError::unsupportedUrl},
                                                        {foreign, NetworkError::unsupportedUrl}};
  for (const auto& [request, expected] : cases) {
    const auto response = send(request);
    ASSERT_FALSE(response) << request.url;
    EXPECT_TRUE(response.error().is(expected)) << request.url << ": " << response.error().fullDescription();
  }
  rig().stopListening();
  const auto response = send(get("/"));
  ASSERT_FALSE(response);
  EXPECT_TRUE(response.error().is(NetworkError::cannotConnect)) << response.error().fullDescription();
}

TEST_P(NetworkConformance, sendsAFileByteForByteThoughItsNameGoesMeanwhile) {
  rig().script("/part", {.response = {200, {{"ETag", "\"p\""}}, ""}, .delay = 500ms});
  std::string content(3'000'000, '.');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 253);
  const Path path = file("part", content);
  const auto task = upload("/part", path);
  ASSERT_TRUE(waitForStates("r"));
  ASSERT_TRUE(rig().files().remove(path));
  ASSERT_TRUE(waitForCompletions(1));
  upload("/part", file("empty", ""));
  ASSERT_TRUE(waitForCompletions(2));
  const auto completed = log.all<TransferLog::Completed>().front();
  EXPECT_EQ(completed.task, task);
  ASSERT_TRUE(completed.outcome && *completed.outcome) << textOf(completed.outcome);
  EXPECT_NE((*completed.outcome)->header("etag"), nullptr);
  ASSERT_EQ(rig().seen().size(), 2u);
  EXPECT_TRUE(rig().seen()[0].body == content);
  EXPECT_EQ(rig().seen()[0].method, "PUT");
  EXPECT_EQ(rig().seen()[1].body, "");
}

TEST_P(NetworkConformance, saysWhatBecameOfEachTransfer) {
  rig().script("/denied", {.response = {403, {}, "<Error/>"}});
  rig().script("/silent", {.fate = closesWithoutAWord});
  rig().script("/half", {.fate = closesInTheMiddle, .response = {200, {{"ETag", "\"of-the-part\""}}, ""}});
  rig().script("/slow", {.fate = stalls});
  const Path body = file("part", std::string(16 << 20, 'x'));
  const std::map<UploadTaskId, std::string> expected{
      {upload("/ok", body), "200"},
      {upload("/denied", body), "403"},
      {upload("/silent", body), "nothing"},
      {upload("/half", body), describe(NetworkError::connectionLost)},
      {upload("/slow", body, 1500ms), describe(NetworkError::timedOut)},
      {upload("/ok", "/nowhere/at/all"), describe(NetworkError::bodyUnreadable)},
  };
  ASSERT_TRUE(waitForStates("r"));
  for (const UploadTaskInfo& stalled : list()) EXPECT_LT(stalled.bytesSent, 16 << 20);
  ASSERT_TRUE(waitForCompletions(6));
  EXPECT_EQ(log.outcomes(), expected);
  rig().stopListening();
  upload("/ok", body);
  ASSERT_TRUE(waitForCompletions(7));
  EXPECT_EQ(log.outcomes().rbegin()->second, describe(NetworkError::cannotConnect));
}

TEST_P(NetworkConformance, runsAFewAtATimeInTheirOrderAndListsThemInOneOrderWithTheirCompletions) {
  rig().script("/part", {.delay = 100ms});
  const Path body = file("part", std::string(1000, 'x'));
  log.onCompletion = [this] { transfers().listTasks([this](Listing tasks) { log.add(std::move(tasks)); }); };
  std::set<UploadTaskId> open;
  for (int i = 0; i < 11; ++i) open.insert(upload("/part", body));
  ASSERT_TRUE(waitForStates("rrrrwwwwwww"));
  ASSERT_TRUE(world().waitUntil([&] {
    list();
    return log.all<TransferLog::Completed>().size() == 11;
  }));

  for (const auto& entry : log.entries()) {
    if (const auto* completed = std::get_if<TransferLog::Completed>(&entry)) open.erase(completed->task);
    const auto* listing = std::get_if<Listing>(&entry);
    if (listing == nullptr) continue;
    std::set<UploadTaskId> listed;
    std::string order;
    for (const UploadTaskInfo& task : *listing) {
      listed.insert(task.id);
      order += "swr"[static_cast<int>(task.state)];
    }
    EXPECT_EQ(listed, open);
    const auto running = std::ranges::count(order, 'r');
    // The simulated session lists as running what has ended, until the delegate knows.
    if (!isSim()) {
      EXPECT_LE(running, BackgroundTransferSession::mostRunningTransfers);
    }
    EXPECT_EQ(order.find_last_of('r') + 1, static_cast<std::size_t>(running)) << order << ": the oldest run first";
  }
  EXPECT_EQ(log.all<TransferLog::Finished>().size(), 1u);
}

TEST_P(NetworkConformance, cancelsTasksInEveryState) {
  rig().script("/part", {.delay = 500ms});
  const Path body = file("part", std::string(1000, 'x'));
  const auto suspended = make("/part", body);
  std::vector<UploadTaskId> tasks;
  for (int i = 0; i < 6; ++i) tasks.push_back(upload("/part", body));
  ASSERT_TRUE(waitForStates("srrrrww"));
  for (const auto task : {suspended, tasks[0], tasks[4]}) transfers().cancel(task);
  ASSERT_TRUE(waitForCompletions(3));
  EXPECT_THAT(log.outcomes(), UnorderedElementsAre(testing::Pair(suspended, describe(NetworkError::cancelled)),
                                                   testing::Pair(tasks[0], describe(NetworkError::cancelled)),
                                                   testing::Pair(tasks[4], describe(NetworkError::cancelled))));
  EXPECT_TRUE(log.all<TransferLog::Finished>().empty());
  ASSERT_TRUE(waitForCompletions(7));
  transfers().cancel(tasks[1]);
  transfers().resume(tasks[1]);
  EXPECT_EQ(states(), "");
  EXPECT_EQ(log.outcomes().at(tasks[5]), "200") << "it took the free slot";
  EXPECT_EQ(log.all<TransferLog::Finished>().size(), 1u);
}

TEST_P(NetworkConformance, transfersWaitWhileThereIsNoRouteAtAll) {
  rig().setRoute(false);
  const Path body = file("part", "body");
  upload("/part", body, 200ms);
  upload("/part", body, 200ms);
  world().letPass(600ms);
  EXPECT_EQ(states(), "ww");
  rig().setRoute(true);
  ASSERT_TRUE(waitForCompletions(2));
  EXPECT_EQ(rig().seen().size(), 2u);
}

TEST_P(NetworkConformance, afterASleepTransfersBeginAgainAndExchangesAreLost) {
  rig().script("/part", {.delay = 1500ms});
  rig().script("/api", {.delay = 1500ms});
  const auto task = upload("/part", file("part", "body"));
  const auto session = rig().network().makeSession({});
  std::optional<Result<HttpResponse>> answer;
  TaskScope scope(dispatch().main());
  scope.start(session->send(get("/api")), [&](Result<HttpResponse> result) { answer = std::move(result); });
  ASSERT_TRUE(world().waitUntil([&] { return rig().seen().size() == 2; }));

  rig().suspend();
  ASSERT_TRUE(world().waitUntil([&] { return answer.has_value(); }));
  ASSERT_FALSE(*answer);
  EXPECT_TRUE(answer->error().is(NetworkError::connectionLost));
  EXPECT_EQ(states(), "r");
  ASSERT_TRUE(waitForCompletions(1));
  EXPECT_EQ(log.outcomes(), (std::map<UploadTaskId, std::string>{{task, "200"}}));
  const auto seen = rig().seen();
  EXPECT_EQ(std::ranges::count(seen, "/part", &SeenRequest::target), 2);
  EXPECT_EQ(seen.back().body, "body");
}

TEST_P(NetworkConformance, callsNobodyOnceASessionIsDestroyed) {
  rig().script("/part", {.delay = 100ms});
  const Path body = file("part", "body");
  for (int i = 0; i < 8; ++i) upload("/part", body);
  ASSERT_TRUE(waitForCompletions(1));
  endSession();
  const auto said = log.entries().size();
  world().letPass(400ms);
  EXPECT_EQ(log.entries().size(), said);

  auto session = rig().network().makeSession({});
  bool isAnswered = false;
  TaskScope scope(dispatch().main());
  scope.start(session->send(get("/part")), [&](const Result<HttpResponse>&) { isAnswered = true; });
  session.reset();
  world().letPass(300ms);
  EXPECT_FALSE(isAnswered);
}

}  // namespace
}  // namespace quillbeam
