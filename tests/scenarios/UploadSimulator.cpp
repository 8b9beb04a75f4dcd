#include "scenarios/UploadSimulator.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "scenarios/SimulatedRecorder.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;
using State = MacUploadSessionState;

constexpr std::uint64_t farthestDiskFault = 30;

std::string textOf(const std::pair<std::string, int>& part) {
  return part.first + " part " + std::to_string(part.second);
}

bool isPulse(const std::string& operation) { return operation == "pulse"; }

}  // namespace

/// Hears of every outcome of a transfer.
class UploadSimulator::Witness final : public MacNativeBackgroundUploadDelegate {
 public:
  explicit Witness(UploadSimulator& simulator) : simulator_(simulator) {}

  void uploadDidConfirmPart(const MacNativeUploadSession& session, int part) override { ended({session.fileId, part}); }
  void uploadPartDidFail(const MacNativeUploadSession& session, int part, const Error&) override {
    ended({session.fileId, part});
    simulator_.failedAt_[{session.fileId, part}] = simulator_.machine_.time();
  }
  void uploadDidComplete(const MacNativeUploadSession& session) override { simulator_.checkCompleted(session.fileId); }
  void uploadDidFail(const MacNativeUploadSession&, const Error&) override {}

 private:
  void ended(const Part& part) { simulator_.underWay_.erase(part); }
  UploadSimulator& simulator_;
};

