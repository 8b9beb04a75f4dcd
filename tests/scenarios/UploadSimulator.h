#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/sim/SimRandomSource.h"
#include "support/UploadWorld.h"

namespace quillbeam {

class SimulatedRecorder;

/// What is known of one recording, whatever becomes of the process that made it.
struct RecordingFacts {
  Bytes source;
  int parts = 0;
  bool wasCut = false;  ///< its process died: what answers from then on is nobody's
  std::string fileId;   ///< once the recorder knows it
  std::set<int> handedOver;
  std::map<int, int> answers;  ///< per part
  int finalizeCalls = 0;
  int finalizeAnswers = 0;
  bool succeeded = false;
};

/// The upload room on a machine where everything goes wrong that can: requests and answers are lost, transfers stall,
/// the service refuses, addresses expire, the machine sleeps or loses its route, the disk fails, processes end, die and
/// lose their power. One seed is one story; at its end come a calm network and one more launch.
///
/// Whatever happens: an upload that is called completed is at the service as the recorder handed it over; a file is
/// made at most once; a part is sent by one transfer at a time, at most five times per process, each 2 s or more after
/// the failure before and to an address of its own; whoever asked is answered once; records always decode; at rest
/// nothing is left on disk that belongs to no incomplete upload, and nothing waits.
class UploadSimulator {
 public:
  struct Tally {
    int recordings = 0, completed = 0, failed = 0, incomplete = 0, deaths = 0, launches = 0;
  };

  explicit UploadSimulator(std::uint64_t seed);
  ~UploadSimulator();

  /// Once. What was wrong, one line each.
  std::vector<std::string> run();
  const Tally& tally() const { return tally_; }

 private:
  enum class Ending { rest, deathAtStep, death, orderly };
  struct Weather {
    int lost = 0, stalled = 0, refused = 0;  // in a thousand
    bool diskFails = false, routeFails = false;
    Duration slowestTransfer{};
    bool isCalm() const { return lost + stalled + refused == 0 && !diskFails && !routeFails; }
  };
  class Witness;
  using Part = std::pair<std::string, int>;  // file id, number

  void live(Ending ending);
  void launch();
  void record();
  void letTimePass(Ending ending);
  void waitForRest();
  void disturb();
  void calmDown();
  void leaveDiskAlone();
  void die();
  void end();

  SimFate fateOf(const SimExchange& exchange);
  std::optional<HttpResponse> interfere(const SimExchange& exchange);
  void transferBegins(const std::string& url);
  void checkDisk();
  void checkCompleted(const std::string& fileId);
  void checkAnswers();
  void checkRest();
  void check(bool isTrue, const std::string& what);

  std::uint64_t below(std::uint64_t bound) { return random_.below(bound); }
  bool chance(int inAThousand) { return std::cmp_less(below(1000), inAThousand); }

  SimRandomSource random_;
  UploadWorld machine_;
  Weather weather_;
  bool usedToBeCalm_ = true;
  std::vector<std::string> faults_;
  Tally tally_;

  std::vector<std::shared_ptr<RecordingFacts>> recordings_;
  std::vector<std::shared_ptr<SimulatedRecorder>> recorders_;  // of this process
  std::shared_ptr<Witness> witness_;

  int breaks_ = 0;                                   // connections were broken so often
  std::map<std::string, int> begunAt_;               // by address: the break before it
  std::map<Part, std::set<std::string>> addresses_;  // of this process, like the next two
  std::map<Part, Duration> failedAt_;
  std::map<Part, std::string> underWay_;
};

}  // namespace quillbeam
