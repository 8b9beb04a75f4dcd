#include <set>

#include "platform/linux/posix/UrandomRandom.h"
#include "platform/sim/SeededRandom.h"
#include "support/Worlds.h"

namespace quillbeam {
namespace {

class RandomConformance : public ConformanceTest {
 protected:
  std::unique_ptr<Random> random = isSim() ? std::unique_ptr<Random>(std::make_unique<SeededRandom>(7))
                                           : std::unique_ptr<Random>(std::make_unique<UrandomRandom>());
};
QB_ON_BOTH_WORLDS(RandomConformance);

TEST_P(RandomConformance, identifiersAreFreshAndOfVersionFour) {
  std::set<Uuid> seen;
  for (int i = 0; i < 1000; ++i) {
    const Uuid uuid = random->uuid();
    EXPECT_EQ(uuid.string()[14], '4');
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

}  // namespace
}  // namespace quillbeam
