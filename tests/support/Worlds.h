#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <functional>
#include <memory>

#include "platform/linux/posix/LinuxDispatch.h"
#include "platform/sim/SimDispatch.h"
#include "support/TestDirectory.h"

namespace quillbeam {

enum class WorldKind { linux_, sim };

inline std::string worldName(const testing::TestParamInfo<WorldKind>& info) {
  return info.param == WorldKind::sim ? "sim" : "linux";
}

/// The two sides that a conformance suite runs on. The test's code is the main thread of its world.
class World {
 public:
  virtual ~World() = default;

  virtual Dispatch& dispatch() = 0;
  /// Keeps the main queue going until `condition` holds; false when it still does not after a generous while.
  virtual bool waitUntil(const std::function<bool()>& condition) = 0;
  /// At least `duration` passes, with the main queue going.
  virtual void letPass(Duration duration) = 0;
};

class LinuxWorld final : public World {
 public:
  LinuxDispatch& dispatch() override { return dispatch_; }

  bool waitUntil(const std::function<bool()>& condition) override {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      pollfd main{.fd = dispatch_.mainDescriptor(), .events = POLLIN, .revents = 0};
      ::poll(&main, 1, 1);
      dispatch_.drainMain();
    }
    return true;
  }
  void letPass(Duration duration) override {
    const auto until = std::chrono::steady_clock::now() + duration;
    waitUntil([&] { return std::chrono::steady_clock::now() >= until; });
  }

 private:
  LinuxDispatch dispatch_;
};

class SimulatedWorld final : public World {
 public:
  SimDispatch& dispatch() override { return dispatch_; }
  bool waitUntil(const std::function<bool()>& condition) override {
    return dispatch_.runUntil(condition, std::chrono::seconds(30));
  }
  void letPass(Duration duration) override { dispatch_.advance(duration); }

 private:
  SimDispatch dispatch_;
};

/// Base of a suite's fixture: `class FilesConformance : public ConformanceTest {};` then
/// `QB_ON_BOTH_WORLDS(FilesConformance)`.
class ConformanceTest : public testing::TestWithParam<WorldKind> {
 protected:
  bool isSim() const { return GetParam() == WorldKind::sim; }
  World& world() { return *world_; }
  Dispatch& dispatch() { return world_->dispatch(); }

 private:
  std::unique_ptr<World> world_ = isSim() ? std::unique_ptr<World>(std::make_unique<SimulatedWorld>())
                                          : std::unique_ptr<World>(std::make_unique<LinuxWorld>());
};

#define QB_ON_BOTH_WORLDS(Suite) \
  INSTANTIATE_TEST_SUITE_P(On, Suite, testing::Values(WorldKind::linux_, WorldKind::sim), worldName)

}  // namespace quillbeam
