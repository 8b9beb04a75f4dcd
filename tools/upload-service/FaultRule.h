#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <tuple>

#include "Endpoint.h"

namespace quillbeam::service {

/// What goes wrong with one request.
struct Fault {
  std::string text;  ///< for the log; empty: nothing goes wrong
  std::chrono::milliseconds delay{};
  std::chrono::milliseconds stall{};  ///< within the body
  std::optional<int> status;          ///< answered without any effect
  std::string body;                   ///< of that answer; empty: the usual one
  bool close = false;                 ///< no effect and no answer
  bool lostAnswer = false;
  bool badJson = false;
  bool noEtag = false;
  bool expired = false;

  /// Both; where they contradict each other this one stays.
  void add(const Fault& other);
};

/// The request that a rule is asked about. `fileId` and `part` are empty where the endpoint has none.
struct Occasion {
  Endpoint endpoint;
  std::string fileId;
  int part = 0;
};

/// Which requests fail, and how: "put,probability=0.2,seed=7,max-per-part=3,status=503". The README has the grammar.
/// Not safe for use by several threads.
class FaultRule {
 public:
  /// Throws std::invalid_argument, whose text says what is wrong.
  static FaultRule parse(const std::string& text);

  /// Nothing when the rule spares this request. Counts the requests that it is about.
  const Fault* judge(const Occasion& occasion);

 private:
  /// Of one part, so that what befalls it does not depend on when the others come.
  struct History {
    int requests = 0;
    int faults = 0;
  };
  static constexpr int endless = std::numeric_limits<int>::max();

  void set(const std::string& key, const std::string& value);
  bool setCondition(const std::string& key, const std::string& value);
  void checkWhole() const;
  bool isAbout(const Occasion& occasion) const;
  bool chanceStrikes(const Occasion& occasion, int request) const;

  std::optional<Endpoint> endpoint_;  ///< none: any
  std::optional<int> part_;
  int from_ = 1;
  int times_ = endless;
  int maxPerPart_ = endless;
  double probability_ = 1;
  std::uint64_t seed_ = 1;
  Fault fault_;

  int requests_ = 0;
  int faults_ = 0;
  std::map<std::tuple<Endpoint, std::string, int>, History> histories_;
};

}  // namespace quillbeam::service
