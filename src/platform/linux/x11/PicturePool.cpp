#include "platform/linux/x11/PicturePool.h"

#include <utility>
#include <vector>

#include "base/Mutex.h"

namespace quillbeam {

struct PicturePool::Spares {
  explicit Spares(std::size_t limit) : limit(limit) { pictures.reserve(limit); }

  std::unique_ptr<I420Picture> take() {
    MutexLock lock(mutex);
    if (pictures.empty()) return nullptr;
    auto picture = std::move(pictures.back());
    pictures.pop_back();
    return picture;
  }

  void giveBack(std::unique_ptr<I420Picture> picture) {
    MutexLock lock(mutex);
    if (pictures.size() < limit) pictures.push_back(std::move(picture));
  }

  Mutex mutex;
  const std::size_t limit;
  std::vector<std::unique_ptr<I420Picture>> pictures GUARDED_BY(mutex);
};

PicturePool::PicturePool(int width, int height, std::size_t spares)
    : width_(width), height_(height), spares_(std::make_shared<Spares>(spares)) {}

std::shared_ptr<I420Picture> PicturePool::take() {
  auto picture = spares_->take();
  if (!picture) picture = I420Picture::create(width_, height_);
  if (!picture) return nullptr;
  return {picture.release(),
          [spares = spares_](I420Picture* returned) { spares->giveBack(std::unique_ptr<I420Picture>(returned)); }};
}

}  // namespace quillbeam
