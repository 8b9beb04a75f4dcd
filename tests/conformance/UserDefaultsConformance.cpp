#include "platform/linux/posix/JsonUserDefaults.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/sim/SimLogging.h"
#include "platform/sim/SimUserDefaults.h"
#include "support/Worlds.h"

namespace quillbeam {
namespace {

class UserDefaultsConformance : public ConformanceTest {
 protected:
  UserDefaultsConformance() { restart(); }

  UserDefaults& defaults() { return *defaults_; }
  /// The next process of the same user.
  void restart() {
    if (isSim()) {
      if (!defaults_) defaults_ = std::make_unique<SimUserDefaults>();
      return;
    }
    defaults_.reset();
    defaults_ = std::make_unique<JsonUserDefaults>(dispatch(), files_, log_, joined(directory_.path(), "a/b.json"));
  }

 private:
  TestDirectory directory_;
  PosixFiles files_;
  SimSystemLog log_;
  std::unique_ptr<UserDefaults> defaults_;
};
QB_ON_BOTH_WORLDS(UserDefaultsConformance);

TEST_P(UserDefaultsConformance, keepsEveryKindOfValueOverARestart) {
  const Value nested(ValueMap{{"list", ValueList{1, "two", 3.5, nullptr}}, {"flag", false}});
  const std::vector<std::pair<std::string, Value>> settings{
      {"bool", true},
      {"int", -7},
      {"int64", std::int64_t{1} << 40},
      {"double", 2.0},
      {"text", "Grüße \"\n"},
      {"empty", ""},
      {"map", nested},
      {"key.with.dots", 1},
  };
  for (const auto& [key, value] : settings) defaults().set(key, value);
  for (const auto& [key, value] : settings) EXPECT_EQ(defaults().get(key), value) << key << " is visible at once";
  restart();
  for (const auto& [key, value] : settings) EXPECT_EQ(defaults().get(key), value) << key << " came back";
}

}  // namespace
}  // namespace quillbeam
