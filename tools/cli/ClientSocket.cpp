#include "cli/ClientSocket.h"

#include "app/NativeHalf.h"
#include "cli/Messages.h"
#include "cli/OutputFile.h"

namespace quillbeam::cli {

Path clientSocketPath(Platform& platform, const std::string& given) {
  if (!given.empty()) return absolutePath(given);
  const auto running = findRunningNativeHalf(platform.files, platform.places);
  return running ? running->socketPath : defaultSocketPath(platform.places);
}

ExitCode reportUnreachable(const Error& error) {
  complain(error.fullDescription());
  return error.is(LocalSocketError::notListening) ? ExitCode::nobodyListens : ExitCode::failed;
}

}  // namespace quillbeam::cli
