// Mixes the first two tracks of a file as a recording of sound does, and exits: for whole_process/mix.py.
//
// usage: mix-once SOURCE OUTPUT

#include <cstdio>
#include <optional>

#include "base/TaskScope.h"
#include "platform/linux/ffmpeg/FfmpegAudioExporter.h"
#include "platform/linux/posix/LinuxDispatch.h"

int main(int count, char** arguments) {
  using namespace quillbeam;
  if (count != 3) return 2;
  LinuxDispatch dispatch;
  FfmpegAudioExporter exporter;
  const auto mixing = exporter.makeExport({arguments[1], {{0, 1.0}, {1, 2.5}}, arguments[2]});
  std::optional<Result<void>> result;
  TaskScope scope(dispatch.main());
  scope.start(mixing->run(), [&](Result<void> done) {
    result = std::move(done);
    dispatch.stopMain();
  });
  dispatch.runMain();
  if (result && *result) return 0;
  std::fprintf(stderr, "%s\n", result ? result->error().fullDescription().c_str() : "interrupted");
  return 1;
}
