#include "platform/linux/ffmpeg/WorkerThread.h"

#include <pthread.h>

#include <utility>

namespace quillbeam {

void WorkerThread::start(const char* name, Step step) {
  thread_ = std::thread([this, step = std::move(step)] {
    while (!stopping_) {
      const Outcome outcome = step();
      if (outcome == Outcome::finished) return;
      if (outcome == Outcome::idle) signal_.wait();
    }
  });
  pthread_setname_np(thread_.native_handle(), name);
}

void WorkerThread::stop() {
  if (!thread_.joinable()) return;
  stopping_ = true;
  signal_.raise();
  thread_.join();
}

}  // namespace quillbeam
