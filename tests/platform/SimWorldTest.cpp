#include "platform/sim/SimWorld.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

/// Notes its beats in a file, the way a process leaves traces.
struct Beating {
  explicit Beating(Platform platform) : platform(platform), queue(platform.dispatch.makeSerialQueue("beats")) {
    EXPECT_TRUE(platform.files.createDirectories(platform.places.caches));
    beat();
  }
  void beat() {
    const Path path = joined(platform.places.caches, "beats");
    EXPECT_TRUE(platform.files.append(path, ByteChain(Bytes(1, '.')), Durability::durable));
    timer = queue->after(1s, [this] { beat(); });
  }

  Platform platform;
  std::unique_ptr<DispatchQueue> queue;
  TimerHandle timer;
};

TEST(SimWorld, aDeadProcessLeavesWhatWasThereAndTheNextOneGoesOn) {
  SimWorld world;
  const auto beats = [&] { return world.files.read("/home/user/.cache/beats")->size(); };
  {
    Beating process(world.platform());
    world.dispatch.advance(3500ms);
    world.die();
    world.dispatch.advance(1h);
  }
  world.restart(PowerCut::dropUnsynced);
  EXPECT_EQ(beats(), 4u);
  const Beating next(world.platform());
  world.dispatch.advance(1s);
  EXPECT_EQ(beats(), 6u);
}

}  // namespace
}  // namespace quillbeam