UploadSimulator::UploadSimulator(std::uint64_t seed)
    : random_(seed), machine_(seed, SimulatedRecorder::partSize), witness_(std::make_shared<Witness>(*this)) {
  machine_.crash();
  machine_.world.network.fate = [this](const SimExchange& exchange) { return fateOf(exchange); };
  machine_.service.interfere = [this](const SimExchange& exchange) { return interfere(exchange); };
  weather_.slowestTransfer = std::chrono::milliseconds(50 + below(10'000));
  if (chance(250)) return;
  weather_.lost = static_cast<int>(below(chance(200) ? 300 : 60));
  weather_.stalled = static_cast<int>(below(chance(200) ? 200 : 30));
  weather_.refused = static_cast<int>(below(chance(200) ? 300 : 60));
  weather_.diskFails = chance(300);
  weather_.routeFails = chance(400);
  if (chance(300)) machine_.service.urlLifetime = std::chrono::milliseconds(200 + below(20'000));
  usedToBeCalm_ = weather_.isCalm() && machine_.service.urlLifetime == 1h;
}

UploadSimulator::~UploadSimulator() { recorders_.clear(); }

void UploadSimulator::check(bool isTrue, const std::string& what) {
  if (!isTrue) faults_.push_back(std::to_string(machine_.time() / 1ms) + " ms: " + what);
}

// ---- the story

std::vector<std::string> UploadSimulator::run() {
  for (std::uint64_t lives = below(4); lives > 0; --lives) live(static_cast<Ending>(below(4)));
  calmDown();
  live(Ending::rest);
  // The last launch finds what the one before left for it.
  launch();
  waitForRest();
  checkRest();
  end();
  auto platform = machine_.world.platform();
  for (const auto& session : MacNativeUploadSessionStorage(platform).loadAllSessions()) {
    tally_.completed += session.state == State::completed;
    tally_.failed += session.state == State::failed;
    tally_.incomplete += session.isIncomplete();
  }
  const bool wasEasy = usedToBeCalm_ && tally_.deaths == 0 && tally_.launches == 2;
  check(!wasEasy || tally_.completed == tally_.recordings, "an undisturbed recording was not uploaded");
  return faults_;
}

void UploadSimulator::live(Ending ending) {
  if (weather_.diskFails && chance(300)) machine_.world.files.failStep(1 + below(farthestDiskFault), ENOSPC);
  launch();
  record();
  if (chance(200)) record();
  letTimePass(ending);
  if (machine_.world.files.isDead() || ending == Ending::death) return die();
  if (ending == Ending::rest || ending == Ending::deathAtStep) waitForRest();
  end();
}

void UploadSimulator::launch() {
  ++tally_.launches;
  machine_.process = std::make_unique<UploadProcess>(machine_.world);
  UploadProcess& process = *machine_.process;
  process.manager.setDelegate(witness_);
  process.apiClient.configure(std::string(SimUploadService::baseUrl), machine_.service.token);
  process.storage.cleanupOldSessions(7);
  process.tasks.start(process.manager.resumeIncompleteSessions());
  process.tasks.start(process.manager.sweepLeftovers());
}

void UploadSimulator::record() {
  ++tally_.recordings;
  auto facts = std::make_shared<RecordingFacts>();
  facts->parts = static_cast<int>(1 + below(chance(100) ? 100 : 12));
  const std::size_t last = chance(200) ? SimulatedRecorder::partSize : 1 + below(SimulatedRecorder::partSize);
  facts->source.resize(static_cast<std::size_t>(facts->parts - 1) * SimulatedRecorder::partSize + last);
  for (std::uint8_t& byte : facts->source) byte = static_cast<std::uint8_t>(below(256));
  recordings_.push_back(facts);
  recorders_.push_back(std::make_shared<SimulatedRecorder>(*machine_.process, random_.next(), facts));
  recorders_.back()->start();
}

void UploadSimulator::letTimePass(Ending ending) {
  if (ending == Ending::deathAtStep) machine_.world.files.dieAtStep(1 + below(300));
  const Duration until = machine_.time() + std::chrono::milliseconds(below(60'000));
  while (machine_.time() < until && !machine_.world.files.isDead()) {
    machine_.world.dispatch.runUntil([this] { return machine_.world.files.isDead(); },
                                     std::chrono::milliseconds(1 + below(4000)));
    disturb();
  }
}

void UploadSimulator::disturb() {
  SimNetwork& network = machine_.world.network;
  if (weather_.diskFails && chance(300))
    machine_.world.files.failStep(1 + below(farthestDiskFault), chance(500) ? EIO : ENOSPC);
  if (!weather_.routeFails) return;
  ++breaks_;
  if (chance(100)) network.suspend();
  network.setRoute(!chance(200));
}

void UploadSimulator::calmDown() {
  weather_.lost = weather_.stalled = weather_.refused = 0;
  weather_.diskFails = weather_.routeFails = false;
  machine_.world.network.setRoute(true);
  leaveDiskAlone();
  machine_.service.urlLifetime = 1h;
}

void UploadSimulator::leaveDiskAlone() {
  machine_.world.files.dieAtStep(1'000'000'000);
  // Faults that still lie ahead hit this.
  for (std::uint64_t step = 0; step <= farthestDiskFault; ++step) std::ignore = machine_.world.files.list("/");
}

/// Until nothing but heartbeats has been heard for longer than anything waits.
void UploadSimulator::waitForRest() {
  ++breaks_;
  machine_.world.network.setRoute(true);
  const auto isDone = [](const auto& recorder) { return recorder->isDone(); };
  std::ptrdiff_t before = -1;
  for (int rounds = 0; rounds < 40; ++rounds) {
    const auto heard = std::ranges::count_if(machine_.service.requests, std::not_fn(isPulse));
    if (heard == before && std::ranges::all_of(recorders_, isDone)) return;
    before = heard;
    machine_.world.dispatch.runUntil([this] { return machine_.world.files.isDead(); }, 130s);
    if (machine_.world.files.isDead()) return;
  }
  check(false, "no rest");
}

void UploadSimulator::die() {
  ++tally_.deaths;
  for (const auto& facts : recordings_) facts->wasCut = true;
  machine_.world.die();
  recorders_.clear();
  machine_.process.reset();
  const auto cut = below(4);
  if (cut == 3) {
    machine_.world.restart();
  } else {
    machine_.world.restart(static_cast<PowerCut>(cut));
  }
  checkDisk();
}

void UploadSimulator::end() {
  if (machine_.world.files.isDead()) return die();
  machine_.process->tasks.start(machine_.process->manager.prepareForTermination());
  machine_.world.dispatch.runUntil([] { return false; }, 1s);
  if (machine_.world.files.isDead()) return die();
  recorders_.clear();
  machine_.process->tasks.cancelAll();
  machine_.world.dispatch.runUntilIdle();
  check(machine_.world.dispatch.isIdle(), "something waits after an orderly end");
  checkAnswers();
  for (const auto& facts : recordings_) facts->wasCut = true;
  machine_.process.reset();
  machine_.world.restart();
  checkDisk();
}

// ---- the network

SimFate UploadSimulator::fateOf(const SimExchange& exchange) {
  if (exchange.isTransfer) transferBegins(exchange.request.url);
  const auto slowest = static_cast<std::uint64_t>(weather_.slowestTransfer / 1ms);
  SimFate fate{.latency = std::chrono::milliseconds(1 + below(exchange.isTransfer ? slowest : 400))};
  if (chance(weather_.lost)) {
    constexpr SimFate::Kind kinds[] = {SimFate::Kind::requestLost, SimFate::Kind::answerLost, SimFate::Kind::noAnswer};
    fate.kind = kinds[below(3)];
  } else if (chance(weather_.stalled)) {
    fate.kind = SimFate::Kind::stalled;
  }
  return fate;
}

std::optional<HttpResponse> UploadSimulator::interfere(const SimExchange& exchange) {
  if (!chance(weather_.refused)) return std::nullopt;
  constexpr int statuses[] = {400, 401, 403, 404, 409, 429, 500, 502, 503, 200, 204};
  // The service's answers are read, the storage is believed.
  const std::size_t kinds = std::size(statuses) - (exchange.isTransfer ? 2 : 0);
  return HttpResponse{.status = statuses[below(kinds)], .body = chance(500) ? "oops" : ""};
}

void UploadSimulator::transferBegins(const std::string& url) {
  const std::size_t file = url.find("/put/") + 5;
  const std::size_t number = url.rfind('/') + 1;
  const Part part{url.substr(file, url.find('/', file) - file), std::stoi(url.substr(number))};
  const auto begun = begunAt_.find(url);
  if (begun != begunAt_.end()) {
    // The same transfer begins again after the connection broke.
    check(std::exchange(begun->second, breaks_) != breaks_, textOf(part) + " used an address twice");
    check(underWay_[part] == url, textOf(part) + " began again though it had ended");
    return;
  }
  begunAt_.emplace(url, breaks_);
  addresses_[part].insert(url);
  check(addresses_[part].size() <= 5, textOf(part) + " was tried too often");
  check(!underWay_.contains(part), textOf(part) + " is sent twice at a time");
  underWay_[part] = url;
  const auto failed = failedAt_.find(part);
  check(failed == failedAt_.end() || machine_.time() - failed->second >= 2s, textOf(part) + " was retried too soon");
}

// ---- what must hold

void UploadSimulator::checkCompleted(const std::string& fileId) {
  const SimUpload& upload = machine_.service.uploads.at(fileId);
  check(upload.state == SimUpload::State::finalized, fileId + " is called completed and is not");
  const auto found = std::ranges::find(recordings_, fileId, [](const auto& facts) { return facts->fileId; });
  if (found == recordings_.end()) return check(false, fileId + " is nobody's recording");
  Bytes expected;
  for (const int part : (*found)->handedOver) {
    const auto [from, count] = SimulatedRecorder::rangeOf(part, (*found)->source.size(), SimulatedRecorder::partSize);
    const auto begin = (*found)->source.begin() + static_cast<std::ptrdiff_t>(from);
    expected.insert(expected.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
  }
  check(upload.object == expected, fileId + " is not what was handed over");
  check((*found)->finalizeCalls == 1, fileId + " was completed before its recording");
}

void UploadSimulator::checkDisk() {
  leaveDiskAlone();
  addresses_.clear();
  failedAt_.clear();
  underWay_.clear();
  for (const auto& [fileId, upload] : machine_.service.uploads) {
    check(upload.finalizeEffects <= 1, fileId + " was made twice");
  }
  auto platform = machine_.world.platform();
  MacNativeUploadSessionStorage storage(platform);
  const auto names = machine_.names("native_upload_sessions");
  const auto records = std::ranges::count_if(names, [](const auto& name) { return fileExtension(name) == "json"; });
  const auto sessions = storage.loadAllSessions();
  check(std::cmp_equal(sessions.size(), records), "a record does not decode");
  for (const auto& session : sessions) {
    if (session.state == State::completed) checkCompleted(session.fileId);
  }
}

void UploadSimulator::checkAnswers() {
  for (const auto& facts : recordings_) {
    if (facts->wasCut) continue;
    check(facts->finalizeAnswers == facts->finalizeCalls, facts->fileId + ": the end was not answered once");
    for (const auto& [part, answers] : facts->answers) {
      check(answers == 1, textOf({facts->fileId, part}) + " was answered " + std::to_string(answers) + " times");
    }
    check(!facts->succeeded || machine_.service.uploads.at(facts->fileId).state == SimUpload::State::finalized,
          facts->fileId + ": success without a file");
  }
}

void UploadSimulator::checkRest() {
  check(machine_.world.network.runningTransfers() == 0, "a transfer runs at rest");
  std::set<std::string> incomplete;
  for (const auto& session : machine_.process->storage.getActiveSessions()) incomplete.insert(session.id);
  for (const auto& name : machine_.partFiles()) {
    const auto owner = sessionOfPartFile(name);
    check(owner && incomplete.contains(*owner), "left behind: " + name);
  }
  for (const auto& directory : {"", "native_upload_sessions"}) {
    for (const auto& name : machine_.names(directory)) check(!isTemporaryName(name), "left behind: " + name);
  }
}

}  // namespace quillbeam
