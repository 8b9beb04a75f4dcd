#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "scenarios/UploadSimulator.h"

namespace quillbeam {
namespace {

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

/// A quarter of the seeds each, so that they run side by side. QUILLBEAM_SEED=n runs one alone, QUILLBEAM_SEEDS=count
/// another number.
class UploadSimulation : public testing::TestWithParam<std::uint64_t> {};

TEST_P(UploadSimulation, keepsEveryPromise) {
  const std::uint64_t alone = fromEnvironment("QUILLBEAM_SEED", 0);
  const std::uint64_t count = alone == 0 ? fromEnvironment("QUILLBEAM_SEEDS", 2400) : 1;
  UploadSimulator::Tally sum;
  int failures = 0;
  for (std::uint64_t i = GetParam(); i < count && failures < 3; i += 4) {
    const std::uint64_t seed = alone == 0 ? i + 1 : alone;
    UploadSimulator simulator(seed);
    std::string faults;
    for (const std::string& fault : simulator.run()) faults += "  " + fault + "\n";
    EXPECT_EQ(faults, "") << "QUILLBEAM_SEED=" << seed;
    failures += faults.empty() ? 0 : 1;
    const auto& tally = simulator.tally();
    sum.recordings += tally.recordings;
    sum.completed += tally.completed;
    sum.failed += tally.failed;
    sum.incomplete += tally.incomplete;
  }
  if (alone == 0 && failures == 0) {
    EXPECT_GT(sum.completed, sum.recordings / 3) << "too much goes wrong to say anything";
    EXPECT_GT(sum.failed + sum.incomplete, sum.recordings / 20) << "too little goes wrong";
  }
}

INSTANTIATE_TEST_SUITE_P(Quarter, UploadSimulation, testing::Range<std::uint64_t>(0, 4));

}  // namespace
}  // namespace quillbeam
