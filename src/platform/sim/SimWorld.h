#pragma once

#include <cstdint>

#include "platform/Platform.h"
#include "platform/sim/SeededRandom.h"
#include "platform/sim/SimAudioExporter.h"
#include "platform/sim/SimCaptureDevices.h"
#include "platform/sim/SimDesktop.h"
#include "platform/sim/SimDispatch.h"
#include "platform/sim/SimFiles.h"
#include "platform/sim/SimLogging.h"
#include "platform/sim/SimMediaWriters.h"
#include "platform/sim/SimNetwork.h"
#include "platform/sim/SimPermissions.h"
#include "platform/sim/SimProcessMemory.h"
#include "platform/sim/SimScreenCapture.h"
#include "platform/sim/SimSockets.h"
#include "platform/sim/SimUserDefaults.h"

namespace quillbeam {

/// A whole simulated machine: `world.platform()` is what the rooms under test get, the members are what the test
/// scripts and looks at. One seed decides everything that chance decides; print it when a test fails. Two worlds side
/// by side know nothing of each other.
///
///     SimWorld world(seed);
///     {
///       Uploader uploader(world.platform());
///       world.dispatch.advance(5s);
///       world.die();                       // nothing more happens; now destroy the dead process's objects
///     }
///     world.restart(PowerCut::tearUnsynced);
class SimWorld {
 public:
  explicit SimWorld(std::uint64_t seed = 1)
      : dispatch({.seed = seed}), files(dispatch, seed), network(dispatch, files), sockets(seed), random(seed) {}

  Platform platform() {
    return {.processId = 100,
            .dispatch = dispatch,
            .files = files,
            .places = places,
            .localSockets = sockets,
            .standardOutput = standardOutput,
            .systemLog = systemLog,
            .userDefaults = userDefaults,
            .random = random,
            .systemVersion = systemVersion,
            .permissions = permissions,
            .screenCapture = screenCapture,
            .captureDevices = captureDevices,
            .mediaWriters = mediaWriters,
            .audioExporter = audioExporter,
            .windowSystem = windowSystem,
            .userNotifications = userNotifications,
            .network = network,
            .processMemory = processMemory};
  }

  /// The process dies here and now. Its objects are still to be destroyed, which has no effect outside memory.
  void die() {
    dispatch.kill();
    files.die();
  }
  /// The next process may begin, on the same machine (what was in the page cache is there).
  void restart() {
    files.processDeath();
    dispatch.revive();
  }
  /// The next process may begin after the machine lost its power.
  void restart(PowerCut cut) {
    files.powerCut(cut);
    dispatch.revive();
  }

  SimDispatch dispatch;
  SimFiles files;
  SimNetwork network;
  SimSockets sockets;
  SeededRandom random;
  SimStandardOutput standardOutput;
  SimSystemLog systemLog;
  SimUserDefaults userDefaults;
  SimPermissions permissions;
  SimScreenCapture screenCapture{dispatch};
  SimCaptureDevices captureDevices{dispatch};
  SimMediaWriters mediaWriters{dispatch, files};
  SimAudioExporter audioExporter{dispatch, files, mediaWriters};
  SimWindowSystem windowSystem;
  SimUserNotifications userNotifications;
  SystemVersion systemVersion;
  SimProcessMemory processMemory;
  Places places{.applicationSupport = "/home/user/.local/share",
                .caches = "/home/user/.cache",
                .preferences = "/home/user/.config",
                .temporary = "/tmp",
                .movies = "/home/user/Videos",
                .runtime = "/run/user/1000"};
};

}  // namespace quillbeam
