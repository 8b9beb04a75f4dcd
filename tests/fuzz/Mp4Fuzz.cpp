#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "platform/linux/ffmpeg/FragmentIndex.h"
#include "platform/linux/ffmpeg/MovieIndex.h"
#include "platform/linux/ffmpeg/MovieRepair.h"

// Repair reads files that a crash tore. Whatever their bytes are, it answers and stays inside them; once as a whole
// file, once as a movie header followed by fragment headers, which random bytes would seldom reach behind the file's
// start.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillbeam;
  const ByteSpan bytes(data, size);
  if (const auto boxes = parseBoxes(bytes); boxes && !boxes->empty()) {
    if (auto index = FragmentIndex::create(boxes->front().bytes)) {
      for (std::size_t i = 1; i < boxes->size(); ++i) {
        (void)index->add((*boxes)[i].bytes, 1000 * i, {1000 * i, 1000 * i + 100'000});
      }
      const MovieIndex movie(boxes->front().bytes, *index, MediaTime(1, 2));
      (void)movie.build(64);
      (void)movie.duration();
    }
  }

  const int descriptor = ::memfd_create("movie", MFD_CLOEXEC);
  if (descriptor < 0) return 0;
  if (::write(descriptor, data, size) == static_cast<ssize_t>(size)) {
    (void)repairMovie("/proc/self/fd/" + std::to_string(descriptor));
  }
  ::close(descriptor);
  return 0;
}
