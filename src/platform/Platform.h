#pragma once

#include <cstdint>

#include "platform/Dispatch.h"
#include "platform/Files.h"
#include "platform/LocalSocket.h"
#include "platform/Logging.h"
#include "platform/Permissions.h"
#include "platform/Places.h"
#include "platform/ProcessMemory.h"
#include "platform/Random.h"
#include "platform/SystemVersion.h"
#include "platform/UserDefaults.h"
#include "platform/capture/CaptureDevices.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/desktop/UserNotifications.h"
#include "platform/desktop/WindowSystem.h"
#include "platform/media/AssetWriter.h"
#include "platform/media/AudioExporter.h"
#include "platform/network/Network.h"

namespace quillbeam {

/// Everything the rooms above need of an operating system. The executables fill it with the Linux parts, scenario tests
/// with simulated ones; whoever made it owns the parts and destroys them last.
struct Platform {
  std::int64_t processId;
  Dispatch& dispatch;
  Files& files;
  Places places;
  LocalSockets& localSockets;
  StandardOutput& standardOutput;
  SystemLog& systemLog;
  UserDefaults& userDefaults;
  Random& random;
  SystemVersion systemVersion;
  CapturePermissions& permissions;
  ScreenCapture& screenCapture;
  CaptureDevices& captureDevices;
  MediaWriters& mediaWriters;
  AudioExporter& audioExporter;
  WindowSystem& windowSystem;
  UserNotifications& userNotifications;
  Network& network;
  ProcessMemory& processMemory;
};

}  // namespace quillbeam
